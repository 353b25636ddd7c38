// Files of one test, gone when the test ends: in a folder, or one after the other in memory.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kestrane {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = testing::TempDir() + "kestrane_XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "no temporary folder";
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string path() const { return path_; }
  std::string path(const std::string& name) const { return path_ + "/" + name; }

  // Makes or overwrites a file of these bytes and gives its path.
  std::string file(const std::string& name, const std::string& bytes) const {
    std::ofstream out(path(name), std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path(name);
  }

 private:
  std::string path_;
};

// A file that is held in memory and takes new bytes many thousand times a second.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(::memfd_create("kestrane", MFD_CLOEXEC)) {}
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Makes `bytes` all that the file holds, and gives its path.
  std::string hold(const std::string& bytes) const {
    const bool held =
        ::ftruncate(descriptor_, 0) == 0 &&
        ::pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    EXPECT_TRUE(held);
    return "/proc/self/fd/" + std::to_string(descriptor_);
  }

 private:
  int descriptor_;
};

inline std::string bytes_of(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace kestrane
