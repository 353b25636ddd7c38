#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "kestrane/quality/refinement.h"
#include "quality/refinement/table_row.h"

namespace kestrane::quality {
namespace {

// Runs work(0) .. work(count - 1), each once, on at most `threads` threads, the caller's among
// them. The first exception is thrown again when all have ended.
template <class Work>
void side_by_side(std::size_t count, std::size_t threads, Work work) {
  std::atomic<std::size_t> next{0};
  std::exception_ptr failure;
  std::mutex lock;
  const auto run = [&] {
    try {
      for (std::size_t n = next++; n < count; n = next++) work(n);
    } catch (...) {
      const std::lock_guard<std::mutex> guard(lock);
      if (!failure) failure = std::current_exception();
      next = count;
    }
  };
  std::vector<std::thread> others;
  try {
    for (std::size_t t = 1; t < std::min(threads, count); ++t) others.emplace_back(run);
  } catch (...) {
    // Fewer threads than asked for do the same work.
  }
  run();
  for (std::thread& other : others) other.join();
  if (failure) std::rethrow_exception(failure);
}

}  // namespace

RefinedDevice refine(const std::vector<PointList>& clouds, const RefinementSettings& settings,
                     std::int32_t threads) {
  if (threads < 1) throw std::invalid_argument("threads must be at least 1");
  if (clouds.size() > static_cast<std::size_t>(PlaneTable::kMostPlanes))
    throw std::invalid_argument("a device has at most 100 planes");
  RefinedDevice device;
  device.table = PlaneTable(static_cast<std::int32_t>(clouds.size()));
  device.planes.resize(clouds.size());
  side_by_side(clouds.size(), static_cast<std::size_t>(threads),
               [&](std::size_t n) { device.planes[n] = refine_plane(clouds[n], settings); });
  for (std::size_t n = 0; n < clouds.size(); ++n)
    write_row(device.planes[n], static_cast<std::int32_t>(n), device.table);
  return device;
}

}  // namespace kestrane::quality
