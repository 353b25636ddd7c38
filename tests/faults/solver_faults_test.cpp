// What becomes of a calibration when the nonlinear solver itself goes without an allocation.
//
// The solver is a library of its own: what it loses or how it ends then is not ours to mend, and is
// measured here. Ours is that nothing of this library is lost with it, and that an object whose
// call threw works on. Each cut while it solves has a process of its own, since some end it.
//
// KESTRANE_SOLVER_CUTS=1000000 in the environment tries every allocation, on the threads that the
// library asks for, too, and so gives the figures of docs/testing.md.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/faults/calibration_runs.h"

namespace {

using fault_heap::holding;
using fault_heap::Holding;
using faults::Counts;
using faults::Ending;
using faults::Outcome;
using faults::Place;

// A solver that is cut while a problem is put together loses one block of its own at most, or two.
constexpr long kMostLostBlocks = 2;

// Of a hundred cuts while it solves on one thread no more than these end the process.
constexpr long kMostDeathsPerHundred = 5;

long wanted_cuts() {
  const char* text = std::getenv("KESTRANE_SOLVER_CUTS");
  return text != nullptr ? std::atol(text) : 60;
}

bool wants_every_cut() { return std::getenv("KESTRANE_SOLVER_CUTS") != nullptr; }

template <class Routine>
Counts counts_of_a_run() {
  Routine routine;
  return faults::counts_of([&] { routine.operate(); });
}

template <class Routine>
Outcome expected_outcome() {
  Routine routine;
  return faults::outcome_of_a_run(routine);
}

// What one object, two runs and the object's end leave allocated, with the n-th allocation of the
// first run cut; 0 for none.
struct Trial {
  Ending ending;
  bool same;
  Holding lost;
};

template <class Routine>
Trial try_cut(Place place, long n, const Outcome& expected) {
  Trial trial{};
  const Holding before = holding();
  {
    Routine routine;
    trial.ending = faults::run_cut(place, n, [&] { routine.operate(); });
    trial.same = static_cast<bool>(faults::same_bits(faults::outcome_of_a_run(routine), expected));
  }
  trial.lost = {holding().blocks - before.blocks, holding().bytes - before.bytes};
  return trial;
}

// --- While a problem is put together
// --------------------------------------------------------------

template <class Routine>
void expect_cut_problems_lose_little() {
  const Outcome expected = expected_outcome<Routine>();
  const long total = counts_of_a_run<Routine>().problem;
  EXPECT_GT(total, 100);
  for (long n = 1; n <= total; n += faults::kStepOfLongRuns) {
    const fault_heap::LostByDesign lost_by_the_solver;
    const Trial trial = try_cut<Routine>(Place::kProblem, n, expected);
    EXPECT_EQ(trial.ending, Ending::kThrew) << "allocation " << n;
    EXPECT_TRUE(trial.same) << "allocation " << n;
    EXPECT_LE(trial.lost.blocks - Routine::kStays, kMostLostBlocks) << "allocation " << n;
  }
}

using OptimisedFactoryRun = faults::FactoryRun<kestrane::KESTRANE_OPTIM_ON>;

TEST(CutProblem, LosesLittleInAFactoryCalibration) {
  expect_cut_problems_lose_little<OptimisedFactoryRun>();
}

TEST(CutProblem, LosesLittleInAFastCalibration) {
  expect_cut_problems_lose_little<faults::FastRun>();
}

TEST(CutProblem, LosesLittleInACalibrationWithCoefficients) {
  expect_cut_problems_lose_little<faults::CoefficientRun>();
}

// --- While it solves
// ------------------------------------------------------------------------------

void keep_quiet_about_the_end() {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  if (std::freopen("/dev/null", "w", stdout) == nullptr) std::_Exit(1);
  if (std::freopen("/dev/null", "w", stderr) == nullptr) std::_Exit(1);
}

// Runs `work` in a process of its own; false where that one ends before its time.
template <class Work>
bool in_a_process(Work&& work, Trial& trial) {
  int ends[2];
  if (pipe(ends) != 0) return false;
  std::fflush(stdout);  // or the child would write it again
  const pid_t child = fork();
  if (child == 0) {
    keep_quiet_about_the_end();
    const Trial mine = work();
    const bool told = write(ends[1], &mine, sizeof mine) == static_cast<ssize_t>(sizeof mine);
    std::_Exit(told ? 0 : 1);
  }
  close(ends[1]);
  const bool told = read(ends[0], &trial, sizeof trial) == static_cast<ssize_t>(sizeof trial);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return told;
}

struct Tally {
  long cuts = 0;
  long died = 0;
  long threw = 0;
  long swallowed = 0;
  long passed = 0;  // the allocation was not reached: threads take turns
  long different = 0;
  Holding most_lost{};

  void add(const Trial& trial, const Holding& usual) {
    threw += trial.ending == Ending::kThrew ? 1 : 0;
    swallowed += trial.ending == Ending::kSwallowed ? 1 : 0;
    passed += trial.ending == Ending::kWentThrough ? 1 : 0;
    different += trial.same ? 0 : 1;
    most_lost.blocks = std::max(most_lost.blocks, trial.lost.blocks - usual.blocks);
    most_lost.bytes = std::max(most_lost.bytes, trial.lost.bytes - usual.bytes);
  }
};

template <class Routine>
Tally cut_solves() {
  const Outcome expected = expected_outcome<Routine>();
  const Counts counts = counts_of_a_run<Routine>();
  Trial usual{};
  EXPECT_TRUE(in_a_process([&] { return try_cut<Routine>(Place::kSolve, 0, expected); }, usual));
  const long stride = std::max(1L, counts.solve / wanted_cuts());
  Tally tally;
  for (long n = 1; n <= counts.solve; n += stride) {
    Trial trial{};
    ++tally.cuts;
    if (in_a_process([&] { return try_cut<Routine>(Place::kSolve, n, expected); }, trial)) {
      tally.add(trial, usual.lost);
    } else {
      ++tally.died;
    }
  }
  std::printf(
      "allocations: own %ld, problem %ld, solve %ld, other threads %ld\n"
      "cuts while it solves: %ld, died %ld, threw %ld, swallowed %ld, not reached %ld, other bits "
      "afterwards %ld, lost at most %ld blocks of %ld bytes\n",
      counts.own, counts.problem, counts.solve, counts.other_threads, tally.cuts, tally.died,
      tally.threw, tally.swallowed, tally.passed, tally.different, tally.most_lost.blocks,
      tally.most_lost.bytes);
  return tally;
}

template <class Routine>
void expect_objects_outlive_a_cut_solve() {
  const Tally tally = cut_solves<Routine>();
  EXPECT_EQ(tally.passed, 0);
  EXPECT_EQ(tally.different, 0);
  EXPECT_GT(tally.threw, tally.cuts * 9 / 10);
  EXPECT_LE(tally.died * 100, tally.cuts * kMostDeathsPerHundred);
  if (wants_every_cut()) cut_solves<Routine>();
}

TEST(CutSolve, LeavesAFactoryCalibratorInOrder) {
  expect_objects_outlive_a_cut_solve<OptimisedFactoryRun>();
}

TEST(CutSolve, LeavesAFastCalibratorInOrder) {
  expect_objects_outlive_a_cut_solve<faults::FastRun>();
}

TEST(CutSolve, LeavesAFastCalibratorOfManyPointsInOrder) {
  expect_objects_outlive_a_cut_solve<faults::LargeFastRun>();
}

TEST(CutSolve, LeavesACoefficientRecordInOrder) {
  expect_objects_outlive_a_cut_solve<faults::CoefficientRun>();
}

}  // namespace
