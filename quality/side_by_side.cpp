#include "quality/side_by_side.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace kestrane::quality {
namespace {

// Threads that run `run`, each with its number; fewer than wanted where no more can be had.
template <class Run>
std::vector<std::thread> start_workers(std::size_t wanted, const Run& run) {
  std::vector<std::thread> workers;
  try {
    workers.reserve(wanted);
    while (workers.size() < wanted) workers.emplace_back(run, workers.size());
  } catch (...) {
    // Those that there are do all of the work.
  }
  return workers;
}

}  // namespace

void side_by_side(std::size_t count, std::size_t threads,
                  const std::function<void(std::size_t n, std::size_t worker)>& work,
                  const std::function<void(std::size_t n)>& done) {
  std::mutex lock;
  std::condition_variable changed;
  std::size_t next = 0;
  std::vector<char> ended(count, 0);
  std::exception_ptr failure;

  const auto run = [&](std::size_t worker) {
    std::unique_lock<std::mutex> guard(lock);
    while (next < count && !failure) {
      const std::size_t n = next++;
      guard.unlock();
      try {
        work(n, worker);
        guard.lock();
        ended[n] = 1;
      } catch (...) {
        guard.lock();
        // cppcheck-suppress knownConditionTrueFalse ; other threads fail, too
        if (!failure) failure = std::current_exception();
      }
      changed.notify_one();
    }
  };

  const std::size_t wanted = std::min(threads, count);
  std::vector<std::thread> workers = start_workers(wanted > 1 ? wanted : 0, run);
  if (workers.empty()) {
    for (std::size_t n = 0; n < count; ++n) {
      work(n, std::size_t{0});
      done(n);
    }
    return;
  }

  std::unique_lock<std::mutex> guard(lock);
  for (std::size_t n = 0; n < count; ++n) {
    changed.wait(guard, [&] { return ended[n] != 0 || failure; });
    if (failure) break;
    guard.unlock();
    try {
      done(n);
      guard.lock();
    } catch (...) {
      guard.lock();
      failure = std::current_exception();
    }
  }
  guard.unlock();
  for (std::thread& worker : workers) worker.join();
  if (failure) std::rethrow_exception(failure);
}

}  // namespace kestrane::quality
