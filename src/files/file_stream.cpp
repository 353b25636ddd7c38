#include "files/file_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kestrane {
namespace {

constexpr mode_t kReadWriteForAll = 0666;  // less the process's mask

int open_again_on_signal(const char* path, int flags) {
  int descriptor = -1;
  do {
    descriptor = ::open(path, flags | O_CLOEXEC, kReadWriteForAll);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

bool is_folder(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

int open_to_read(const char* path) {
  const int descriptor = open_again_on_signal(path, O_RDONLY);
  if (descriptor < 0 || !is_folder(descriptor)) return descriptor;
  ::close(descriptor);
  return -1;
}

// Bytes read, 0 at the end of the file or on an error, whose number is set then.
std::size_t read_some(int descriptor, char* to, std::size_t size, int& error) {
  ssize_t got = 0;
  do {
    got = ::read(descriptor, to, size);
  } while (got < 0 && errno == EINTR);
  if (got < 0) error = errno;
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// 0, or the error number of a failure.
int write_all(int descriptor, const char* from, std::size_t size) {
  while (size > 0) {
    const ssize_t done = ::write(descriptor, from, size);
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return done < 0 ? errno : ENOSPC;
    from += done;
    size -= static_cast<std::size_t>(done);
  }
  return 0;
}

}  // namespace

InputFile::InputFile(const std::string& path, std::size_t window)
    : descriptor_(open_to_read(path.c_str())),
      window_(std::min(window, kFileWindow)),
      at_(buffer_),
      end_(buffer_) {}

InputFile::~InputFile() {
  if (is_open()) ::close(descriptor_);
}

void InputFile::refill(std::size_t wanted) {
  const auto left = static_cast<std::size_t>(end_ - at_);  // less than is wanted
  char* const base = buffer_ + kLargestView;
  std::memmove(base - left, at_, left);
  std::size_t filled = 0;
  while (left + filled < wanted && filled < window_ && !ended_) {
    const std::size_t got = read_some(descriptor_, base + filled, window_ - filled, error_);
    if (got == 0) ended_ = true;
    filled += got;
  }
  at_ = base - left;
  end_ = base + filled;
}

OutputFile::OutputFile(const std::string& path)
    : descriptor_(open_again_on_signal(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC)) {
  if (!is_open()) error_ = errno;
}

OutputFile::~OutputFile() { finish(); }

int OutputFile::finish() {
  if (!is_open()) return error_;
  flush();
  if (::close(descriptor_) != 0 && error_ == 0) error_ = errno;
  descriptor_ = -1;
  return error_;
}

void OutputFile::put(const void* from, std::size_t size) {
  const char* rest = static_cast<const char*>(from);
  while (size > 0) {
    const std::size_t piece = std::min(size, kFileWindow - filled_);
    std::memcpy(buffer_ + filled_, rest, piece);
    filled_ += piece;
    rest += piece;
    size -= piece;
    if (filled_ == kFileWindow) flush();
  }
}

void OutputFile::flush() {
  if (error_ == 0) error_ = write_all(descriptor_, buffer_, filled_);
  filled_ = 0;
}

}  // namespace kestrane
