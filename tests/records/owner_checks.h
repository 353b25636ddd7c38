// What the tests of all owner classes need: objects that are never destroyed, a picture of an
// object's bytes, and, from the header below, a heap that has run out.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <new>

#include "kestrane/records.h"
#include "support/starved_heap.h"

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

inline std::ptrdiff_t distance(const void* from, const void* to) {
  return static_cast<const unsigned char*>(to) - static_cast<const unsigned char*>(from);
}

inline void expect_triple(const _LASER_TRIPLE& cell, double a, double b, double c) {
  EXPECT_EQ(cell.v[0], a);
  EXPECT_EQ(cell.v[1], b);
  EXPECT_EQ(cell.v[2], c);
}

}  // namespace kestrane
