// The calibration of a device with coefficients: its checks, and the slots that it writes.
#include "fast/range_transforms.h"

#include <algorithm>
#include <functional>
#include <limits>

#include "tests/fast/calibrations.h"
#include "tests/fast/engine_access.h"

namespace {

using namespace fast_support;

// Coefficient records that pass all checks, with slots that show what was written.
struct Coefficients {
  kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS table{};
  std::vector<double> slots = std::vector<double>(1200, -7.0);
  kestrane::_COMPENSATOR_COEFFS in{};
  kestrane::_COMPENSATOR_COEFFS out{};

  Coefficients(int first, int last) {
    in.opt_coeffs = out.opt_coeffs = &table;
    in.plane_count = out.plane_count = 1;
    in.range_count = 1;
    in.range_first[0] = first;
    in.range_last[0] = last;
    out.Mbs_factory_to_user = slots.data();
  }

  bool untouched() const { return slots == std::vector<double>(1200, -7.0); }
};

class CoefficientSolve : public testing::Test {
 protected:
  CoefficientSolve() : device_(5), frames_(device_.measured(kShaken)) {
    engine_.init();
    engine_.set_laser_plane_standard(device_.standard.host());
  }

  _KESTRANE_STATUS solve(const FrameLists& frames, int first, int last, Coefficients& coeffs,
                         double distance = 0.0) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const _KESTRANE_STATUS status =
        engine_.calib_Rt(frames, first, last, distance, coeffs.in, coeffs.out);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    report_ = testing::internal::GetCapturedStdout();
    return status;
  }

  Device device_;
  FrameLists frames_;
  KestraneLaserFastCalibrator engine_;
  std::string report_;
};

TEST_F(CoefficientSolve, WritesTheTransformIntoEverySlotOfTheRange) {
  Coefficients coeffs(0, 4);
  ASSERT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_OK);
  EXPECT_EQ(std::count(report_.begin(), report_.end(), '\n'), 1) << "one solve";
  for (std::size_t i = 0; i < 60; ++i) {
    EXPECT_EQ(coeffs.slots[i], coeffs.slots[i % 12]) << i;
    EXPECT_NE(coeffs.slots[i], -7.0);
  }
  for (std::size_t i = 60; i < 1200; ++i) EXPECT_EQ(coeffs.slots[i], -7.0);

  Eigen::Matrix3d R = Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(coeffs.slots.data());
  const Eigen::Quaterniond q(R);
  const _MRV_TRANSFORM found = {{q.x(), q.y(), q.z(), q.w()},
                                {coeffs.slots[9], coeffs.slots[10], coeffs.slots[11]}};
  EXPECT_LT(worst_plane_error(device_, kShaken, found), kBow + kNoiseShare * 0.05);
}

TEST_F(CoefficientSolve, AddressesSlotsByTheAbsolutePlane) {
  Coefficients coeffs(2, 4);
  const FrameLists part(frames_.begin() + 2, frames_.end());
  ASSERT_EQ(solve(part, 2, 4, coeffs), KESTRANE_OK);
  EXPECT_EQ(coeffs.slots[23], -7.0);
  EXPECT_NE(coeffs.slots[24], -7.0);
  EXPECT_NE(coeffs.slots[59], -7.0);
  EXPECT_EQ(coeffs.slots[60], -7.0);
}

TEST_F(CoefficientSolve, LeavesTransformAndIndicatorsOfTheEngineAlone) {
  Coefficients coeffs(0, 4);
  ASSERT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_OK);
  Result after{};
  read_result(engine_, after);
  expect_transform(after.transform, {1, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(after.mean, 0.0);
  EXPECT_EQ(after.max, 0.0);
}

TEST_F(CoefficientSolve, ChecksInItsOrder) {
  // Everything is wrong, and mended in the order in which it is looked at.
  Coefficients coeffs(0, 1);
  coeffs.in.plane_count = 0;
  coeffs.in.opt_coeffs = nullptr;
  coeffs.out.plane_count = 0;
  coeffs.out.opt_coeffs = nullptr;
  coeffs.in.range_count = 20;
  coeffs.in.range_first[0] = 77;
  const FrameLists bad_lists(2);
  EXPECT_EQ(solve(FrameLists(3), 0, 0, coeffs), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(solve(FrameLists(1), 0, 0, coeffs), KESTRANE_ERR_EMPTY_RANGE);
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_INVALID_PARAM);
  coeffs.in.plane_count = 1;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_NULL_POINTER);
  coeffs.in.opt_coeffs = &coeffs.table;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_INVALID_PARAM);
  coeffs.out.plane_count = 1;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_NULL_POINTER);
  coeffs.out.opt_coeffs = &coeffs.table;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_INVALID_PARAM);
  coeffs.in.range_count = 0;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_RANGE_UNKNOWN);
  coeffs.in.range_count = 1;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_RANGE_UNKNOWN);
  coeffs.in.range_first[0] = 0;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_FIT_FAILED) << "empty lists";
  EXPECT_TRUE(coeffs.untouched());
  EXPECT_EQ(report_, "");
}

