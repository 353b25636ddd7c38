// From a status, or an exception of kestrane::quality, to the exception of the package.
#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "kestrane/quality/errors.h"
#include "kestrane/records.h"

namespace kestrane::python {

// Raises the exception of a status other than 0, with the lock held.
//
// call    the call that failed, as Python names it
// detail  what most likely led to it; empty where the status says all
[[noreturn]] void raise_status(_KESTRANE_STATUS status, const std::string& call,
                               const std::string& detail = "");

// Hands a file error on as FileOpenError or DamagedFile.
void translate_file_error(const quality::FileError& error);

}  // namespace kestrane::python
