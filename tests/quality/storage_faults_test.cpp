// Saving with a failure of every single system call, and with a kill between any two.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "kestrane/quality/storage.h"
#include "tests/files/temporary_folder.h"
#include "tests/quality/stored_records.h"

namespace {

// The calls that are left until one fails; negative while none is to fail.
int calls_left = -1;
int error_to_give = 0;
bool failed_unlink = false;
bool writes_lie = false;                  // a byte of each write becomes another one
std::optional<std::string> kept_instead;  // of all that is written

bool signals_come = false;  // every other call that waits ends with a signal
bool signal_is_next = false;
int folder_sync_error = 0;
int file_sync_error = 0;
int permission_error = 0;
int renames_left = -1;  // until one fails; negative while none is to fail
int open_descriptors = 0;

bool is_interrupted() {
  if (!signals_come) return false;
  signal_is_next = !signal_is_next;
  if (signal_is_next) errno = EINTR;
  return signal_is_next;
}

bool is_folder(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

bool fails() {
  if (calls_left < 0 || calls_left-- > 0) return false;
  errno = error_to_give;
  return true;
}

}  // namespace

// The linker leads the calls of everything that is tested here to these.
extern "C" {
int __real_open(const char* path, int flags, mode_t mode);
int __real_close(int descriptor);
ssize_t __real_read(int descriptor, void* to, size_t size);
ssize_t __real_write(int descriptor, const void* from, size_t size);
int __real_fsync(int descriptor);
int __real_fchmod(int descriptor, mode_t mode);
int __real_link(const char* from, const char* to);
int __real_rename(const char* from, const char* to);
int __real_unlink(const char* path);

int __wrap_open(const char* path, int flags, mode_t mode) {
  if (is_interrupted() || fails()) return -1;
  const int descriptor = __real_open(path, flags, mode);
  if (descriptor >= 0) ++open_descriptors;
  return descriptor;
}
int __wrap_close(int descriptor) {
  EXPECT_GE(descriptor, 0);
  --open_descriptors;
  const int closed = __real_close(descriptor);  // a descriptor is gone even if its close fails
  return fails() ? -1 : closed;
}
ssize_t __wrap_read(int descriptor, void* to, size_t size) {
  return fails() ? -1 : __real_read(descriptor, to, size);
}
ssize_t __wrap_write(int descriptor, const void* from, size_t size) {
  if (fails()) return -1;
  if (kept_instead) {
    const std::string bytes = std::exchange(*kept_instead, {});
    const ssize_t done = __real_write(descriptor, bytes.data(), bytes.size());
    return done < 0 ? done : static_cast<ssize_t>(size);
  }
  if (!writes_lie || size < 1000) return __real_write(descriptor, from, size);
  std::string bytes(static_cast<const char*>(from), size);
  // An odd digit becomes the one below it: still a number.
  const std::size_t digit = bytes.find_last_of("13579", 900);
  bytes[digit == std::string::npos ? 900 : digit] ^= 1;
  return __real_write(descriptor, bytes.data(), size);
}
int __wrap_fsync(int descriptor) {
  if (is_interrupted() || fails()) return -1;
  const int error = is_folder(descriptor) ? folder_sync_error : file_sync_error;
  if (error == 0) return __real_fsync(descriptor);
  errno = error;
  return -1;
}
int __wrap_fchmod(int descriptor, mode_t mode) {
  if (fails()) return -1;
  if (permission_error == 0) return __real_fchmod(descriptor, mode);
  errno = permission_error;
  return -1;
}
int __wrap_link(const char* from, const char* to) { return fails() ? -1 : __real_link(from, to); }
int __wrap_rename(const char* from, const char* to) {
  if (renames_left >= 0 && renames_left-- == 0) {
    errno = EIO;
    return -1;
  }
  return fails() ? -1 : __real_rename(from, to);
}
int __wrap_unlink(const char* path) {
  EXPECT_EQ(::access(path, F_OK), 0) << path;  // nothing else is removed
  if (!fails()) return __real_unlink(path);
  failed_unlink = true;
  return -1;
}
}

namespace {

using kestrane::bytes_of;
using kestrane::TemporaryFolder;
using kestrane::quality::FileError;
using kestrane::quality::PlaneTable;
using quality_tests::bytes_of_coefficients;
using quality_tests::odd_table;
using quality_tests::OddCoefficients;

std::size_t files_in(const TemporaryFolder& folder) {
  const std::filesystem::directory_iterator files(folder.path());
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

// Saves with the n-th call failing. Whether that failure came up at all.
template <class Save>
bool save_with_failure(int n, int error, const std::string& old_bytes, const std::string& new_bytes,
                       bool existed, Save save) {
  const TemporaryFolder folder;
  const std::string path = folder.path("file");
  if (existed) folder.file("file", old_bytes);
  failed_unlink = false;
  open_descriptors = 0;
  calls_left = n;
  error_to_give = error;
  bool thrown = false;
  std::string path_named;
  std::string reason;
  try {
    save(path);
  } catch (const FileError& failure) {
    thrown = true;
    path_named = failure.path();
    reason = failure.reason();
  }
  const bool reached = calls_left < 0;
  calls_left = -1;
  EXPECT_EQ(open_descriptors, 0) << reason;
  if (thrown) {
    EXPECT_EQ(path_named, path);
    EXPECT_TRUE(reason.find(std::generic_category().message(error)) != std::string::npos ||
                reason.find("cannot be opened") != std::string::npos)  // told by a second look
        << reason;
    EXPECT_EQ(std::filesystem::exists(path), existed) << reason;
    if (existed) {
      EXPECT_TRUE(bytes_of(path) == old_bytes) << reason;
    }
  } else {
    EXPECT_TRUE(bytes_of(path) == new_bytes);
  }
  if (!failed_unlink) {
    EXPECT_EQ(files_in(folder), thrown && !existed ? 0U : 1U) << reason;
  }
  return reached;
}

template <class Save>
void expect_whole_after_every_failure(const std::string& new_bytes, Save save) {
  for (const int error : {EIO, ENOSPC}) {
    for (const bool existed : {true, false}) {
      int n = 0;
      while (save_with_failure(n, error, "old", new_bytes, existed, save)) ++n;
      EXPECT_GT(n, 15);  // opens, writes, syncs, reads, closes, the link and the rename
    }
  }
}

TEST(StorageFaults, LeaveTheOldTableOrTheNewOne) {
  const PlaneTable table = odd_table(3);
  const TemporaryFolder folder;
  kestrane::quality::save_table(table, folder.path("whole"));
  expect_whole_after_every_failure(bytes_of(folder.path("whole")), [&](const std::string& path) {
    kestrane::quality::save_table(table, path);
  });
}

TEST(StorageFaults, LeaveTheOldCoefficientsOrTheNewOnes) {
  OddCoefficients record(4);
  expect_whole_after_every_failure(bytes_of_coefficients(*record), [&](const std::string& path) {
    kestrane::quality::save_coefficients(*record, path);
  });
}

// The reason why a table could not be saved; empty where it could.
std::string reason_of_saving(const PlaneTable& table, const std::string& path) {
  try {
    kestrane::quality::save_table(table, path);
  } catch (const FileError& failure) {
    return failure.reason();
  }
  return "";
}

bool begins(const std::string& text, const std::string& with) { return text.rfind(with, 0) == 0; }

TEST(StorageFaults, OfASignalAreTriedAgain) {
  const TemporaryFolder folder;
  signals_come = true;
  const std::string reason = reason_of_saving(odd_table(1), folder.path("file"));
  signals_come = false;
  EXPECT_EQ(reason, "");
  EXPECT_EQ(files_in(folder), 1U);
}

TEST(StorageFaults, OfAFolderThatKnowsNoSyncAreNone) {
  const TemporaryFolder folder;
  for (const int error : {EINVAL, ENOTSUP}) {
    folder_sync_error = error;
    EXPECT_EQ(reason_of_saving(odd_table(1), folder.path("file")), "");
  }
  folder_sync_error = 0;
}

TEST(StorageFaults, OfTheNewFileLeaveTheOldOne) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  file_sync_error = EIO;
  const std::string unsynced = reason_of_saving(odd_table(1), path);
  file_sync_error = 0;
  EXPECT_EQ(unsynced, "cannot be written: Input/output error");
  permission_error = EPERM;
  const std::string forbidden = reason_of_saving(odd_table(1), path);
  permission_error = 0;
  EXPECT_EQ(forbidden, "cannot be given its permissions: Operation not permitted");
  EXPECT_EQ(bytes_of(path), "old");
  EXPECT_EQ(files_in(folder), 1U);
}

TEST(StorageFaults, BringTheOldFileBackWhereTheFolderCannotBeSynced) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  folder_sync_error = EIO;
  const std::string reason = reason_of_saving(odd_table(1), path);
  EXPECT_TRUE(begins(reason, "its folder cannot be synced")) << reason;
  EXPECT_TRUE(bytes_of(path) == "old");
  renames_left = 1;  // the one that brings it back
  const std::string lasting = reason_of_saving(odd_table(1), path);
  folder_sync_error = 0;
  renames_left = -1;
  EXPECT_TRUE(begins(lasting, "is written, but its folder cannot be synced")) << lasting;
  EXPECT_FALSE(bytes_of(path) == "old");
  EXPECT_EQ(files_in(folder), 1U);
}

TEST(StorageFaults, BringTheOldFileBackFromTheNextNameWhereOneIsInUse) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  const std::string used = folder.file("file.old-" + std::to_string(::getpid()) + "-0", "mine");
  folder_sync_error = EIO;
  const std::string reason = reason_of_saving(odd_table(1), path);
  folder_sync_error = 0;
  EXPECT_TRUE(begins(reason, "its folder cannot be synced")) << reason;
  EXPECT_EQ(bytes_of(path), "old");
  EXPECT_EQ(bytes_of(used), "mine");
  EXPECT_EQ(files_in(folder), 2U);
}

