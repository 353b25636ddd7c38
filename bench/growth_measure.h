// What a job costs: time per run, memory beyond what the caller held, and how both grow.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

namespace growth {

struct Cost {
  double wall = 0.0;       // seconds, the fastest run
  double processor = 0.0;  // seconds over all threads, the cheapest run
};

// Runs `job` at least five times and for at least half a second, after one run that warms up.
Cost time_of(const std::function<void()>& job);

// Bytes by which the resident memory of a process grows at most while `job` runs. The job runs in
// a child process, so that one job's leavings don't serve the next.
std::size_t peak_memory_of(const std::function<void()>& job);

// p of cost ~ size^p: the slope of a least-squares line through the logarithms.
double fitted_exponent(const std::vector<double>& sizes, const std::vector<double>& costs);

}  // namespace growth
