#include "quality/storage/file_replacement.h"

#include <fcntl.h>
#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): realpath is not of C++
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <system_error>

#include "kestrane/quality/errors.h"

namespace kestrane::quality {
namespace {

constexpr mode_t kReadWriteForAll = 0666;  // less the process's mask
constexpr mode_t kPermissions = 07777;
constexpr int kMostNames = 1000;

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

// A file beside the target that goes with its object unless it is kept. Its name stands before the
// file does: nothing can fail between its making and its owner's knowing of it.
class PassingFile {
 public:
  PassingFile() = default;
  ~PassingFile() {
    if (there_) ::unlink(path_.c_str());
  }
  PassingFile(const PassingFile&) = delete;
  PassingFile& operator=(const PassingFile&) = delete;

  // Tries names until `make` gives 0 or an error number other than that of a name in use. Gives the
  // last error number.
  template <class Make>
  int make_beside(const std::string& target, const char* kind, Make make) {
    int error = EEXIST;
    for (int number = 0; number < kMostNames && error == EEXIST; ++number) {
      path_ = target + kind + std::to_string(::getpid()) + "-" + std::to_string(number);
      error = make(path_.c_str());
    }
    there_ = error == 0;
    return error;
  }

  bool is_there() const { return there_; }
  const std::string& path() const { return path_; }
  void keep() { there_ = false; }

 private:
  std::string path_;
  bool there_ = false;
};

int open_again_on_signal(const char* path, int flags) {
  int number = -1;
  do {
    number = ::open(path, flags | O_CLOEXEC, kReadWriteForAll);
  } while (number < 0 && errno == EINTR);
  return number;
}

int sync_again_on_signal(int descriptor) {
  int result = -1;
  do {
    result = ::fsync(descriptor);
  } while (result != 0 && errno == EINTR);
  return result == 0 ? 0 : errno;
}

[[noreturn]] void fail(const std::string& path, const std::string& what, int error) {
  throw FileError(path, what + ": " + reason_of(error), error);
}

// Where a link leads to; the path itself where nothing is there yet.
std::string target_of(const std::string& path) {
  const std::unique_ptr<char, decltype(&::free)> real(::realpath(path.c_str(), nullptr), &::free);
  if (real) return real.get();
  if (errno == ENOMEM) throw std::bad_alloc();  // what is not known to be a link could be one
  return path;
}

std::string folder_of(const std::string& target) {
  const std::size_t slash = target.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : target.substr(0, slash);
}

int make_file(const char* path) {
  const Descriptor made(open_again_on_signal(path, O_WRONLY | O_CREAT | O_EXCL));
  return made.number() >= 0 ? 0 : errno;
}

// Some file systems cannot sync a folder and say so; they keep names safe in their own way.
int sync_folder(int folder) {
  const int error = sync_again_on_signal(folder);
  return error == EINVAL || error == ENOTSUP ? 0 : error;
}

void sync_file(const std::string& path, const std::string& written, const struct stat* old) {
  const Descriptor file(open_again_on_signal(written.c_str(), O_RDONLY));
  if (file.number() < 0) fail(path, "cannot be written", errno);
  if (old != nullptr && ::fchmod(file.number(), old->st_mode & kPermissions) != 0)
    fail(path, "cannot be given its permissions", errno);
  const int error = sync_again_on_signal(file.number());
  if (error != 0) fail(path, "cannot be written", error);
}

void check_written(const std::string& path, const std::string& written,
                   const std::function<void(const std::string&)>& check) {
  try {
    check(written);
  } catch (const FileError& error) {
    throw FileError(path, "what was written does not read back: " + error.reason(), EIO);
  }
}

}  // namespace

std::string reason_of(int error) { return std::generic_category().message(error); }

void replace_file(const std::string& path, const std::function<int(const std::string&)>& write,
                  const std::function<void(const std::string&)>& check) {
  const std::string target = target_of(path);
  struct stat old {};
  const bool existed = ::stat(target.c_str(), &old) == 0;
  if (existed && S_ISDIR(old.st_mode)) fail(path, "cannot be written", EISDIR);
  if (existed && !S_ISREG(old.st_mode)) throw FileError(path, "is not a file", EINVAL);
  const Descriptor folder(open_again_on_signal(folder_of(target).c_str(), O_RDONLY | O_DIRECTORY));
  if (folder.number() < 0) fail(path, "its folder cannot be opened", errno);

  PassingFile written;
  int error = written.make_beside(target, ".new-", make_file);
  if (error != 0) fail(path, "cannot write beside it", error);
  error = write(written.path());
  if (error != 0) fail(path, "cannot be written", error);
  sync_file(path, written.path(), existed ? &old : nullptr);
  check_written(path, written.path(), check);

  // A second name of the old file, so that it can come back; some file systems know none.
  PassingFile kept;
  if (existed) {
    kept.make_beside(target, ".old-", [&](const char* name) {
      return ::link(target.c_str(), name) == 0 ? 0 : errno;
    });
  }
  if (::rename(written.path().c_str(), target.c_str()) != 0)
    fail(path, "cannot be replaced", errno);
  written.keep();
  const int unsynced = sync_folder(folder.number());
  if (unsynced == 0) return;
  if (!existed) {
    ::unlink(target.c_str());
  } else if (kept.is_there() && ::rename(kept.path().c_str(), target.c_str()) == 0) {
    kept.keep();
  } else {
    fail(path, "is written, but its folder cannot be synced", unsynced);
  }
  fail(path, "its folder cannot be synced", unsynced);
}

}  // namespace kestrane::quality
