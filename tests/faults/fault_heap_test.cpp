// The heap that refuses: it sees every way to ask for memory, and refuses one request alone.
#include "tests/support/fault_heap.h"

#include <gtest/gtest.h>

#include <Eigen/Core>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

using fault_heap::Inside;
using fault_heap::Place;
using fault_heap::Watch;

struct alignas(128) Wide {
  double values[16];
};

// Where every block passes, so that no compiler can leave its allocation out.
void* volatile sink;

template <class T>
T* seen(T* block) {
  sink = block;
  return block;
}

void ask_by_malloc() { std::free(seen(std::malloc(40))); }
void ask_by_calloc() { std::free(seen(std::calloc(4, 10))); }
void ask_by_realloc() { std::free(seen(std::realloc(nullptr, 40))); }
void ask_by_aligned_alloc() { std::free(seen(std::aligned_alloc(64, 128))); }
void ask_by_posix_memalign() {
  void* block = nullptr;
  if (posix_memalign(&block, 64, 128) != 0) block = nullptr;
  std::free(seen(block));
}
void ask_by_new_without_exceptions() { ::operator delete(seen(::operator new(40, std::nothrow))); }
void ask_by_new() { ::operator delete(seen(::operator new(40))); }
void ask_by_array_new() { delete[] seen(new int[10]); }
void ask_by_aligned_new() { delete seen(new Wide); }
void ask_by_vector() { seen(std::vector<double>(10).data()); }
void ask_by_string() { seen(std::string(100, 'x').data()); }
void ask_by_matrix() { seen(Eigen::MatrixXd(3, 3).data()); }

constexpr auto kSilentWays = {ask_by_malloc,         ask_by_calloc,
                              ask_by_realloc,        ask_by_aligned_alloc,
                              ask_by_posix_memalign, ask_by_new_without_exceptions};
constexpr auto kThrowingWays = {ask_by_new,    ask_by_array_new, ask_by_aligned_new,
                                ask_by_vector, ask_by_string,    ask_by_matrix};

TEST(FaultHeap, GivesNothingForARefusedRequest) {
  for (const auto ask : kSilentWays) {
    const Watch watch(Place::kOwn, 1);
    ask();
    EXPECT_TRUE(watch.refused());
    EXPECT_EQ(watch.count(Place::kOwn), 1);
    EXPECT_EQ(sink, nullptr);
  }
}

TEST(FaultHeap, LetsOperatorsThrowForARefusedRequest) {
  for (const auto ask : kThrowingWays) {
    const Watch watch(Place::kOwn, 1);
    EXPECT_THROW(ask(), std::bad_alloc);
    EXPECT_TRUE(watch.refused());
  }
}

TEST(FaultHeap, RefusesOneRequestAndServesAllOthers) {
  const Watch watch(Place::kOwn, 2);
  ask_by_malloc();
  EXPECT_NE(sink, nullptr);
  ask_by_malloc();
  EXPECT_EQ(sink, nullptr);
  ask_by_malloc();
  EXPECT_NE(sink, nullptr);
  EXPECT_EQ(watch.count(Place::kOwn), 3);
}

TEST(FaultHeap, ServesOtherThreadsAndCountsThemApart) {
  std::unique_ptr<std::thread> other;
  const Watch watch(Place::kOwn, 1000);
  std::thread([] {
    for (int i = 0; i < 2000; ++i) ask_by_malloc();
  }).join();
  EXPECT_FALSE(watch.refused());
  EXPECT_GE(watch.other_threads(), 2000);
  EXPECT_LT(watch.count(Place::kOwn), 1000);
}

TEST(FaultHeap, TellsPlacesApartByTheOutermostMark) {
  const Watch watch(Place::kSolve, 2);
  ask_by_malloc();
  {
    const Inside solve(Place::kSolve);
    ask_by_malloc();
    EXPECT_NE(sink, nullptr);
    const Inside problem(Place::kProblem);
    ask_by_malloc();
    EXPECT_EQ(sink, nullptr);
  }
  ask_by_malloc();
  EXPECT_NE(sink, nullptr);
  EXPECT_EQ(watch.count(Place::kOwn), 2);
  EXPECT_EQ(watch.count(Place::kProblem), 0);
  EXPECT_EQ(watch.count(Place::kSolve), 2);
}

TEST(FaultHeap, KnowsWhatTheProcessHolds) {
  const fault_heap::Holding before = fault_heap::holding();
  void* block = seen(std::malloc(1000));
  EXPECT_EQ(fault_heap::holding().blocks, before.blocks + 1);
  EXPECT_GE(fault_heap::holding().bytes, before.bytes + 1000);
  block = seen(std::realloc(block, 2000));
  EXPECT_EQ(fault_heap::holding().blocks, before.blocks + 1);
  EXPECT_GE(fault_heap::holding().bytes, before.bytes + 2000);
  std::free(block);
  EXPECT_EQ(fault_heap::holding().blocks, before.blocks);
  EXPECT_EQ(fault_heap::holding().bytes, before.bytes);
}

TEST(FaultHeap, LeavesABlockThatCannotGrowToItsOwner) {
  std::vector<char> text(1000, 'x');
  const fault_heap::Holding before = fault_heap::holding();
  {
    const Watch watch(Place::kOwn, 1);
    EXPECT_THROW(text.reserve(3000), std::bad_alloc);
  }
  Eigen::VectorXd numbers = Eigen::VectorXd::Constant(100, 7.0);
  {
    const Watch watch(Place::kOwn, 1);  // grows by realloc
    EXPECT_THROW(numbers.conservativeResize(1000), std::bad_alloc);
  }
  EXPECT_EQ(numbers[99], 7.0);
  EXPECT_EQ(fault_heap::holding().blocks, before.blocks + 1);
}

}  // namespace
