// What the four functions share: opening, descriptors, full disks, and the host's locale.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <locale>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "files/file_stream.h"
#include "kestrane/files.h"
#include "tests/files/records_under_test.h"
#include "tests/files/temporary_folder.h"

namespace {

bool writes_nothing = false;  // and reports no error
int error_of_close = 0;

}  // namespace

// The linker leads the library's calls to these.
extern "C" {
ssize_t __real_write(int descriptor, const void* from, size_t size);
int __real_close(int descriptor);

ssize_t __wrap_write(int descriptor, const void* from, size_t size) {
  return writes_nothing ? 0 : __real_write(descriptor, from, size);
}

int __wrap_close(int descriptor) {
  const int closed = __real_close(descriptor);  // a descriptor is gone even if its close fails
  if (error_of_close == 0) return closed;
  errno = error_of_close;
  return -1;
}
}

namespace kestrane {
namespace {

// All four functions on one path.
class FileAccess : public testing::Test {
 protected:
  // A file that one format writes is refused by the other and leaves its plane count there, so
  // that the records start afresh each time.
  std::vector<_KESTRANE_STATUS> read_both(const std::string& path) {
    coefficients_.fill(1);
    planes_.fill(2);
    return {read_compensator_coeffs(path, *coefficients_), read_plane_block_infos(path, *planes_)};
  }
  std::vector<_KESTRANE_STATUS> save_both(const std::string& path) {
    coefficients_.fill(1);
    planes_.fill(2);
    return {save_compensator_coeffs(*coefficients_, path), save_plane_block_infos(*planes_, path)};
  }
  void expect_no_opening(const std::string& path) {
    const std::vector<_KESTRANE_STATUS> failed(2, KESTRANE_ERR_FILE_OPEN);
    EXPECT_EQ(read_both(path), failed) << path;
    EXPECT_EQ(save_both(path), failed) << path;
  }

