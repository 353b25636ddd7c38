// Runs one routine again and again, each time with another of its allocations refused.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/fault_heap.h"
#include "tests/support/sanitized.h"

namespace faults {

using fault_heap::Place;
using kestrane_test::same_bits;

// Numbers that a routine leaves behind, compared to the last bit.
using Outcome = std::vector<double>;

inline void append(Outcome& outcome, const double* values, std::size_t count) {
  outcome.insert(outcome.end(), values, values + count);
}

// Keeps the solver's report off the test's own output.
class Silence {
 public:
  Silence() : before_(std::cout.rdbuf(nullptr)) {}
  ~Silence() { std::cout.rdbuf(before_); }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  std::streambuf* before_;
};

struct Counts {
  long own;
  long problem;
  long solve;
  long other_threads;
};

// What `work` allocates when all goes well.
template <class Work>
Counts counts_of(Work&& work) {
  const Silence silence;
  const fault_heap::Watch watch;
  work();
  return {watch.count(Place::kOwn), watch.count(Place::kProblem), watch.count(Place::kSolve),
          watch.other_threads()};
}

enum class Ending { kWentThrough, kThrew, kSwallowed };

// Runs `work` without its n-th allocation at `place`.
template <class Work>
Ending run_cut(Place place, long n, Work&& work) {
  const Silence silence;
  bool threw = false;
  bool refused = false;
  {
    const fault_heap::Watch watch(place, n);
    try {
      work();
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    refused = watch.refused();
  }
  if (threw && !refused) ADD_FAILURE() << "thrown without a refused allocation";
  if (!refused) return Ending::kWentThrough;
  return threw ? Ending::kThrew : Ending::kSwallowed;
}

// A whole calibration for each of hundreds of allocations takes a sanitizer minutes.
inline constexpr long kStepOfLongRuns = kestrane_test::kSanitized ? 19 : 1;

// A routine under test is a class with
//   operate()  the call whose allocations are refused; what it needs stands ready before
//   outcome()  what the call has left behind
//   kStays     blocks that stay allocated by design with each object
template <class Routine>
Outcome outcome_of_a_run(Routine& routine) {
  {
    const Silence silence;
    routine.operate();
  }
  return routine.outcome();
}

template <class Routine>
void expect_cut_leaves_nothing_behind(Place place, long n, const Outcome& expected, bool& cut) {
  const long before = fault_heap::holding().blocks;
  {
    Routine routine;
    const Ending ending = run_cut(place, n, [&] { routine.operate(); });
    cut = ending != Ending::kWentThrough;
    EXPECT_NE(ending, Ending::kSwallowed) << "allocation " << n;
    EXPECT_TRUE(same_bits(cut ? outcome_of_a_run(routine) : routine.outcome(), expected))
        << "the run after allocation " << n;
  }
  EXPECT_EQ(fault_heap::holding().blocks - before, Routine::kStays) << "allocation " << n;
}

// Every allocation at `place` fails once: the standard exception comes out, the same object then
// gives what a fresh one gives, and no block is lost. Returns how many allocations there were,
// within `step`, which leaves all but every step-th of them out.
template <class Routine>
long expect_every_cut_leaves_nothing_behind(Place place = Place::kOwn, long step = 1) {
  Outcome expected;
  {
    Routine routine;
    expected = outcome_of_a_run(routine);
  }
  bool cut = true;
  long n = 1 - step;
  while (cut && !testing::Test::HasFailure()) {
    n += step;
    expect_cut_leaves_nothing_behind<Routine>(place, n, expected, cut);
  }
  return n - 1;
}

// The same for a routine that takes long.
template <class Routine>
long expect_cuts_of_a_long_run_leave_nothing_behind() {
  return expect_every_cut_leaves_nothing_behind<Routine>(Place::kOwn, kStepOfLongRuns);
}

// For routines that live on what their caller hands them.
template <class Routine>
void expect_no_allocation() {
  Routine routine;
  const Counts counts = counts_of([&] { routine.operate(); });
  EXPECT_EQ(counts.own + counts.problem + counts.solve, 0);
}

}  // namespace faults
