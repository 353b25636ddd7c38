#include "quality/field/motion_figures.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "quality/field/direction_words.h"
#include "simulation/random.h"
#include "tests/literal/field_figures.h"
#include "tests/support/bits.h"

namespace {

using Eigen::Vector3d;
using kestrane::quality::direction_words;
using kestrane::quality::DirectionFigures;
using kestrane::quality::lengths_of;
using kestrane::quality::Matrix6;
using kestrane::quality::motion_figures;
using kestrane::quality::motion_frame;
using kestrane::quality::motion_of;
using kestrane::quality::MotionFigures;
using kestrane::quality::MotionFrame;
using kestrane::quality::RigidMotion;
using kestrane::quality::rotation_vector;
using kestrane::quality::UnitPlane;
using kestrane::quality::UsedPoints;
using kestrane::quality::Vector6;

constexpr double kNoPart = 1e-9;  // what a motion may hold of a direction that is not fixed

RigidMotion turn_and_shift(const Vector3d& turn, const Vector3d& shift) {
  RigidMotion motion;
  if (turn.norm() > 0.0) {
    motion.R = Eigen::AngleAxisd(turn.norm(), turn.normalized()).toRotationMatrix();
  }
  motion.t = shift;
  return motion;
}

// The sheet through `point` with this normal, not necessarily of unit length.
UnitPlane sheet_of(const Vector3d& normal, const Vector3d& point) {
  const Vector3d unit = normal.normalized();
  return {unit, -unit.dot(point)};
}

// Points of flat sheets after a motion: `frames` frames a sheet, 24 points a frame, each frame with
// an error of its own and each point with one.
struct Scene {
  std::vector<UnitPlane> sheets;
  RigidMotion motion;
  int frames = 10;
  double frame_noise = 0.02;
  double point_noise = 0.02;
  std::uint64_t seed = 1;
};

UsedPoints measure(const Scene& scene) {
  simulation::Random random(scene.seed);
  UsedPoints used;
  for (const UnitPlane& sheet : scene.sheets) {
    const Vector3d moved = scene.motion.R * sheet.normal;
    const double d = sheet.d - moved.dot(scene.motion.t);
    for (int f = 0; f < scene.frames; ++f) {
      const double common = scene.frame_noise * random.gaussian();
      for (int i = 0; i < 24; ++i) {
        const double y = random.uniform(-120.0, 120.0);
        const double z = random.uniform(220.0, 350.0);
        const double x = -(moved.y() * y + moved.z() * z + d) / moved.x();
        const double error = common + scene.point_noise * random.gaussian();
        used.points.push_back({{x + error, y, z}, sheet, used.planes, used.frames});
      }
      ++used.frames;
    }
    ++used.planes;
  }
  return used;
}

std::vector<std::string> free_directions(const MotionFigures& figures) {
  std::vector<std::string> names;
  for (const DirectionFigures& direction : figures.directions) {
    if (!direction.fixed) names.push_back(direction_words(direction.vector));
  }
  return names;
}

std::vector<UnitPlane> parallel_sheets() {
  return {sheet_of({1, 0, 0}, {100, 0, 0}), sheet_of({1, 0, 0}, {130, 0, 0})};
}

// A fan of sheets that all hold the direction y.
std::vector<UnitPlane> fan_of_sheets(int count) {
  std::vector<UnitPlane> sheets;
  for (int i = 0; i < count; ++i) {
    const double slope = count > 1 ? 0.5 * i / (count - 1) - 0.25 : 0.0;
    sheets.push_back(sheet_of({1, 0, -slope}, {120, 0, 0}));
  }
  return sheets;
}

// A fan whose sheets lean in y as well, so that every direction shows.
std::vector<UnitPlane> leaning_sheets() {
  return {sheet_of({1, 0.3, -0.2}, {110, 0, 0}), sheet_of({1, -0.3, 0.1}, {120, 0, 0}),
          sheet_of({1, 0.1, 0.3}, {130, 0, 0}), sheet_of({1, -0.1, -0.3}, {140, 0, 0})};
}

double part_not_fixed(const MotionFigures& figures, const RigidMotion& motion) {
  const Vector6 lengths = lengths_of(motion, figures.frame);
  double largest = 0.0;
  for (const DirectionFigures& direction : figures.directions) {
    if (!direction.fixed) {
      largest = std::max(largest, std::abs(direction.vector.dot(lengths)));
    }
  }
  return largest;
}

// --- which directions are free ------------------------------------------------------------------

TEST(MotionFigures, TwoParallelSheetsLeaveExactlyThreeDirectionsFree) {
  const MotionFigures figures = motion_figures(measure({parallel_sheets(), {}}), {});
  EXPECT_EQ(free_directions(figures),
            (std::vector<std::string>{"turn about x", "shift along y", "shift along z"}));
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(std::isinf(figures.directions[static_cast<std::size_t>(i)].sigma));
  }
  for (int i = 3; i < 6; ++i) {
    EXPECT_TRUE(figures.directions[static_cast<std::size_t>(i)].fixed);
  }
}

