// A look at every allocation that the program's own objects make: the linker leads malloc, calloc,
// realloc, free and operator new of this program through the probe.
#pragma once

#include <cstddef>

namespace kestrane_test {

class AllocationProbe {
 public:
  struct Event {
    enum Kind { kTake, kRefuse, kGive } kind;
    std::size_t bytes;  // 0 for kGive
    void* block;        // null for kRefuse
  };

  // Events are written down from construction to destruction, one probe at a time.
  AllocationProbe();
  ~AllocationProbe();
  AllocationProbe(const AllocationProbe&) = delete;
  AllocationProbe& operator=(const AllocationProbe&) = delete;

  // From here on nothing can be had.
  void refuse();

  int count(Event::Kind kind) const;
  int size() const;
  const Event& operator[](int index) const;
};

}  // namespace kestrane_test
