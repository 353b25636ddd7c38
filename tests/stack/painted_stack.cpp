#include "tests/stack/painted_stack.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

namespace painted_stack {
namespace {

constexpr unsigned char kPaint = 0xA5;

// A stack between a page that nobody may touch, on its far side, and the rest of the process.
class Stack {
 public:
  explicit Stack(std::size_t size)
      : guard_(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))), size_(size) {
    memory_ = static_cast<unsigned char*>(::mmap(nullptr, guard_ + size_, PROT_READ | PROT_WRITE,
                                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_NE(memory_, MAP_FAILED);
    EXPECT_EQ(::mprotect(memory_, guard_, PROT_NONE), 0);
    std::fill_n(bottom(), size_, kPaint);
  }
  ~Stack() { ::munmap(memory_, guard_ + size_); }
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;

  unsigned char* bottom() const { return memory_ + guard_; }

  // Stacks grow downwards: the lowest byte without paint marks the deepest call.
  const unsigned char* deepest() const {
    return std::find_if(bottom(), bottom() + size_, [](unsigned char c) { return c != kPaint; });
  }

 private:
  std::size_t guard_;
  std::size_t size_;
  unsigned char* memory_ = nullptr;
};

struct Job {
  const std::function<void()>& work;
  unsigned char* bottom;               // of its stack
  const unsigned char* top = nullptr;  // where its own part begins
};

// The start of a thread reaches deeper than the place where its work begins, so that its traces are
// painted over, but for those right below this frame, where its own variables are.
void* run(void* argument) {
  Job& job = *static_cast<Job*>(argument);
  auto* const frame = static_cast<unsigned char*>(__builtin_frame_address(0));
  for (volatile unsigned char* c = job.bottom; c < frame - kLeast; ++c) *c = kPaint;
  job.top = frame;
  job.work();
  return nullptr;
}

}  // namespace

std::size_t used_by(std::size_t size, const std::function<void()>& work) {
  const Stack stack(size);
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  EXPECT_EQ(::pthread_attr_setstack(&attributes, stack.bottom(), size), 0);
  pthread_t thread{};
  Job job{work, stack.bottom()};
  const int started = ::pthread_create(&thread, &attributes, run, &job);
  EXPECT_EQ(started, 0);
  if (started == 0) ::pthread_join(thread, nullptr);
  ::pthread_attr_destroy(&attributes);
  return static_cast<std::size_t>(job.top - stack.deepest());
}

}  // namespace painted_stack