  TemporaryFolder folder_;
  Coefficients coefficients_{2, 2, 1};
  PlaneTable planes_{2, 2, 2};
};

std::ptrdiff_t open_descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

TEST_F(FileAccess, FailsToOpenWhatIsNoFile) {
  std::filesystem::create_symlink("loop", folder_.path("loop"));
  expect_no_opening(folder_.path("missing/file"));
  expect_no_opening(folder_.path());
  expect_no_opening(folder_.path() + "/");
  expect_no_opening("");
  expect_no_opening(folder_.path(std::string(300, 'n')));
  expect_no_opening("/" + std::string(5000, 'p'));
  expect_no_opening(folder_.path("loop"));
}

TEST_F(FileAccess, LeavesTheRecordsAloneWhenNothingOpens) {
  const std::string coefficients = coefficients_.all_bytes();
  const std::string planes = planes_.all_bytes();
  read_both(folder_.path("missing"));
  EXPECT_TRUE(coefficients_.all_bytes() == coefficients);
  EXPECT_TRUE(planes_.all_bytes() == planes);
}

TEST_F(FileAccess, FailsToWriteIntoAReadOnlyFolder) {
  constexpr uid_t kNobody = 65534;
  const std::string path = folder_.path("shut");
  std::filesystem::create_directory(path);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(path.c_str(), 0555), 0);
  const bool root = ::geteuid() == 0;  // to whom no folder is shut
  ASSERT_TRUE(!root || ::seteuid(kNobody) == 0);
  const std::vector<_KESTRANE_STATUS> saved = save_both(path + "/file");
  ASSERT_TRUE(!root || ::seteuid(0) == 0);
  EXPECT_EQ(saved, std::vector<_KESTRANE_STATUS>(2, KESTRANE_ERR_FILE_OPEN));
}

TEST_F(FileAccess, FailsToOpenWithoutADescriptorLeft) {
  const std::string path = folder_.path("file");
  save_both(path);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  std::vector<int> taken;
  rlimit few = before;
  few.rlim_cur = 64;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  for (int next = ::dup(0); next >= 0; next = ::dup(0)) taken.push_back(next);
  const std::vector<_KESTRANE_STATUS> read = read_both(path), saved = save_both(path);
  for (const int descriptor : taken) ::close(descriptor);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  const std::vector<_KESTRANE_STATUS> failed(2, KESTRANE_ERR_FILE_OPEN);
  EXPECT_EQ(read, failed);
  EXPECT_EQ(saved, failed);
  EXPECT_FALSE(bytes_of(path).empty());
}

TEST_F(FileAccess, LeavesNoDescriptorOpenOnAnyPath) {
  const std::string whole = folder_.path("whole");
  const std::ptrdiff_t before = open_descriptors();
  for (const std::string& path : {whole, folder_.path(), std::string("/dev/full"), std::string()}) {
    save_both(path);
    read_both(path);
  }
  read_both(folder_.file("wrong", std::string(2000, '9')));
  read_both(folder_.file("cut", std::string("\2\0\0\0\20\0\0\0\61", 9)));
  read_both(folder_.file("large", std::string("\2\0\0\0\21\0\0\0", 8)));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(FileAccess, SaysNothingOfAFullDisk) {
  Coefficients many(100, 100, 3);
  EXPECT_EQ(save_both("/dev/full"), std::vector<_KESTRANE_STATUS>(2, KESTRANE_OK));
  EXPECT_EQ(save_compensator_coeffs(*many, "/dev/full"), KESTRANE_OK);
}

// A limit that is lifted later serves as a disk that is full for a while.
TEST_F(FileAccess, WritesNothingMoreOnceAWriteHasFailed) {
  constexpr rlim_t kRoom = 1000;
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const std::string path = folder_.path("cut");
  const std::string bytes(kFileWindow, 'x');
  {
    OutputFile out(path);
    const rlimit small = {kRoom, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    out.put(bytes.data(), bytes.size());
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    out.put(bytes.data(), bytes.size());
    out.put("tail", 4);
  }
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(bytes_of(path).size(), kRoom);
}

// The memory of a process opens like a file, but nothing lies at its beginning to be read.
TEST_F(FileAccess, TakesAFileThatCannotBeReadForAnEmptyOne) {
  EXPECT_EQ(read_both("/proc/self/mem"),
            (std::vector<_KESTRANE_STATUS>{KESTRANE_OK, KESTRANE_ERR_INVALID_PARAM}));
}

TEST_F(FileAccess, TruncatesAFileThatExists) {
  const std::string fresh = folder_.path("fresh");
  const std::string old = folder_.file("old", std::string(1 << 20, 'x'));
  for (int format = 0; format < 2; ++format) {
    const auto save = [&](const std::string& path) {
      return format == 0 ? save_compensator_coeffs(*coefficients_, path)
                         : save_plane_block_infos(*planes_, path);
    };
    ASSERT_EQ(save(fresh), KESTRANE_OK);
    ASSERT_EQ(save(old), KESTRANE_OK);
    EXPECT_TRUE(bytes_of(old) == bytes_of(fresh));
  }
}

TEST_F(FileAccess, FollowsALinkToAFile) {
  const std::string target = folder_.file("target", "");
  std::filesystem::create_symlink(target, folder_.path("link"));
  EXPECT_EQ(save_plane_block_infos(*planes_, folder_.path("link")), KESTRANE_OK);
  EXPECT_FALSE(bytes_of(target).empty());
  EXPECT_EQ(read_plane_block_infos(folder_.path("link"), *planes_), KESTRANE_OK);
}

TEST_F(FileAccess, ReadsFromAPipeInPieces) {
  const std::string pipe = folder_.path("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  ASSERT_EQ(save_compensator_coeffs(*coefficients_, folder_.path("file")), KESTRANE_OK);
  const std::string bytes = bytes_of(folder_.path("file"));
  const pid_t writer = ::fork();
  if (writer == 0) {
    std::ofstream out(pipe, std::ios::binary);
    for (std::size_t at = 0; at < bytes.size(); at += 1001)
      out.write(bytes.data() + at,
                static_cast<std::streamsize>(std::min<std::size_t>(1001, bytes.size() - at)))
          .flush();
    out.close();
    ::_exit(0);
  }
  Coefficients target(2, 2, 99);
  EXPECT_EQ(read_compensator_coeffs(pipe, *target), KESTRANE_OK);
  EXPECT_TRUE(target.all_bytes() != coefficients_.all_bytes());  // ranges that are not in use
  EXPECT_EQ(target->opt_coeffs->planes[1].lines[15].count, 51);
  EXPECT_EQ(std::memcmp(target->opt_coeffs->planes[1].lines[15].cells,
                        coefficients_->opt_coeffs->planes[1].lines[15].cells, 51 * 24),
            0);
}

TEST_F(FileAccess, LocksNoOneOut) {
  const std::string path = folder_.path("shared");
  ASSERT_EQ(save_plane_block_infos(*planes_, path), KESTRANE_OK);
  std::fstream other(path, std::ios::in | std::ios::out);
  ASSERT_TRUE(other.is_open());
  EXPECT_EQ(read_plane_block_infos(path, *planes_), KESTRANE_OK);
  EXPECT_EQ(save_plane_block_infos(*planes_, path), KESTRANE_OK);
}

// A pipe whose other end works step by step, while signals keep coming in at this end. A call that
// waits there is broken off by each of them, as no handler asks for its restart.
class SlowPipe {
 public:
  explicit SlowPipe(const std::string& path) : path_(path) {
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    struct sigaction action {};
    action.sa_handler = [](int) {};
    EXPECT_EQ(::sigaction(SIGALRM, &action, &before_), 0);
  }
  ~SlowPipe() {
    set_signals(0);
    if (worker_.joinable()) worker_.join();
    ::sigaction(SIGALRM, &before_, nullptr);
  }
  SlowPipe(const SlowPipe&) = delete;
  SlowPipe& operator=(const SlowPipe&) = delete;

  // Feeds `bytes` into the pipe, a few at a time.
  void feed(const std::string& bytes, std::size_t piece) {
    work([this, bytes, piece] {
      wait();
      const int to = ::open(path_.c_str(), O_WRONLY);
      for (std::size_t at = 0; at < bytes.size(); at += piece) {
        const std::size_t size = std::min(piece, bytes.size() - at);
        EXPECT_EQ(::write(to, bytes.data() + at, size), static_cast<ssize_t>(size));
        wait();
      }
      ::close(to);
    });
  }

  // Takes all that comes out of the pipe, a few bytes at a time.
  void drain() {
    work([this] {
      wait();
      const int from = ::open(path_.c_str(), O_RDONLY);
      wait();
      char bytes[10000];
      for (ssize_t got = 0; (got = ::read(from, bytes, sizeof bytes)) > 0; wait())
        taken_.append(bytes, static_cast<std::size_t>(got));
      ::close(from);
    });
  }
  const std::string& taken() {
    worker_.join();
    return taken_;
  }

 private:
  static void wait() { std::this_thread::sleep_for(std::chrono::milliseconds(10)); }

  static void set_signals(int microseconds) {
    const itimerval every = {{0, microseconds}, {0, microseconds}};
    EXPECT_EQ(::setitimer(ITIMER_REAL, &every, nullptr), 0);
  }

  // The worker itself is left in peace.
  template <class Work>
  void work(Work task) {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    ::pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    worker_ = std::thread(task);
    ::pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    set_signals(2000);
  }

  std::string path_;
  std::string taken_;
  struct sigaction before_ {};
  std::thread worker_;
};

TEST_F(FileAccess, WaitsOnThroughSignalsWhenAFileComesSlowly) {
  planes_.fill(5);
  ASSERT_EQ(save_plane_block_infos(*planes_, folder_.path("file")), KESTRANE_OK);
  const std::string bytes = bytes_of(folder_.path("file"));
  PlaneTable wanted(2, 2, 99), target(2, 2, 99);
  ASSERT_EQ(read_plane_block_infos(folder_.path("file"), *wanted), KESTRANE_OK);
  SlowPipe pipe(folder_.path("pipe"));
  pipe.feed(bytes, 7919);
  EXPECT_EQ(read_plane_block_infos(folder_.path("pipe"), *target), KESTRANE_OK);
  EXPECT_TRUE(target.all_bytes() == wanted.all_bytes());
}

TEST_F(FileAccess, WaitsOnThroughSignalsWhenAFileGoesSlowly) {
  Coefficients many(10, 10, 3);  // more than a pipe holds
  ASSERT_EQ(save_compensator_coeffs(*many, folder_.path("file")), KESTRANE_OK);
  SlowPipe pipe(folder_.path("pipe"));
  pipe.drain();
  EXPECT_EQ(save_compensator_coeffs(*many, folder_.path("pipe")), KESTRANE_OK);
  EXPECT_TRUE(pipe.taken() == bytes_of(folder_.path("file")));
}

// An input file between two walls that show what is written beside it.
class WalledFile {
 public:
  WalledFile(const std::string& path, std::size_t window)
      : memory_(kWall + sizeof(InputFile) + kWall) {
    std::fill(memory_.begin(), memory_.end(), '#');
    void* room = memory_.data() + kWall;
    std::size_t space = sizeof(InputFile) + kWall;
    room = std::align(alignof(InputFile), sizeof(InputFile), room, space);
    file_ = new (room) InputFile(path, window);
  }
  ~WalledFile() { std::destroy_at(file_); }
  WalledFile(const WalledFile&) = delete;
  WalledFile& operator=(const WalledFile&) = delete;

  InputFile* operator->() { return file_; }

  bool walls_stand() const {
    const char* const begin = reinterpret_cast<const char*>(file_);
    const char* const end = begin + sizeof(InputFile);
    const char* const last = memory_.data() + memory_.size();
    return std::count(memory_.data(), begin, '#') == begin - memory_.data() &&
           std::count(end, last, '#') == last - end;
  }

 private:
  static constexpr std::size_t kWall = 2 * kFileWindow;
  std::vector<char> memory_;
  InputFile* file_;
};

TEST_F(FileAccess, ShowsItsLargestViewFromAnyPlaceOfALongFile) {
  std::string bytes(3 * kFileWindow, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i % 251);
  WalledFile in(folder_.file("long", bytes), kFileWindow);
  std::string taken;
  for (;;) {
    const std::string_view view = in->view(kLargestView);
    if (view.empty()) break;
    EXPECT_GE(view.size(), std::min(kLargestView, bytes.size() - taken.size()));
    const std::size_t size = std::min<std::size_t>(view.size(), 5000);
    taken.append(view.substr(0, size));
    in->consume(size);
  }
  EXPECT_TRUE(taken == bytes);
  EXPECT_TRUE(in.walls_stand());
}

TEST_F(FileAccess, HoldsNoMoreThanItsWindowWhateverAPipeHasToGive) {
  constexpr std::size_t kSmallWindow = 16;
  const std::string path = folder_.path("pipe");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const int other = ::open(path.c_str(), O_RDWR);
  ASSERT_EQ(::write(other, "abc", 3), 3);
  WalledFile in(path, kSmallWindow);
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(::write(other, "defghijklmnopqrstuvwxyz", 23), 23);
  });
  EXPECT_EQ(in->view(10), "abcdefghijklmnop");
  later.join();
  ::close(other);
  EXPECT_TRUE(in.walls_stand());
}

// Calls of this process that the kernel counted, to read or to write.
struct SystemCalls {
  std::int64_t reads = 0;
  std::int64_t writes = 0;
};

std::optional<SystemCalls> system_calls() {
  std::ifstream in("/proc/self/io");
  SystemCalls calls;
  std::string name;
  std::int64_t value = 0;
  bool known = false;
  while (in >> name >> value) {
    if (name == "syscr:") calls.reads = value;
    if (name == "syscw:") calls.writes = value;
    known = known || name == "syscw:";
  }
  if (!known) return std::nullopt;
  return calls;
}

// What `work` takes, less what the counting itself takes.
template <class Work>
SystemCalls calls_of(const Work& work) {
  const SystemCalls before = *system_calls();
  const SystemCalls between = *system_calls();
  work();
  const SystemCalls after = *system_calls();
  return {after.reads - between.reads - (between.reads - before.reads),
          after.writes - between.writes - (between.writes - before.writes)};
}

TEST_F(FileAccess, CallsTheSystemOnceAWindow) {
  if (!system_calls()) GTEST_SKIP() << "the kernel counts no calls";
  Coefficients coefficients(10, 10, 3);
  PlaneTable planes(10, 10, 4);
  const std::string table = folder_.path("table");
  const std::string text = folder_.path("text");
  const SystemCalls saving = calls_of([&] { save_compensator_coeffs(*coefficients, table); });
  const SystemCalls printing = calls_of([&] { save_plane_block_infos(*planes, text); });
  const SystemCalls reading = calls_of([&] { read_compensator_coeffs(table, *coefficients); });
  const SystemCalls parsing = calls_of([&] { read_plane_block_infos(text, *planes); });
  const auto windows_of = [](const std::string& path) {
    return static_cast<std::int64_t>(std::filesystem::file_size(path) / kFileWindow) + 1;
  };
  ASSERT_GE(windows_of(table), 3);
  ASSERT_GE(windows_of(text), 3);
  EXPECT_EQ(saving.writes, windows_of(table));
  EXPECT_EQ(printing.writes, windows_of(text));
  EXPECT_EQ(reading.reads, windows_of(table));
  EXPECT_LE(parsing.reads, windows_of(text) + 1);  // whether the last number ends with the file
  EXPECT_EQ(saving.reads + printing.reads + reading.writes + parsing.writes, 0);
}

// A decimal comma, and points between thousands.
class Comma : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(FileAccess, TakesNoNoticeOfTheLocaleOfTheHost) {
  const std::string classic = folder_.path("classic"), local = folder_.path("local");
  ASSERT_EQ(save_plane_block_infos(*planes_, classic), KESTRANE_OK);
  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new Comma));  // owned by the locale
  // As many C locales with a comma as the machine knows; none is no reason to fail.
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "de_DE"})
    if (std::setlocale(LC_ALL, name) != nullptr) break;
  PlaneTable target(2, 2, 99);
  const _KESTRANE_STATUS saved = save_plane_block_infos(*planes_, local);
  const _KESTRANE_STATUS read = read_plane_block_infos(local, *target);
  std::locale::global(before);
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(saved, KESTRANE_OK);
  EXPECT_EQ(read, KESTRANE_OK);
  EXPECT_TRUE(bytes_of(local) == bytes_of(classic));
  PlaneTable wanted(2, 2, 98);
  ASSERT_EQ(read_plane_block_infos(classic, *wanted), KESTRANE_OK);
  EXPECT_EQ(target->planes[1].laser_plane_R[0], wanted->planes[1].laser_plane_R[0]);
  EXPECT_EQ(target->planes[1].block.lines[14].cells[49].v[2],
            wanted->planes[1].block.lines[14].cells[49].v[2]);
}

