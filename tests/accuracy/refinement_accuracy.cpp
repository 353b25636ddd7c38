// Prints the errors of plain, optimised and refined tables against a simulated truth.
//
//   refinement_accuracy [devices]   two planes of each; 8 without an argument
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "tests/accuracy/refinement_study.h"

namespace {

using accuracy::Method;
using accuracy::scenario;
using accuracy::Scenario;
using accuracy::Scores;

std::vector<Scenario> scenarios() {
  std::vector<Scenario> all = {
      scenario("bow 0.5, 20,000 points", 20000), scenario("bow 0.5, 4,000 points", 4000),
      scenario("bow 0.5, 100,000 points", 100000), scenario("bow 0.5, 2,000 points", 2000),
      scenario("bow 0.5, 300 points", 300)};
  const auto add = [&](const char* name) -> Scenario& {
    return all.emplace_back(scenario(name, 20000));
  };
  add("no bow").bow = 0.0;
  add("bow 0.5, ripple 0.1").ripple = 0.1;
  add("bow 0.5, kink 0.2").kink = 0.2;
  add("bow 0.5, steep edges 0.2").edge = 0.2;
  add("bow 0.5, frame noise 0.05").cloud.frame_noise = 0.05;
  Scenario& outliers = add("bow 0.5, 20 % outliers");
  outliers.cloud.outlier_share = 0.2;
  outliers.cloud.outlier_reach = 20.0;
  add("bow 0.5, three bad frames").cloud.bad_frames = 3;
  add("bow 0.5, half the fan").cloud.fan_low_degrees = 0.0;
  add("bow 0.5, ghost patch at 1").ghost = 1.0;
  return all;
}

void print(const char* method, const Scores& s) {
  if (s.planes == 0) {
    std::printf("  %-10s fails\n", method);
    return;
  }
  std::printf("  %-10s RMS %.4f  99 %% %.4f  steps %.4f  repeatability %.4f  (%d planes)\n", method,
              s.rms, s.p99, s.steps, s.repeatability, s.planes);
}

}  // namespace

int main(int argc, char** argv) {
  const int devices = argc > 1 ? std::atoi(argv[1]) : 8;
  if (devices < 1) return 2;
  for (const Scenario& each : scenarios()) {
    std::printf("%s\n", each.name.c_str());
    print("plain", accuracy::study(each, Method::kPlain, devices));
    print("optimised", accuracy::study(each, Method::kOptimised, devices));
    print("refined", accuracy::study(each, Method::kRefined, devices));
    std::fflush(stdout);
  }
  return 0;
}