TEST(MotionFigures, SheetsThatShareOneDirectionLeaveExactlyThatOneFree) {
  const MotionFigures figures = motion_figures(measure({fan_of_sheets(4), {}}), {});
  EXPECT_EQ(free_directions(figures), (std::vector<std::string>{"shift along y"}));
  EXPECT_LE((figures.directions[0].vector - Vector6::Unit(4)).cwiseAbs().maxCoeff(), 1e-6);
}

// Of three free directions each has a component of its own, however the sheets lean.
TEST(MotionFigures, FreeDirectionsOfLeaningSheetsLieAlongAxes) {
  const std::vector<UnitPlane> sheets = {sheet_of({1, 0.4, -0.3}, {100, 0, 0}),
                                         sheet_of({1, 0.4, -0.3}, {130, 0, 0})};
  const MotionFigures figures = motion_figures(measure({sheets, {}}), {});
  ASSERT_EQ(free_directions(figures).size(), 3u);
  for (std::size_t own = 0; own < 3; ++own) {
    const auto is_own = [&](Eigen::Index k) {
      for (std::size_t other = 0; other < 3; ++other) {
        const double part = std::abs(figures.directions[other].vector[k]);
        if (other == own ? part < 0.1 : part > 1e-9) return false;
      }
      return true;
    };
    int components = 0;
    for (Eigen::Index k = 0; k < 6; ++k) components += is_own(k) ? 1 : 0;
    EXPECT_GE(components, 1) << own;
  }
}

TEST(MotionFigures, SheetsInAllDirectionsLeaveNoneFree) {
  const MotionFigures figures = motion_figures(measure({leaning_sheets(), {}}), {});
  EXPECT_TRUE(free_directions(figures).empty());
  EXPECT_EQ(figures.directions[5].strength, 1.0);
}

// The eigenvalue goes with the square of how far the sheets lean.
TEST(MotionFigures, ADirectionBelowABillionthOfTheStrongestMovesNoSheet) {
  const auto weakest = [](double lean) {
    const std::vector<UnitPlane> sheets = {
        sheet_of({1, lean, -0.2}, {110, 0, 0}), sheet_of({1, -lean, 0.2}, {120, 0, 0}),
        sheet_of({1, lean, 0.1}, {130, 0, 0}), sheet_of({1, -lean, -0.1}, {140, 0, 0})};
    return motion_figures(measure({sheets, {}}), {}).directions[0];
  };
  EXPECT_LT(weakest(1e-5).strength, 1e-9);
  EXPECT_TRUE(std::isinf(weakest(1e-5).sigma));
  EXPECT_GT(weakest(1e-3).strength, 1e-9);
  EXPECT_LT(weakest(1e-3).strength, 1e-5);
  EXPECT_TRUE(std::isfinite(weakest(1e-3).sigma));
}

