// A heap that refuses one chosen allocation of the calling thread, and counts them all.
//
// A program that links fault_heap.cpp stands in for malloc and its kin and for every operator new,
// also for what shared libraries call; under a sanitizer the blocks still come from the sanitizer's
// own allocator. Only the thread that watches is counted by place and refused anything: other
// threads are counted in one sum and always served.
//
// Where a program also links fault_solver.cpp with the linker's option --wrap (see
// kestrane_add_fault_test), the watch knows which allocations are the nonlinear solver's.
#pragma once

#include <cstddef>

namespace fault_heap {

// Whose allocation it is.
enum class Place {
  kOwn,      // the library's own code
  kProblem,  // the solver's, while a problem is put together or taken apart
  kSolve     // the solver's, while it solves
};
inline constexpr int kPlaces = 3;

// Counts from construction to destruction; one watch at a time in a process.
class Watch {
 public:
  // Refuses nothing.
  Watch();
  // Refuses the n-th allocation at `place`, counted from 1, and only that one.
  Watch(Place place, long n);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  long count(Place place) const;
  long other_threads() const;
  bool refused() const;
};

// Marks what the calling thread allocates as the solver's while it lives. The outermost one counts.
class Inside {
 public:
  explicit Inside(Place place);
  ~Inside();
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  Place before_;
};

// What the process holds beyond what it held at the first call, all threads together.
struct Holding {
  long blocks;
  long bytes;
};
Holding holding();

// What the calling thread allocates while one lives is no leak to a leak checker: blocks that are
// lost by design.
class LostByDesign {
 public:
  LostByDesign();
  ~LostByDesign();
  LostByDesign(const LostByDesign&) = delete;
  LostByDesign& operator=(const LostByDesign&) = delete;
};

}  // namespace fault_heap
