#include "tests/compensation/allocation_probe.h"

#include <new>

namespace kestrane_test {
namespace {

using Event = AllocationProbe::Event;

constexpr int kRoom = 64;  // more than any test expects; later events are dropped

struct Log {
  bool active = false;
  bool refusing = false;
  int size = 0;
  Event events[kRoom];
};

Log log;

void write_down(Event::Kind kind, std::size_t bytes, void* block) {
  if (log.active && log.size < kRoom) log.events[log.size++] = {kind, bytes, block};
}

// Whether a request is turned down; writes that down.
bool is_refused(std::size_t bytes) {
  if (!log.active || !log.refusing) return false;
  write_down(Event::kRefuse, bytes, nullptr);
  return true;
}

void* taken(std::size_t bytes, void* block) {
  write_down(Event::kTake, bytes, block);
  return block;
}

}  // namespace

AllocationProbe::AllocationProbe() {
  log = Log{};
  log.active = true;
}

AllocationProbe::~AllocationProbe() { log.active = false; }

void AllocationProbe::refuse() { log.refusing = true; }

int AllocationProbe::count(Event::Kind kind) const {
  int found = 0;
  for (int i = 0; i < log.size; ++i) found += log.events[i].kind == kind ? 1 : 0;
  return found;
}

int AllocationProbe::size() const { return log.size; }

const Event& AllocationProbe::operator[](int index) const { return log.events[index]; }

}  // namespace kestrane_test

// Names given by the linker's option --wrap; _Znwm and _Znam are operator new and new[].
extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __real__Znwm(std::size_t size);
void* __real__Znam(std::size_t size);

void* __wrap_malloc(std::size_t size) {
  using namespace kestrane_test;
  return is_refused(size) ? nullptr : taken(size, __real_malloc(size));
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
  using namespace kestrane_test;
  return is_refused(count * size) ? nullptr : taken(count * size, __real_calloc(count, size));
}

void* __wrap_realloc(void* block, std::size_t size) {
  using namespace kestrane_test;
  return is_refused(size) ? nullptr : taken(size, __real_realloc(block, size));
}

void __wrap_free(void* block) {
  if (block != nullptr) kestrane_test::write_down(kestrane_test::Event::kGive, 0, block);
  __real_free(block);
}

void* __wrap__Znwm(std::size_t size) {
  using namespace kestrane_test;
  if (is_refused(size)) throw std::bad_alloc();
  return taken(size, __real__Znwm(size));
}

void* __wrap__Znam(std::size_t size) {
  using namespace kestrane_test;
  if (is_refused(size)) throw std::bad_alloc();
  return taken(size, __real__Znam(size));
}

}  // extern "C"