TEST_F(FileAccess, TellsWhyBytesCouldNotBeWritten) {
  OutputFile written(folder_.path("written"));
  written.put("12", 2);
  EXPECT_EQ(written.finish(), 0);
  EXPECT_EQ(written.finish(), 0);
  EXPECT_EQ(bytes_of(folder_.path("written")), "12");
  OutputFile full("/dev/full");
  full.put("12", 2);
  EXPECT_EQ(full.finish(), ENOSPC);
  EXPECT_FALSE(full.is_open());
  OutputFile nowhere(folder_.path("missing/file"));
  EXPECT_EQ(nowhere.finish(), ENOENT);
}

TEST_F(FileAccess, TellsThatADeviceTakesNoMoreBytes) {
  OutputFile stuck(folder_.path("stuck"));
  stuck.put("12", 2);
  writes_nothing = true;
  errno = EPERM;
  EXPECT_EQ(stuck.finish(), ENOSPC);
  writes_nothing = false;
}

TEST_F(FileAccess, TellsThatClosingFailedUnlessSomethingHadBefore) {
  OutputFile late(folder_.path("late"));
  OutputFile full("/dev/full");
  late.put("12", 2);
  full.put("12", 2);
  error_of_close = EIO;
  EXPECT_EQ(late.finish(), EIO);
  EXPECT_EQ(full.finish(), ENOSPC);
  error_of_close = 0;
  EXPECT_FALSE(late.is_open());
}

}  // namespace
}  // namespace kestrane
