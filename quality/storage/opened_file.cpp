#include "quality/storage/opened_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kestrane/quality/errors.h"
#include "quality/storage/file_replacement.h"

namespace kestrane::quality {

// Asked again: between the attempt and now the error number may have changed.
void require_open(const InputFile& in, const std::string& path) {
  if (in.is_open()) return;
  struct stat status {};
  int error = 0;
  if (::stat(path.c_str(), &status) != 0 || ::access(path.c_str(), R_OK) != 0) {
    error = errno;
  } else if (S_ISDIR(status.st_mode)) {
    error = EISDIR;
  }
  if (error == 0) throw FileError(path, "cannot be opened", EIO);
  throw FileError(path, "cannot be opened: " + reason_of(error), error);
}

void require_read(const InputFile& in, const std::string& path) {
  if (in.error() != 0)
    throw FileError(path, "cannot be read: " + reason_of(in.error()), in.error());
}

}  // namespace kestrane::quality
