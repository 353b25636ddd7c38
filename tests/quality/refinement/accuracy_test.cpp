// How near refined tables come to a simulated truth; `make accuracy` runs the same with more
// devices.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/accuracy/refinement_study.h"
#include "tests/support/sanitized.h"

namespace {

using accuracy::Method;
using accuracy::scenario;
using accuracy::Scenario;
using accuracy::Scores;

TEST(RefinedAccuracy, IsTwentyTimesThatOfThePlainTableOnABow) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  const Scores scores = accuracy::study(scenario("bow", 20000), Method::kRefined, 4);
  EXPECT_EQ(scores.planes, 8);
  EXPECT_LE(scores.rms, 0.0018);
  EXPECT_LE(scores.p99, 0.006);
  EXPECT_LE(scores.steps, 0.001);
  EXPECT_LE(scores.repeatability, 0.0016);
}

TEST(RefinedAccuracy, FollowsARipple) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  Scenario ripple = scenario("ripple", 20000);
  ripple.ripple = 0.1;
  EXPECT_LE(accuracy::study(ripple, Method::kRefined, 2).rms, 0.009);
}

// Offsets of 20 frames average to their deviation over the root of 20.
TEST(RefinedAccuracy, IsLimitedByTheErrorsOfFrames) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  Scenario noisy = scenario("frame noise", 20000);
  noisy.cloud.frame_noise = 0.05;
  EXPECT_LE(accuracy::study(noisy, Method::kRefined, 4).rms, 1.3 * 0.05 / std::sqrt(20.0));
}

TEST(RefinedAccuracy, NeedsNoSectorOfTwoHundredPoints) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  const Scenario few = scenario("few", 300);
  EXPECT_EQ(accuracy::study(few, Method::kPlain, 1).planes, 0);
  EXPECT_LE(accuracy::study(few, Method::kRefined, 4).rms, 0.012);
}

TEST(RefinedAccuracy, BeatsThePlainTableOnEveryShapeTried) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  std::vector<Scenario> all;
  const auto add = [&](const char* name) -> Scenario& {
    return all.emplace_back(scenario(name, 12000));
  };
  add("bow");
  add("no bow").bow = 0.0;
  add("ripple").ripple = 0.1;
  add("kink").kink = 0.2;
  add("steep edges").edge = 0.2;
  for (const double share : {0.01, 0.05, 0.2}) {
    Scenario& outliers = add("outliers");
    outliers.cloud.outlier_share = share;
    outliers.cloud.outlier_reach = 20.0;
  }
  add("bad frames").cloud.bad_frames = 3;
  add("half the fan").cloud.fan_low_degrees = 0.0;
  add("ghost patch").ghost = 1.0;
  Scenario& hole = add("near depths");
  hole.cloud.depth_high = 500.0;
  for (const Scenario& each : all) {
    const Scores refined = accuracy::study(each, Method::kRefined, 1);
    const Scores plain = accuracy::study(each, Method::kPlain, 1);
    ASSERT_EQ(refined.planes, 2) << each.name;
    EXPECT_LE(refined.rms, 0.6 * plain.rms) << each.name;
  }
}

// A table is never made worse: frames that are single lines with errors of their own, 5 to 20 of
// them, and no curvature that the data support.
Scenario line_frames(int frames, double error, double bow) {
  Scenario lines = scenario("line frames", 8000);
  lines.bow = bow;
  lines.cloud.line_frames = true;
  lines.cloud.frames = frames;
  lines.cloud.noise = 0.01;
  lines.cloud.frame_noise = error;
  lines.cloud.frame_tilt = error;
  lines.cloud.frame_bend = 0.5 * error;
  return lines;
}

// Squared errors of a device of eight sheets, by method; sheets that the plain job refuses are left
// out of all.
struct DeviceErrors {
  double plain = 0.0, flat = 0.0, refined = 0.0;
};

DeviceErrors device_errors(const Scenario& scenario, int device) {
  DeviceErrors errors;
  for (int sheet = 0; sheet < 8; ++sheet) {
    const auto seed = static_cast<std::uint64_t>(10 * device + sheet / 2);
    const auto measured = accuracy::measure(scenario, seed, sheet % 2, 0);
    const auto plain = accuracy::calibrate(Method::kPlain, measured.points);
    const auto flat = accuracy::calibrate(Method::kFlat, measured.points);
    const auto refined = accuracy::calibrate(Method::kRefined, measured.points);
    if (!plain || !flat || !refined) continue;
    errors.plain += std::pow(accuracy::row_error(*plain, measured), 2);
    errors.flat += std::pow(accuracy::row_error(*flat, measured), 2);
    errors.refined += std::pow(accuracy::row_error(*refined, measured), 2);
  }
  return errors;
}

