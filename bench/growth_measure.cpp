#include "bench/growth_measure.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <limits>
#include <string>

namespace growth {
namespace {

constexpr int kFewestRuns = 5;
constexpr double kShortestTotal = 0.5;  // seconds
constexpr std::size_t kKibibyte = 1024;

double wall_now() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

double processor_now() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void give_up(const char* what) {
  std::fprintf(stderr, "growth: %s\n", what);
  std::exit(1);
}

// A line of the kernel's report on this process, such as "VmHWM:   1234 kB", in bytes.
std::size_t process_status(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  std::size_t kibibytes = 0;
  while (status >> word) {
    if (word == name && status >> kibibytes) return kibibytes * kKibibyte;
  }
  give_up("no memory figures in /proc/self/status");
  return 0;
}

// From here on the peak counts anew.
void reset_peak() { std::ofstream("/proc/self/clear_refs") << "5"; }

std::size_t peak_in_this_process(const std::function<void()>& job) {
  malloc_trim(0);
  reset_peak();
  const std::size_t before = process_status("VmRSS:");
  job();
  const std::size_t peak = process_status("VmHWM:");
  return peak - std::min(peak, before);
}

}  // namespace

Cost time_of(const std::function<void()>& job) {
  job();
  constexpr double kNever = std::numeric_limits<double>::infinity();
  Cost best{kNever, kNever};
  const double start = wall_now();
  for (int run = 0; run < kFewestRuns || wall_now() - start < kShortestTotal; ++run) {
    const double wall = wall_now();
    const double processor = processor_now();
    job();
    best.wall = std::min(best.wall, wall_now() - wall);
    best.processor = std::min(best.processor, processor_now() - processor);
  }
  return best;
}

std::size_t peak_memory_of(const std::function<void()>& job) {
  int ends[2];
  if (pipe(ends) != 0) give_up("no pipe");
  std::fflush(nullptr);  // what stands in buffers is written once, not by both processes
  const pid_t child = fork();
  if (child < 0) give_up("no child process");
  if (child == 0) {
    const std::size_t peak = peak_in_this_process(job);
    _exit(write(ends[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
  }
  close(ends[1]);  // now the reading ends when the child does
  std::size_t peak = 0;
  int status = 0;
  const bool told = read(ends[0], &peak, sizeof peak) == sizeof peak;
  close(ends[0]);
  if (waitpid(child, &status, 0) != child || status != 0 || !told) give_up("a job failed");
  return peak;
}

double fitted_exponent(const std::vector<double>& sizes, const std::vector<double>& costs) {
  const auto n = static_cast<double>(sizes.size());
  double mean_x = 0.0, mean_y = 0.0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    mean_x += std::log(sizes[i]) / n;
    mean_y += std::log(costs[i]) / n;
  }
  double squares = 0.0, products = 0.0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const double x = std::log(sizes[i]) - mean_x;
    squares += x * x;
    products += x * (std::log(costs[i]) - mean_y);
  }
  return products / squares;
}

}  // namespace growth
