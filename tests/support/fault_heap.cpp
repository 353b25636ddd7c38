#include "tests/support/fault_heap.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <new>

// Where blocks really come from: the sanitizer's allocator where there is one, or the C library's.
extern "C" {
[[gnu::weak]] void* __interceptor_malloc(std::size_t size);
[[gnu::weak]] void* __interceptor_calloc(std::size_t count, std::size_t size);
[[gnu::weak]] void* __interceptor_realloc(void* block, std::size_t size);
[[gnu::weak]] void* __interceptor_memalign(std::size_t alignment, std::size_t size);
[[gnu::weak]] void __interceptor_free(void* block);
[[gnu::weak]] void __lsan_disable();
[[gnu::weak]] void __lsan_enable();

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

#define KESTRANE_TRUE_HEAP(name) \
  (__interceptor_##name != nullptr ? __interceptor_##name : __libc_##name)

namespace fault_heap {
namespace {

// All of it is set up by the compiler: blocks are asked for before any constructor has run.
struct State {
  long counts[kPlaces];
  Place refuse_at;
  long refuse;  // 0: nothing
  bool refused;
};

State state;
std::atomic<bool> watching{false};
std::atomic<bool> sizing{false};  // a sanitizer cannot size blocks before it is set up itself
std::atomic<long> others{0};
std::atomic<long> live_blocks{0};
std::atomic<long> live_bytes{0};

thread_local bool is_watched = false;
thread_local Place place = Place::kOwn;

bool is_refused() {
  if (!watching.load(std::memory_order_relaxed)) return false;
  if (!is_watched) {
    others.fetch_add(1, std::memory_order_relaxed);
    return false;
  }
  const long n = ++state.counts[static_cast<int>(place)];
  if (place != state.refuse_at || n != state.refuse) return false;
  state.refused = true;
  errno = ENOMEM;
  return true;
}

void* gain(void* block) {
  if (block == nullptr || !sizing.load(std::memory_order_relaxed)) return block;
  live_blocks.fetch_add(1, std::memory_order_relaxed);
  live_bytes.fetch_add(static_cast<long>(malloc_usable_size(block)), std::memory_order_relaxed);
  return block;
}

void lose(void* block) {
  if (block == nullptr || !sizing.load(std::memory_order_relaxed)) return;
  live_blocks.fetch_sub(1, std::memory_order_relaxed);
  live_bytes.fetch_sub(static_cast<long>(malloc_usable_size(block)), std::memory_order_relaxed);
}

void* aligned_block(std::size_t alignment, std::size_t size) {
  return is_refused() ? nullptr : gain(KESTRANE_TRUE_HEAP(memalign)(alignment, size));
}

void start_watch(Place at, long n) {
  state = State{{}, at, n, false};
  others = 0;
  is_watched = true;
  watching = true;
}

}  // namespace

Watch::Watch() { start_watch(Place::kOwn, 0); }
Watch::Watch(Place at, long n) { start_watch(at, n); }

Watch::~Watch() {
  watching = false;
  is_watched = false;
}

long Watch::count(Place at) const { return state.counts[static_cast<int>(at)]; }
long Watch::other_threads() const { return others; }
bool Watch::refused() const { return state.refused; }

Inside::Inside(Place inner) : before_(place) {
  if (place == Place::kOwn) place = inner;
}
Inside::~Inside() { place = before_; }

Holding holding() {
  sizing = true;
  return {live_blocks, live_bytes};
}

LostByDesign::LostByDesign() {
  if (__lsan_disable != nullptr) __lsan_disable();
}
LostByDesign::~LostByDesign() {
  if (__lsan_enable != nullptr) __lsan_enable();
}

}  // namespace fault_heap

extern "C" {

void* malloc(std::size_t size) {
  using namespace fault_heap;
  return is_refused() ? nullptr : gain(KESTRANE_TRUE_HEAP(malloc)(size));
}

void* calloc(std::size_t count, std::size_t size) {
  using namespace fault_heap;
  return is_refused() ? nullptr : gain(KESTRANE_TRUE_HEAP(calloc)(count, size));
}

void* realloc(void* old, std::size_t size) {
  using namespace fault_heap;
  if (is_refused()) return nullptr;
  lose(old);
  void* block = KESTRANE_TRUE_HEAP(realloc)(old, size);
  if (block == nullptr && size > 0) gain(old);
  return gain(block);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return fault_heap::aligned_block(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return fault_heap::aligned_block(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  void* fresh = fault_heap::aligned_block(alignment, size);
  if (fresh == nullptr) return ENOMEM;
  *block = fresh;
  return 0;
}

void free(void* block) {
  fault_heap::lose(block);
  KESTRANE_TRUE_HEAP(free)(block);
}

}  // extern "C"

// A sanitizer brings operators of its own, which do not pass through malloc.

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return malloc(size > 0 ? size : 1);
}

void* operator new(std::size_t size) {
  void* block = malloc(size > 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return fault_heap::aligned_block(static_cast<std::size_t>(alignment), size);
}

void* operator new(std::size_t size, std::align_val_t alignment) {
  void* block = fault_heap::aligned_block(static_cast<std::size_t>(alignment), size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return operator new(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment,
                     const std::nothrow_t& tag) noexcept {
  return operator new(size, alignment, tag);
}

void operator delete(void* block) noexcept { free(block); }
void operator delete(void* block, std::size_t) noexcept { free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { free(block); }
void operator delete(void* block, std::align_val_t) noexcept { free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { free(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { free(block); }
void operator delete[](void* block) noexcept { free(block); }
void operator delete[](void* block, std::size_t) noexcept { free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { free(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  free(block);
}