TEST(MotionFigures, ADirectionIsNotFixedOnceItsSigmaPassesOne) {
  // Sheets that lean so little that noise hides where they are along y.
  Scene scene{{sheet_of({1, 0.01, -0.2}, {110, 0, 0}), sheet_of({1, -0.01, 0.2}, {120, 0, 0}),
               sheet_of({1, 0.01, 0.1}, {130, 0, 0})},
              {}};
  scene.frame_noise = scene.point_noise = 0.001;
  const MotionFigures quiet = motion_figures(measure(scene), {});
  scene.frame_noise = scene.point_noise = 0.5;
  const MotionFigures loud = motion_figures(measure(scene), {});
  EXPECT_TRUE(free_directions(quiet).empty());
  ASSERT_FALSE(free_directions(loud).empty());
  EXPECT_EQ(free_directions(loud)[0], "shift along y");
  EXPECT_GT(loud.directions[0].sigma, 1.0);
  EXPECT_TRUE(std::isfinite(loud.directions[0].sigma));
}

TEST(MotionFigures, FewerThanEightFramesFixNothing) {
  Scene scene{leaning_sheets(), turn_and_shift({0, 1e-3, 0}, {0.2, 0, 0})};
  scene.sheets.pop_back();
  scene.sheets.pop_back();
  scene.frames = 3;  // of 2 sheets: 6 clusters
  const MotionFigures figures = motion_figures(measure(scene), scene.motion);
  EXPECT_EQ(free_directions(figures).size(), 6u);
  EXPECT_FALSE(figures.covariance.by_frame_known);
  EXPECT_TRUE(figures.covariance.by_frame.isZero(0.0));
  EXPECT_TRUE(std::isnan(figures.directions[5].sigma));
  EXPECT_TRUE(figures.smallest.R.isIdentity(0.0));
  EXPECT_EQ(figures.smallest.t.norm(), 0.0);
  scene.frames = 4;  // 8 clusters
  EXPECT_TRUE(motion_figures(measure(scene), scene.motion).covariance.by_frame_known);
}

// --- sigma --------------------------------------------------------------------------------------

// One sheet x = 100; frame f holds the corners of a square and errs by `errors[f]` as a whole.
UsedPoints squares(const std::vector<double>& errors, int planes = 1) {
  const UnitPlane sheet = sheet_of({1, 0, 0}, {100, 0, 0});
  UsedPoints used;
  used.planes = planes;
  for (const double error : errors) {
    for (const double y : {-1.0, 1.0}) {
      for (const double z : {299.0, 301.0}) {
        used.points.push_back({{100.0 + error, y, z}, sheet, used.frames % planes, used.frames});
      }
    }
    ++used.frames;
  }
  return used;
}

// Along x the estimate is the mean of G errors, and its variance sum e^2 / (G (G - 6)).
TEST(MotionFigures, SigmaOfAMeanOfFrameErrorsIsTheClosedForm) {
  const std::vector<double> errors = {0.3, -0.1, 0.2, -0.4, 0.1, 0.1, -0.2, 0.0, 0.15, -0.15};
  double squares_sum = 0.0;
  for (const double error : errors) squares_sum += error * error;
  const MotionFigures figures = motion_figures(squares(errors), {});
  for (const DirectionFigures& direction : figures.directions) {
    if (direction_words(direction.vector) != "shift along x") continue;
    // Errors in x shear the centre a little: turns couple in with the square of their size.
    EXPECT_NEAR(direction.sigma, std::sqrt(squares_sum / (10.0 * 4.0)), 1e-6);
    EXPECT_TRUE(direction.fixed);
  }
  EXPECT_NEAR(figures.residual, std::sqrt(squares_sum / 10.0), 1e-12);
}

// The same with 9 frames and 37 points, one of them without an error and in the middle: the sums of
// the frames are 4 e, and the mean has a weight of 1 / 37.
TEST(MotionFigures, SigmaHasTheClosedFormOfOddNumbersToo) {
  const std::vector<double> errors = {0.3, -0.1, 0.2, -0.4, 0.1, 0.1, -0.2, 0.1, -0.1};
  double squares_sum = 0.0;
  for (const double error : errors) squares_sum += error * error;
  UsedPoints used = squares(errors);
  used.points.push_back({{100.0, 0.0, 300.0}, used.points[0].sheet, 0, 0});
  const MotionFigures figures = motion_figures(used, {});
  for (const DirectionFigures& direction : figures.directions) {
    if (direction_words(direction.vector) != "shift along x") continue;
    EXPECT_NEAR(direction.sigma, std::sqrt(16.0 * squares_sum * 9.0 / 3.0) / 37.0, 1e-6);
  }
  EXPECT_NEAR(figures.residual, std::sqrt(4.0 * squares_sum / 37.0), 1e-12);
}

