// Why a file could not be opened or read.
#pragma once

#include <string>

#include "files/file_stream.h"

namespace kestrane::quality {

// Throws FileError where `in` is not open on `path`.
void require_open(const InputFile& in, const std::string& path);

// Throws FileError where a read has failed: what follows is missing for that reason.
void require_read(const InputFile& in, const std::string& path);

}  // namespace kestrane::quality
