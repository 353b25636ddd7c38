#include "solver/solver_silence.h"

#include <glog/logging.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using kestrane::SolverSilence;

std::string logged(const char* text) {
  testing::internal::CaptureStderr();
  LOG(ERROR) << text;
  return testing::internal::GetCapturedStderr();
}

TEST(SolverSilence, HoldsTheLogBackWhileItLives) {
  std::optional<SolverSilence> silence(std::in_place);
  EXPECT_EQ(logged("held back"), "");
  silence.reset();
  EXPECT_NE(logged("let through").find("let through"), std::string::npos);
}

TEST(SolverSilence, LastsUntilTheLastOneEnds) {
  std::optional<SolverSilence> first(std::in_place);
  std::optional<SolverSilence> second(std::in_place);
  first.reset();
  EXPECT_EQ(logged("held back"), "");
  second.reset();
  EXPECT_NE(logged("let through"), "");
}

TEST(SolverSilence, PutsTheLevelOfTheProcessBack) {
  const int before = FLAGS_minloglevel;
  FLAGS_minloglevel = 1;
  { const SolverSilence silence; }
  EXPECT_EQ(FLAGS_minloglevel, 1);
  FLAGS_minloglevel = before;
}

TEST(SolverSilence, LeavesALogThatTheHostHasSetUp) {
  google::InitGoogleLogging("host");
  const int before = FLAGS_minloglevel;
  const SolverSilence silence;
  EXPECT_EQ(FLAGS_minloglevel, before);
  google::ShutdownGoogleLogging();
}

}  // namespace
