// What the tests of all owner classes need: objects that are never destroyed, a picture of an
// object's bytes, and a heap that has run out.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>

#include "kestrane/records.h"

namespace kestrane {

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

// Leaves this process without room for more than another 300 MB; for use in a death test only.
inline void starve_heap() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const std::size_t used = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const rlimit limit = {used + (std::size_t{300} << 20), used + (std::size_t{300} << 20)};
  if (pages == 0 || setrlimit(RLIMIT_AS, &limit) != 0) std::_Exit(77);
}

// The address sanitizer reserves more address space than any limit, and ends a process whose
// allocation fails instead of returning null.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kHeapCanRunOut = false;
#else
inline constexpr bool kHeapCanRunOut = true;
#endif

}  // namespace kestrane
