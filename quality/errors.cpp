#include "kestrane/quality/errors.h"

namespace kestrane::quality {

FileError::FileError(const std::string& path, const std::string& reason)
    : FileError(path, reason, 0) {}

FileError::FileError(const std::string& path, const std::string& reason, int error_number)
    : std::runtime_error(path + ": " + reason),
      path_(path),
      reason_(reason),
      error_number_(error_number) {}

// Out of line, so that the class has one home and can be caught across library borders.
FileError::~FileError() = default;

}  // namespace kestrane::quality
