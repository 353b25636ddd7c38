// What the tests of all owner classes need: objects that are never destroyed, a picture of an
// object's bytes, the heap's own count, and, from the header below, a heap that has run out.
#pragma once

#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <cstring>
#include <new>

#include "kestrane/records.h"
#include "tests/support/starved_heap.h"

namespace kestrane {

using starved::kHeapCanRunOut;
using starved::starve_heap;

// An object in storage of its own whose destructor never runs: the second owner of one block after
// a flat assignment.
template <class Owner>
class Undestroyed {
 public:
  Undestroyed() : object_(new (storage_) Owner) {}
  Owner& operator*() { return *object_; }
  Owner* operator->() { return object_; }

 private:
  alignas(Owner) unsigned char storage_[sizeof(Owner)];
  Owner* object_;
};

template <class Owner>
std::array<unsigned char, sizeof(Owner)> bytes_of(const Owner& owner) {
  std::array<unsigned char, sizeof(Owner)> bytes;
  std::memcpy(bytes.data(), static_cast<const void*>(&owner), sizeof(Owner));
  return bytes;
}

// Bytes that the heap has handed out and not got back. Small freed blocks stay with the thread and
// count as handed out: to see them go, take more than 1 kB each. Always 0 under the address
// sanitizer, which looks for lost blocks itself.
inline std::size_t heap_in_use() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

inline std::ptrdiff_t distance(const void* from, const void* to) {
  return static_cast<const unsigned char*>(to) - static_cast<const unsigned char*>(from);
}

inline void expect_triple(const _LASER_TRIPLE& cell, double a, double b, double c) {
  EXPECT_EQ(cell.v[0], a);
  EXPECT_EQ(cell.v[1], b);
  EXPECT_EQ(cell.v[2], c);
}

}  // namespace kestrane
