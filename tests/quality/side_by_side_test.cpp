#include "quality/side_by_side.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using kestrane::quality::side_by_side;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

const auto kNothing = [](std::size_t) {};

// Waits until `wanted` have come; false if they never do.
class Meeting {
 public:
  bool join(int wanted) {
    std::unique_lock<std::mutex> guard(lock_);
    ++come_;
    changed_.notify_all();
    return changed_.wait_for(guard, 5s, [&] { return come_ >= wanted; });
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int come_ = 0;
};

TEST(SideBySide, DoesEachPieceOnceAndTellsTheCallerInOrder) {
  for (const std::size_t threads : {0U, 1U, 2U, 3U, 8U}) {
    for (const std::size_t count : {0U, 1U, 2U, 5U, 400U}) {
      std::vector<std::atomic<int>> runs(count);
      std::vector<std::size_t> told;
      std::atomic<std::size_t> highest = 0;
      side_by_side(
          count, threads,
          [&](std::size_t n, std::size_t worker) {
            ++runs[n];
            std::this_thread::sleep_for(20us);
            std::size_t seen = highest;
            while (worker > seen && !highest.compare_exchange_weak(seen, worker)) {
            }
          },
          [&, caller = std::this_thread::get_id()](std::size_t n) {
            EXPECT_EQ(std::this_thread::get_id(), caller);
            EXPECT_EQ(runs[n], 1) << n;
            told.push_back(n);
          });
      std::vector<std::size_t> all(count);
      std::iota(all.begin(), all.end(), 0U);
      EXPECT_EQ(told, all) << threads;
      EXPECT_TRUE(std::all_of(runs.begin(), runs.end(), [](const auto& n) { return n == 1; }));
      EXPECT_LT(highest, std::max<std::size_t>(threads, 1));
    }
  }
}

TEST(SideBySide, RunsOnTheCallingThreadWhereOneIsEnough) {
  const auto caller = std::this_thread::get_id();
  const auto here = [&](std::size_t, std::size_t worker) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    EXPECT_EQ(worker, 0U);
  };
  side_by_side(5, 1, here, kNothing);
  side_by_side(1, 5, here, kNothing);
}

TEST(SideBySide, RunsAsManyAtOnceAsThereAreThreads) {
  for (const int threads : {2, 3}) {
    Meeting meeting;
    std::atomic<int> met = 0;
    side_by_side(
        static_cast<std::size_t>(threads), static_cast<std::size_t>(threads),
        [&](std::size_t, std::size_t) { met += meeting.join(threads) ? 1 : 0; }, kNothing);
    EXPECT_EQ(met, threads);
  }
}

// The first piece ends last: the caller hears of it first all the same.
TEST(SideBySide, TellsOfAPieceWhenAllBeforeItAreDone) {
  Meeting meeting;
  std::vector<std::size_t> told;
  side_by_side(
      2, 2,
      [&](std::size_t n, std::size_t) {
        meeting.join(2);
        if (n == 0) std::this_thread::sleep_for(20ms);
      },
      [&](std::size_t n) { told.push_back(n); });
  EXPECT_THAT(told, ElementsAre(0, 1));
}

TEST(SideBySide, ThrowsTheFirstExceptionOfWorkAndLeavesTheRestOut) {
  Meeting meeting;
  std::atomic<int> runs = 0;
  std::vector<std::size_t> told;
  std::string what;
  try {
    side_by_side(
        500, 2,
        [&](std::size_t n, std::size_t) {
          ++runs;
          if (n < 2) meeting.join(2);
          if (n == 0) throw std::runtime_error("first");
          std::this_thread::sleep_for(20ms);
          throw std::runtime_error("later");
        },
        [&](std::size_t n) { told.push_back(n); });
  } catch (const std::runtime_error& error) {
    what = error.what();
  }
  EXPECT_EQ(what, "first");
  EXPECT_EQ(runs, 2);
  EXPECT_THAT(told, IsEmpty());
}

TEST(SideBySide, ThrowsWhatTheCallerThrewAndTellsItNothingMore) {
  for (const std::size_t threads : {1U, 2U}) {
    int told = 0;
    std::atomic<int> runs = 0;
    EXPECT_THROW(side_by_side(
                     500, threads,
                     [&](std::size_t, std::size_t) {
                       ++runs;
                       std::this_thread::sleep_for(100us);
                     },
                     [&](std::size_t) {
                       ++told;
                       throw std::length_error("full");
                     }),
                 std::length_error);
    EXPECT_EQ(told, 1);
    EXPECT_LT(runs, 500);
  }
}

}  // namespace
