// Preconditions violated in a build that does not check them: harmless where a cheap choice
// makes it so.
#include "kestrane/fast_calib.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_calibration.h"

namespace {

using namespace fast_support;
using kestrane::KestraneLaserFastCalibrator;

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();

TEST(FastViolatedPreconditions, FindNoCellOnAPlaneThatTheTableCannotHold) {
  KestraneLaserFastCalibrator engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  fast_scene::Standard standard = flat_standard(100);
  engine.set_laser_plane_standard(standard.host());
  for (const std::int32_t plane : {-1, -2, 100, 101, kLowest, kHighest}) {
    ResidualSets residuals = {{-7.0}};
    engine.cal_residual({columns({{130, 0, 300}})}, plane, plane, literal::identity(), residuals);
    EXPECT_EQ(residuals[0][0], -7.0) << plane;
    double mean, max, deviation;
    engine.get_calib_indicator(mean, max, deviation);
    EXPECT_EQ(max, -1000.0) << plane;
    List list;
    add_frame(list, 0, 1.0, 4);
    testing::internal::CaptureStdout();
    EXPECT_EQ(engine.calib_Rt({list}, plane, plane), KESTRANE_OK) << plane;
    testing::internal::GetCapturedStdout();
  }
}

TEST(FastViolatedPreconditions, WriteNoSlotForAPlaneThatHasNone) {
  KestraneLaserFastCalibrator engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  fast_scene::Standard standard = flat_standard(100);
  engine.set_laser_plane_standard(standard.host());
  // Both sides of x = 128.
  List list;
  for (int i = 0; i < 8; ++i) {
    const double x = i % 2 == 0 ? 128.25 : 127.75;
    list.push_back({x, (i / 4) * 40.0 - 20.0, 230.0 + 100.0 * ((i / 2) % 2), 1});
  }
  kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS table{};
  kestrane::_COMPENSATOR_COEFFS in{}, out{};
  in.opt_coeffs = out.opt_coeffs = &table;
  in.plane_count = out.plane_count = in.range_count = 1;
  for (const std::int32_t first : {-1, 99}) {
    std::vector<double> room(1224, -7.0);  // one slot more on either side
    out.Mbs_factory_to_user = room.data() + 12;
    in.range_first[0] = first;
    in.range_last[0] = first + 1;
    testing::internal::CaptureStdout();
    EXPECT_EQ(engine.calib_Rt({list, list}, first, first + 1, 0.0, in, out), KESTRANE_OK);
    testing::internal::GetCapturedStdout();
    const std::size_t written = first == -1 ? 12 : 12 * 100;
    for (std::size_t i = 0; i < room.size(); ++i) {
      EXPECT_EQ(room[i] == -7.0, i < written || i >= written + 12) << first << ' ' << i;
    }
  }
}

}  // namespace