// Planes count as clusters from eight on: with all frames of a plane erring alike, frames pretend
// to more knowledge than there is.
TEST(MotionFigures, PlanesAreClustersFromEightOn) {
  std::vector<double> errors;
  for (int f = 0; f < 32; ++f) errors.push_back((f % 8 < 4 ? 0.1 : -0.1));
  double by_seven = 0.0;
  double by_eight = 0.0;
  const MotionFigures seven = motion_figures(squares(errors, 7), {});
  const MotionFigures eight = motion_figures(squares(errors, 8), {});
  EXPECT_FALSE(seven.covariance.by_plane_known);
  ASSERT_TRUE(eight.covariance.by_plane_known);
  for (int i = 0; i < 6; ++i) {
    const auto& a = seven.directions[static_cast<std::size_t>(i)];
    const auto& b = eight.directions[static_cast<std::size_t>(i)];
    if (direction_words(a.vector) == "shift along x") by_seven = a.sigma;
    if (direction_words(b.vector) == "shift along x") by_eight = b.sigma;
  }
  EXPECT_NEAR(by_seven, std::sqrt(0.32 / (32.0 * 26.0)), 1e-6);  // frames: 32 errors of 0.1
  EXPECT_NEAR(by_eight, std::sqrt(0.08 / (8.0 * 2.0)), 1e-6);    // planes: 8 of them
}

// Without errors common to a frame the points' own are the least that sigma can be.
TEST(MotionFigures, SigmaIsNeverBelowThatOfIndependentPoints) {
  UsedPoints used = squares(std::vector<double>(12, 0.0));
  for (std::size_t i = 0; i < used.points.size(); ++i) {
    const bool up = (i % 4 == 0) || (i % 4 == 3);  // cancels in each frame, for turns as well
    used.points[i].point.x() += up ? 0.1 : -0.1;
  }
  const MotionFigures figures = motion_figures(used, {});
  for (const DirectionFigures& direction : figures.directions) {
    if (direction_words(direction.vector) != "shift along x") continue;
    EXPECT_NEAR(direction.sigma, 0.1 / std::sqrt(48.0), 1e-6);
  }
}

// --- the smallest motion ------------------------------------------------------------------------

TEST(SmallestMotion, IsTheJobsMotionWhereEverythingIsFixed) {
  const RigidMotion motion = turn_and_shift({1e-3, -2e-3, 5e-4}, {0.2, -0.3, 0.1});
  const MotionFigures figures = motion_figures(measure({leaning_sheets(), motion}), motion);
  EXPECT_LE((figures.smallest.R - motion.R).cwiseAbs().maxCoeff(), 1e-13);
  EXPECT_LE((figures.smallest.t - motion.t).cwiseAbs().maxCoeff(), 1e-10);
}

// A fan that shares y was shifted by 0.3 along x, and the job has put -6.5 along y on top.
TEST(SmallestMotion, DropsAShiftAlongTheDirectionThatAllSheetsShare) {
  const RigidMotion found = turn_and_shift({0, 0, 0}, {0.3, -6.5, 0});
  const MotionFigures figures =
      motion_figures(measure({fan_of_sheets(4), turn_and_shift({0, 0, 0}, {0.3, 0, 0})}), found);
  EXPECT_LE((figures.smallest.t - Vector3d(0.3, 0, 0)).cwiseAbs().maxCoeff(), 1e-6);
  EXPECT_LE(rotation_vector(figures.smallest.R).norm(), 1e-9);
}

TEST(SmallestMotion, HasNoPartAlongWhatIsNotFixed) {
  for (const std::vector<UnitPlane>& sheets :
       {parallel_sheets(), fan_of_sheets(4), leaning_sheets()}) {
    for (const double size : {1e-4, 1e-3, 1e-2, 5e-2}) {
      const RigidMotion motion =
          turn_and_shift(size * Vector3d(0.4, 0.8, -0.4), 100 * size * Vector3d(1, -2, 0.5));
      const MotionFigures figures = motion_figures(measure({sheets, motion}), motion);
      EXPECT_LE(part_not_fixed(figures, figures.smallest), kNoPart);
    }
  }
}

