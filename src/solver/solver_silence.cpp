#include "solver/solver_silence.h"

#include <glog/logging.h>

#include <mutex>

namespace kestrane {
namespace {

// The log's level belongs to the process, and so does the count of those who hold it back. Set up
// by the compiler: nothing runs at load time.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
std::mutex lock;
int lives = 0;
bool raised = false;
int level_before = 0;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace

SolverSilence::SolverSilence() {
  const std::lock_guard<std::mutex> guard(lock);
  if (lives++ > 0 || google::IsGoogleLoggingInitialized()) return;
  raised = true;
  level_before = FLAGS_minloglevel;
  FLAGS_minloglevel = google::GLOG_FATAL;
}

SolverSilence::~SolverSilence() {
  const std::lock_guard<std::mutex> guard(lock);
  if (--lives > 0 || !raised) return;
  raised = false;
  FLAGS_minloglevel = level_before;
}

}  // namespace kestrane
