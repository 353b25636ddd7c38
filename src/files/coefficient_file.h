// The binary coefficient file.
//
// in    an open file and a record whose plane counts have been checked
// out   the record's numbers, as many as the file holds
#pragma once

#include "files/file_stream.h"
#include "kestrane/records.h"

namespace kestrane {

// What read_compensator_coeffs does once the file is open.
_KESTRANE_STATUS read_coefficients(InputFile& in, _COMPENSATOR_COEFFS& record);

// What save_compensator_coeffs does once the file is open.
void write_coefficients(OutputFile& out, const _COMPENSATOR_COEFFS& record);

}  // namespace kestrane
