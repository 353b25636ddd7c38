// A file that is held in memory and takes new bytes for every execution.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace fuzz {

class MemoryFile {
 public:
  MemoryFile()
      : descriptor_(::memfd_create("kestrane", MFD_CLOEXEC)),
        path_("/proc/self/fd/" + std::to_string(descriptor_)) {}

  const std::string& hold(const std::uint8_t* data, std::size_t size) {
    if (::ftruncate(descriptor_, 0) != 0 ||
        ::pwrite(descriptor_, data, size, 0) != static_cast<ssize_t>(size))
      std::abort();
    return path_;
  }

  // What the file holds now.
  std::string bytes() const {
    const off_t size = ::lseek(descriptor_, 0, SEEK_END);
    std::string all(static_cast<std::size_t>(size), '\0');
    if (::pread(descriptor_, all.data(), all.size(), 0) != size) std::abort();
    return all;
  }

 private:
  int descriptor_;
  std::string path_;
};

// A window of the reader for an input of this size: the usual one, or one that cuts it to pieces.
inline std::size_t window_for(std::size_t size, std::size_t least) {
  return size % 2 == 0 ? std::size_t{65536} : least + size % 61;
}

}  // namespace fuzz