// How far a motion carries the points of a sheet off it, at the points that were measured.
double displacement_apart(const UsedPoints& used, const RigidMotion& a, const RigidMotion& b) {
  double largest = 0.0;
  for (const auto& point : used.points) {
    // The sheet where it was, at the y and z of the measured point.
    const Vector3d& n = point.sheet.normal;
    Vector3d p = point.point;
    p.x() = -(n.y() * p.y() + n.z() * p.z() + point.sheet.d) / n.x();
    const double by_a = n.dot(a.R * p + a.t - p);
    const double by_b = n.dot(b.R * p + b.t - p);
    largest = std::max(largest, std::abs(by_a - by_b));
  }
  return largest;
}

TEST(SmallestMotion, MovesTheSheetsAsTheJobsMotionDoes) {
  for (const std::vector<UnitPlane>& sheets : {parallel_sheets(), fan_of_sheets(6)}) {
    const RigidMotion motion = turn_and_shift({0, 2e-4, 3e-4}, {0.2, 1.0, 0.1});
    const UsedPoints used = measure({sheets, motion});
    const MotionFigures figures = motion_figures(used, motion);
    EXPECT_LE(displacement_apart(used, motion, figures.smallest), 2e-3);
    EXPECT_LT(figures.smallest.t.norm(), 0.5);
  }
}

// Beyond one degree the sheets' normals are those that the smallest motion turns: parallel sheets
// that were turned by 8 degrees about their own normal, which no point can tell.
TEST(SmallestMotion, DropsALargeTurnThatNoSheetShows) {
  const std::vector<UnitPlane> tilted = {sheet_of({1, 0.1, -0.2}, {100, 0, 0}),
                                         sheet_of({1, 0.1, -0.2}, {130, 0, 0})};
  const Vector3d normal = tilted[0].normal;
  const RigidMotion truth = turn_and_shift({0, 0, 0}, 0.3 * normal);
  RigidMotion found = turn_and_shift(0.14 * normal, {0, 0, 0});
  found.t = 0.3 * normal + 5.0 * normal.cross(Vector3d::UnitY());
  const MotionFigures figures = motion_figures(measure({tilted, truth}), found);
  EXPECT_EQ(free_directions(figures).size(), 3u);
  EXPECT_LE(rotation_vector(figures.smallest.R).norm(), 1e-3);
  EXPECT_LE(part_not_fixed(figures, figures.smallest), kNoPart);
}

std::vector<literal::FieldPoint> literal_points(const UsedPoints& used) {
  std::vector<literal::FieldPoint> points;
  for (const auto& point : used.points) {
    const Vector3d& n = point.sheet.normal;
    points.push_back({{point.point.x(), point.point.y(), point.point.z()},
                      {n.x(), n.y(), n.z()},
                      point.sheet.d,
                      point.plane,
                      point.frame});
  }
  return points;
}

double apart(const RigidMotion& motion, const literal::FieldFigures& figures) {
  double largest = 0.0;
  for (int i = 0; i < 3; ++i) {
    largest = std::max(largest, std::abs(motion.t[i] - figures.t[i]));
    for (int j = 0; j < 3; ++j) {
      largest = std::max(largest, 300.0 * std::abs(motion.R(i, j) - figures.R[3 * i + j]));
    }
  }
  return largest;
}

// Parallel sheets that have tilted, and a motion found that turns them about their own normal on
// top: by `turn`, which no point can tell. Both forms of the formulas: once, and once more with the
// sheets turned by the first outcome.
struct Turned {
  RigidMotion smallest;
  literal::FieldFigures once;
  literal::FieldFigures again;
};