TEST(StorageFaults, TouchNoFileThatIsNotTheirs) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  const auto take_names = [&](const std::string& kind) {
    for (int n = 0; n < 1000; ++n)
      folder.file("file" + kind + std::to_string(::getpid()) + "-" + std::to_string(n), "");
  };
  take_names(".old-");
  folder_sync_error = EIO;
  const std::string reason = reason_of_saving(odd_table(1), path);
  folder_sync_error = 0;
  EXPECT_TRUE(begins(reason, "is written, but its folder cannot be synced")) << reason;
  EXPECT_FALSE(bytes_of(path) == "old");
  EXPECT_EQ(files_in(folder), 1001U);
  EXPECT_EQ(reason_of_saving(odd_table(1), path), "");
  EXPECT_EQ(files_in(folder), 1001U);
  take_names(".new-");
  const std::string before = bytes_of(path);
  EXPECT_TRUE(begins(reason_of_saving(odd_table(2), path), "cannot write beside it"));
  EXPECT_TRUE(bytes_of(path) == before);
  EXPECT_EQ(files_in(folder), 2001U);
}

TEST(StorageFaults, AreSeenWhereTheDiskKeepsOtherBytes) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  OddCoefficients record(4);
  const auto reason = [&](auto save) {
    std::string text;
    writes_lie = true;
    try {
      save();
    } catch (const FileError& failure) {
      text = failure.reason();
    }
    writes_lie = false;
    return text;
  };
  const std::string expected = "what was written does not read back: other numbers";
  EXPECT_EQ(reason([&] { kestrane::quality::save_table(odd_table(1), path); }), expected);
  EXPECT_EQ(reason([&] { kestrane::quality::save_coefficients(*record, path); }), expected);
  EXPECT_EQ(bytes_of(path), "old");
  EXPECT_EQ(files_in(folder), 1U);
}