TEST(RefinedAccuracy, IsNeverWorseThanAPlaneWhereFramesSupportNoMore) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  DeviceErrors sum;
  for (int device = 1; device <= 8; ++device) {
    const DeviceErrors e = device_errors(line_frames(5 + 2 * device, 0.05, 0.0), device);
    EXPECT_LE(std::sqrt(e.refined / std::min(e.plain, e.flat)), 1.25) << device;
    sum.plain += e.plain;
    sum.flat += e.flat;
    sum.refined += e.refined;
  }
  EXPECT_LE(std::sqrt(sum.refined / std::min(sum.plain, sum.flat)), 1.02);
}

TEST(RefinedAccuracy, FollowsABowThatLineFramesShow) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  DeviceErrors sum;
  for (int device = 1; device <= 3; ++device) {
    const DeviceErrors e = device_errors(line_frames(20, 0.05, 0.5), device);
    sum.plain += e.plain;
    sum.refined += e.refined;
  }
  EXPECT_LE(std::sqrt(sum.refined / sum.plain), 0.5);
}

// --- The standard deviation that comes with each corner ------------------------------------------

// RMS of the corners' errors over their sigma, inside the measured depths.
double z_rms(const Scenario& scenario, int devices) {
  double squares = 0.0, count = 0.0;
  for (int device = 1; device <= devices; ++device) {
    for (int plane = 0; plane < 2; ++plane) {
      const auto measured =
          accuracy::measure(scenario, static_cast<std::uint64_t>(device), plane, 0);
      const auto refined = kestrane::quality::refine_plane(measured.points);
      for (const auto& corner : refined.corners) {
        if (corner.z > 980.0) continue;
        const double z =
            (corner.x - simulation::sheet_x(measured.sheet, corner.y, corner.z)) / corner.sigma;
        squares += z * z;
        count += 1.0;
      }
    }
  }
  return std::sqrt(squares / count);
}

TEST(RefinedSigma, MatchesTheErrorOfTheCorners) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  EXPECT_NEAR(z_rms(scenario("bow", 8000), 16), 1.0, 0.25);
  Scenario noisy = scenario("frame noise", 8000);
  noisy.cloud.frame_noise = 0.05;
  EXPECT_NEAR(z_rms(noisy, 16), 1.0, 0.25);
}

// --- Real sheets ---------------------------------------------------------------------------------

struct RealClouds {
  std::vector<_KESTRANE_ID_POINT3D> planes[2];
};

RealClouds read_real_clouds() {
  RealClouds clouds;
  std::ifstream file(REAL_CLOUDS);
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    int plane = 0, frame = 0;
    double x = 0.0, y = 0.0, z = 0.0;
    if (std::sscanf(line.c_str(), "%d,%d,%lf,%lf,%lf", &plane, &frame, &x, &y, &z) == 5)
      clouds.planes[plane].push_back({x, y, z, frame});
  }
  return clouds;
}

// Squared distances in x of the points that were left out from the table of the others.
template <class LeftOut>
double squares_left_out(Method method, const RealClouds& clouds, int groups, LeftOut left_out) {
  const kestrane::quality::PlaneTable table(1);
  double squares = 0.0;
  for (const auto& plane : clouds.planes) {
    for (int group = 0; group < groups; ++group) {
      std::vector<_KESTRANE_ID_POINT3D> seen, unseen;
      for (const auto& p : plane) (left_out(p.id, group) ? unseen : seen).push_back(p);
      if (unseen.empty()) continue;
      const auto cells = accuracy::calibrate(method, seen);
      for (const auto& p : unseen) {
        const auto at = table.lookup(p.y, p.z);
        const double* v = (*cells)[static_cast<std::size_t>(50 * at->line + at->cell)].v;
        const double error = p.x + (v[1] * p.y + v[2] * p.z + 1.0) / v[0];
        squares += error * error;
      }
    }
  }
  return squares;
}

TEST(RefinedAccuracy, IsNoWorseOnRealFramesThatItHasNotSeen) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  const RealClouds clouds = read_real_clouds();
  if (clouds.planes[0].empty()) GTEST_SKIP() << "no real clouds here";
  const auto parity = [](int frame, int group) { return frame % 2 == group; };
  const auto single = [](int frame, int group) { return frame == group; };
  const double even_odd = squares_left_out(Method::kRefined, clouds, 2, parity);
  EXPECT_LE(even_odd, squares_left_out(Method::kPlain, clouds, 2, parity));
  EXPECT_LE(even_odd, squares_left_out(Method::kOptimised, clouds, 2, parity));
  const double one_by_one = squares_left_out(Method::kRefined, clouds, 18, single);
  EXPECT_LE(one_by_one, squares_left_out(Method::kPlain, clouds, 18, single));
  EXPECT_LE(one_by_one, squares_left_out(Method::kOptimised, clouds, 18, single));
}

}  // namespace