Turned turn_parallel_sheets(double turn) {
  Scene scene{parallel_sheets(), turn_and_shift({0, 0.008, 0.006}, {0.2, 0.1, 0})};
  const UsedPoints used = measure(scene);
  const Eigen::Matrix3d about_normal =
      Eigen::AngleAxisd(turn, (scene.motion.R * scene.sheets[0].normal).normalized())
          .toRotationMatrix();
  const RigidMotion found = {about_normal * scene.motion.R, about_normal * scene.motion.t};
  const Eigen::Matrix<double, 3, 3, Eigen::RowMajor> R = found.R;
  Turned turned;
  turned.smallest = motion_figures(used, found).smallest;
  turned.once = literal::field_figures(literal_points(used), R.data(), found.t.data(), R.data());
  turned.again =
      literal::field_figures(literal_points(used), R.data(), found.t.data(), turned.once.R);
  return turned;
}

TEST(SmallestMotion, IsWorkedOutTwiceBeyondOneDegree) {
  const Turned large = turn_parallel_sheets(0.14);
  EXPECT_LE(apart(large.smallest, large.again), 1e-8);
  EXPECT_GT(apart(large.smallest, large.once), 1e-3);
}

TEST(SmallestMotion, IsWorkedOutOnceUpToOneDegree) {
  const Turned small = turn_parallel_sheets(0.013);  // with the tilt of 0.01: 0.94 degrees
  EXPECT_LE(apart(small.smallest, small.once), 1e-8);
  EXPECT_GT(apart(small.smallest, small.again), 1e-6);
}

// --- where motions are counted from -------------------------------------------------------------

TEST(MotionFrame, HasTheCentreAndTheMeanDistance) {
  const MotionFrame frame = motion_frame({{1, 0, 300}, {1, 6, 300}, {1, 3, 296}, {1, 3, 304}});
  EXPECT_LE((frame.centre - Vector3d(1, 3, 300)).norm(), 1e-12);
  EXPECT_NEAR(frame.length, std::sqrt(12.5), 1e-12);
  const MotionFrame odd =
      motion_frame({{1, 0, 300}, {1, 6, 300}, {1, 3, 296}, {1, 3, 304}, {1, 3, 300}});
  EXPECT_NEAR(odd.length, std::sqrt(10.0), 1e-12);
}

TEST(MotionFrame, CountsInUnitsOf1WherePointsHaveNoExtent) {
  const MotionFrame one = motion_frame({{4, 5, 300}, {4, 5, 300}});
  EXPECT_EQ(one.centre, Vector3d(4, 5, 300));
  EXPECT_EQ(one.length, 1.0);
  const MotionFrame none = motion_frame({});
  EXPECT_EQ(none.centre, Vector3d(0, 0, 0));
  EXPECT_EQ(none.length, 1.0);
}

TEST(MotionSpectrum, OfNothingIsFreeThroughout) {
  EXPECT_EQ(kestrane::quality::motion_spectrum(Matrix6::Zero()).free, 6);
}

// --- the six lengths ----------------------------------------------------------------------------

TEST(MotionLengths, ThatAreNoNumbersMakeNoMotion) {
  const RigidMotion motion = motion_of(Vector6::Constant(kestrane_test::kNaN), MotionFrame());
  EXPECT_FALSE(motion.R.allFinite());
  EXPECT_FALSE(motion.t.allFinite());
}

TEST(MotionLengths, GoThereAndBack) {
  MotionFrame frame;
  frame.centre = {120, -3, 285};
  frame.length = 77;
  simulation::Random random(3);
  for (int i = 0; i < 50; ++i) {
    Vector6 lengths;
    for (int k = 0; k < 6; ++k) lengths[k] = random.uniform(-40.0, 40.0);
    EXPECT_LE((lengths_of(motion_of(lengths, frame), frame) - lengths).cwiseAbs().maxCoeff(),
              1e-11);
  }
  EXPECT_EQ(lengths_of({}, frame), Vector6::Zero());
}

TEST(MotionLengths, OfASmallTurnAboutTheCentreHaveNoShift) {
  MotionFrame frame;
  frame.centre = {0, 0, 300};
  frame.length = 50;
  RigidMotion motion = turn_and_shift({0, 1e-3, 0}, {0, 0, 0});
  motion.t = frame.centre - motion.R * frame.centre;
  const Vector6 lengths = lengths_of(motion, frame);
  EXPECT_NEAR(lengths[1], 0.05, 1e-14);
  EXPECT_LE(lengths.tail<3>().norm(), 1e-12);
}

}  // namespace