const char* const kOtherNumbers = "what was written does not read back: other numbers";

TEST(StorageFaults, AreSeenWhereTheDiskKeepsAnotherWholeTable) {
  const TemporaryFolder folder;
  const PlaneTable table = odd_table(2);
  const auto reason_with = [&](auto change) {
    PlaneTable other = table;
    change(other);
    kestrane::quality::save_table(other, folder.path("other"));
    kept_instead = bytes_of(folder.path("other"));
    const std::string reason = reason_of_saving(table, folder.path("file"));
    kept_instead.reset();
    return reason;
  };
  EXPECT_EQ(reason_with([](PlaneTable&) {}), "");
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.grids().grid_z[50] = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.grids().grid_y_start[50] = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.grids().grid_y_step[0] = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.grids().z_start = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.grids().z_step = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.cell(0, {0, 0}).v[0] = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.cell(1, {14, 49}).v[2] = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.whole_plane(0)[0] = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t.whole_plane(1)[2] = 1.0; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t = odd_table(3); }), kOtherNumbers);
  EXPECT_EQ(reason_with([](PlaneTable& t) { t = odd_table(1); }), kOtherNumbers);
}

TEST(StorageFaults, AreSeenWhereTheDiskKeepsOtherWholeCoefficients) {
  const TemporaryFolder folder;
  OddCoefficients record(2);
  const auto reason_of_keeping = [&](const kestrane::_COMPENSATOR_COEFFS& other) {
    kept_instead = bytes_of_coefficients(other);
    std::string reason;
    try {
      kestrane::quality::save_coefficients(*record, folder.path("file"));
    } catch (const FileError& failure) {
      reason = failure.reason();
    }
    kept_instead.reset();
    return reason;
  };
  const auto reason_with = [&](auto change) {
    OddCoefficients other(2);
    change(*other);
    return reason_of_keeping(*other);
  };
  EXPECT_EQ(reason_with([](auto&) {}), "");
  EXPECT_EQ(reason_with([](auto& r) { r.range_count = 1; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](auto& r) { r.range_count = 3; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](auto& r) { r.range_first[1] = 4; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](auto& r) { r.range_last[0] = 1; }), kOtherNumbers);
  EXPECT_EQ(reason_with([](auto& r) { r.opt_coeffs->planes[1].count = 0; }), kOtherNumbers);
  for (const int p : {0, 1}) {
    EXPECT_EQ(reason_with([&](auto& r) { r.opt_coeffs->planes[p].lines[15].cells[50].v[2] = 1.0; }),
              kOtherNumbers);
  }
  EXPECT_EQ(reason_with([](auto& r) { r.Mbs_factory_to_user[23] = 1.0; }), kOtherNumbers);
  OddCoefficients more(3);  // begins as the record does
  std::copy_n(record->Mbs_factory_to_user, 24, more->Mbs_factory_to_user);
  EXPECT_EQ(reason_of_keeping(*more), kOtherNumbers);
  record->opt_coeffs->planes[0].count = 0;
  EXPECT_EQ(reason_with([](auto&) {}), kOtherNumbers);
}