TEST_F(CoefficientSolve, RefusesEachFaultAloneToo) {
  const auto with = [&](const std::function<void(Coefficients&)>& spoil) {
    Coefficients coeffs(0, 4);
    spoil(coeffs);
    const _KESTRANE_STATUS status = solve(frames_, 0, 4, coeffs);
    EXPECT_TRUE(status == KESTRANE_OK || coeffs.untouched());
    return status;
  };
  EXPECT_EQ(with([](auto&) {}), KESTRANE_OK);
  EXPECT_EQ(with([](auto& c) { c.in.plane_count = 0; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.in.plane_count = -3; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.in.opt_coeffs = nullptr; }), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(with([](auto& c) { c.out.plane_count = 0; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.out.plane_count = -3; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.out.opt_coeffs = nullptr; }), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(with([](auto& c) { c.in.range_count = 20; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.in.range_count = 2000000000; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.in.range_count = 0; }), KESTRANE_ERR_RANGE_UNKNOWN);
  EXPECT_EQ(with([](auto& c) { c.in.range_count = -1; }), KESTRANE_ERR_RANGE_UNKNOWN);
  EXPECT_EQ(with([](auto& c) { c.in.range_last[0] = 5; }), KESTRANE_ERR_RANGE_UNKNOWN);
}

TEST_F(CoefficientSolve, FindsTheRangeInTheLastOfNineteenEntries) {
  Coefficients coeffs(0, 4);
  for (int r = 0; r < 20; ++r) {
    coeffs.in.range_first[r] = coeffs.in.range_last[r] = 90;
  }
  coeffs.in.range_first[18] = 0;
  coeffs.in.range_last[18] = 4;
  coeffs.in.range_count = 18;
  EXPECT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_ERR_RANGE_UNKNOWN) << "not in use";
  coeffs.in.range_count = 19;
  EXPECT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_OK);
}

TEST_F(CoefficientSolve, WantsBothEndsInOneEntry) {
  Coefficients coeffs(0, 3);
  coeffs.in.range_count = 2;
  coeffs.in.range_first[1] = 1;
  coeffs.in.range_last[1] = 4;
  EXPECT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_ERR_RANGE_UNKNOWN);
}

TEST_F(CoefficientSolve, RefusesARangeOfOnePlane) {
  Coefficients coeffs(2, 2);
  EXPECT_EQ(solve({frames_[2]}, 2, 2, coeffs), KESTRANE_ERR_EMPTY_RANGE);
}

TEST_F(CoefficientSolve, TakesARangeWithoutPlanesForAnyOther) {
  Coefficients coeffs(0, 4);
  EXPECT_EQ(solve({}, 3, 2, coeffs), KESTRANE_ERR_RANGE_UNKNOWN);
  Coefficients listed(3, 2);
  EXPECT_EQ(solve({}, 3, 2, listed), KESTRANE_OK);
  EXPECT_TRUE(listed.untouched());
}

TEST_F(CoefficientSolve, CountsListsWithoutOverflow) {
  Coefficients coeffs(0, 4);
  constexpr int kLowest = std::numeric_limits<int>::min();
  constexpr int kHighest = std::numeric_limits<int>::max();
  EXPECT_EQ(solve({}, kLowest, kHighest, coeffs), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(solve(FrameLists(1), kHighest, kLowest, coeffs), KESTRANE_ERR_COUNT_MISMATCH);
}

TEST_F(CoefficientSolve, WritesNothingIfOneListFails) {
  Coefficients coeffs(0, 4);
  FrameLists frames = frames_;
  frames[4].clear();
  EXPECT_EQ(solve(frames, 0, 4, coeffs), KESTRANE_ERR_FIT_FAILED);
  EXPECT_TRUE(coeffs.untouched());
  frames = frames_;
  frames[3].resize(2);
  EXPECT_EQ(solve(frames, 0, 4, coeffs), KESTRANE_ERR_FIT_FAILED);
  EXPECT_TRUE(coeffs.untouched());
  EXPECT_EQ(report_, "");
}

TEST_F(CoefficientSolve, DoesNotReadTheDistance) {
  Coefficients plain(0, 4);
  ASSERT_EQ(solve(frames_, 0, 4, plain), KESTRANE_OK);
  constexpr double kThreads = 1e-7;  // the solver's threads add up in any order
  for (const double distance : {-5.0, 1e300, kNaN}) {
    Coefficients coeffs(0, 4);
    ASSERT_EQ(solve(frames_, 0, 4, coeffs, distance), KESTRANE_OK);
    for (std::size_t i = 0; i < 12; ++i) EXPECT_NEAR(coeffs.slots[i], plain.slots[i], kThreads);
  }
}

TEST_F(CoefficientSolve, WritesTheIdentityWhereTheSolveGivesNothing) {
  Coefficients coeffs(0, 4);
  FrameLists frames = frames_;
  // Shallow: not part of the fit. One point of its frame: hardly changes the shares.
  for (auto& point : frames[0]) {
    if (point.id == frames[0][0].id) {
      frames[0].insert(frames[0].begin(), {kNaN, 0, 180, point.id});
      break;
    }
  }
  EXPECT_EQ(solve(frames, 0, 4, coeffs), KESTRANE_OK);
  const std::vector<double> identity = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
  for (std::size_t i = 0; i < 60; ++i) EXPECT_EQ(coeffs.slots[i], identity[i % 12]);
  EXPECT_NE(report_.find("FAILURE"), std::string::npos);
}

}  // namespace