TEST(StorageFaults, OfAReadAreNotTakenForTheEndOfTheFile) {
  const TemporaryFolder folder;
  kestrane::quality::save_table(odd_table(1), folder.path("table"));
  OddCoefficients record(1);
  kestrane::quality::save_coefficients(*record, folder.path("coefficients"));
  const auto read_with_failure = [&](int n, auto read) {
    calls_left = n;
    error_to_give = EIO;
    std::string reason;
    try {
      read();
    } catch (const FileError& failure) {
      reason = failure.reason();
    }
    const bool reached = calls_left < 0;
    calls_left = -1;
    // A failed open is told by what a look at the file gives; a failed close of a file that was
    // only read does no harm.
    if (reached && reason != "cannot be opened" && reason != "") {
      EXPECT_EQ(reason, "cannot be read: Input/output error");
    }
    return reached;
  };
  int n = 0;
  while (read_with_failure(n, [&] { kestrane::quality::read_table(folder.path("table")); })) ++n;
  EXPECT_GE(n, 7);
  n = 0;
  while (read_with_failure(
      n, [&] { kestrane::quality::read_coefficients(folder.path("coefficients")); }))
    ++n;
  EXPECT_GE(n, 7);
}

// --- killed ----------------------------------------------------------------------------------

// Runs `save` in a child that is killed when it has stopped at the entry or the exit of a system
// call for the n-th time. Whether it was still running then; empty where processes cannot be
// followed here.
template <class Save>
std::optional<bool> save_killed_at(int n, Save save) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(7);
    ::raise(SIGSTOP);
    save();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) return std::nullopt;
  for (int stop = 0; stop < n; ++stop) {
    ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status)) return false;
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, &status, 0);
  return true;
}

template <class Save>
void expect_whole_after_every_kill(const std::string& new_bytes, Save save) {
  for (const std::string& old_bytes : {std::string("old"), std::string()}) {
    int kills = 0;
    bool seen[2] = {false, false};
    for (;; ++kills) {
      const TemporaryFolder folder;
      const std::string path = folder.path("file");
      if (!old_bytes.empty()) folder.file("file", old_bytes);
      const std::optional<bool> killed = save_killed_at(kills, [&] { save(path); });
      if (!killed) GTEST_SKIP() << "no process can be followed here";
      const std::string bytes = bytes_of(path);  // empty where there is no file
      ASSERT_TRUE(bytes == old_bytes || bytes == new_bytes) << "kill " << kills;
      seen[bytes == new_bytes ? 1 : 0] = true;
      if (!*killed) break;
    }
    EXPECT_GT(kills, 30);
    EXPECT_TRUE(seen[0] && seen[1]);
  }
}

TEST(StorageKills, LeaveTheOldTableOrTheNewOne) {
  const PlaneTable table = odd_table(3);
  const TemporaryFolder folder;
  kestrane::quality::save_table(table, folder.path("whole"));
  expect_whole_after_every_kill(bytes_of(folder.path("whole")), [&](const std::string& path) {
    kestrane::quality::save_table(table, path);
  });
}

TEST(StorageKills, LeaveTheOldCoefficientsOrTheNewOnes) {
  OddCoefficients record(4);
  expect_whole_after_every_kill(bytes_of_coefficients(*record), [&](const std::string& path) {
    kestrane::quality::save_coefficients(*record, path);
  });
}

}  // namespace
