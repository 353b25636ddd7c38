#include "examples/field_yardstick.h"

#include <gtest/gtest.h>

#include <cmath>

#include "simulation/host_table.h"

namespace {

using examples::FrameLists;
using simulation::HostTable;

// A table of planes x = offset, each in all its cells.
void fill(HostTable& table, double offset) {
  _MRV_LASER_PLANE_BLOCK_INFOS& infos = table.infos();
  infos.grids->z_start = 150.0;
  infos.grids->z_step = 27.0;
  for (int k = 0; k <= 50; ++k) {
    infos.grids->grid_z[k] = 150.0 + 27.0 * k;
    infos.grids->grid_y_start[k] = -0.577 * infos.grids->grid_z[k];
    infos.grids->grid_y_step[k] = 2.0 * 0.577 * infos.grids->grid_z[k] / 15.0;
  }
  for (int p = 0; p < infos.plane_count; ++p) {
    for (int j = 0; j < 15; ++j) {
      for (int k = 0; k < 50; ++k) {
        infos.planes[p].block.lines[j].cells[k] = {{-1.0 / offset, 0.0, 0.0}};
      }
    }
  }
}

// Five points of frame `id` at distance `off` from x = 100.
void add_frame(std::vector<_KESTRANE_ID_POINT3D>& list, std::int32_t id, double off) {
  for (int i = 0; i < 5; ++i) list.push_back({100.0 + off, 10.0 * i, 250.0 + 10.0 * i, id});
}

class FramesKept : public testing::Test {
 protected:
  void SetUp() override {
    fill(table_, 100.0);
    ASSERT_EQ(engine.init(), KESTRANE_OK);
    engine.set_laser_plane_standard(table_.infos());
  }

  kestrane::KestraneLaserFastCalibrator engine;

 private:
  HostTable table_{2};
};

TEST_F(FramesKept, LeaveOutAFrameThatIsFarOff) {
  FrameLists frames(1);
  add_frame(frames[0], 0, 1.0);
  add_frame(frames[0], 1, 1.1);
  add_frame(frames[0], 2, 3.5);
  const examples::Kept kept = examples::frames_kept(engine, frames);
  EXPECT_EQ(kept.frames_in, 3);
  EXPECT_EQ(kept.frames_unknown, 0);
  EXPECT_EQ(kept.frames, 2);
  EXPECT_EQ(examples::points_of(kept.points), 10);
}

TEST_F(FramesKept, LeaveOutNumbersThatTheFirstListLacks) {
  FrameLists frames(2);
  add_frame(frames[0], 0, 1.0);
  add_frame(frames[0], 1, 1.0);
  add_frame(frames[1], 1, 1.0);
  add_frame(frames[1], 2, 1.0);
  const examples::Kept kept = examples::frames_kept(engine, frames);
  EXPECT_EQ(kept.frames_in, 4);
  EXPECT_EQ(kept.frames_unknown, 1);
  EXPECT_EQ(kept.frames, 3);
}

TEST_F(FramesKept, CountPointsThatEndCloseToTheMovedStandard) {
  FrameLists frames(1);
  add_frame(frames[0], 0, 1.4);
  add_frame(frames[0], 1, 1.6);
  _MRV_EXTRINSIC_PARAM motion = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
  EXPECT_EQ(examples::points_near(engine, frames, motion), 5);
  motion.T[0] = 1.0;
  EXPECT_EQ(examples::points_near(engine, frames, motion), 10);
}

TEST(MotionDirections, NameWhatParallelPlanesCannotTell) {
  HostTable table(1);
  fill(table, 100.0);
  FrameLists frames(1);
  for (int i = 0; i < 40; ++i) {
    frames[0].push_back({100.0, 7.0 * (i % 9) - 30.0, 220.0 + 3.0 * i, 0});
  }
  const _MRV_EXTRINSIC_PARAM still = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
  const auto directions = examples::motion_directions(table.infos(), frames, still);
  ASSERT_EQ(directions.size(), 6u);
  // Planes x = 100 fix the translation along x and the rotations about y and z, nothing else.
  constexpr double kNothing = 1e-12;
  for (int i = 0; i < 3; ++i) {
    const auto& d = directions[static_cast<std::size_t>(i)];
    EXPECT_LT(d.strength, kNothing);
    EXPECT_NEAR(d.translation.x(), 0.0, 1e-6);
    EXPECT_NEAR(d.rotation.y(), 0.0, 1e-6);
    EXPECT_NEAR(d.rotation.z(), 0.0, 1e-6);
  }
  EXPECT_GT(directions[3].strength, 1e-6);
  EXPECT_EQ(directions[5].strength, 1.0);
}

TEST(MotionDirections, AreNoneWithoutPointsInTheTable) {
  HostTable table(1);
  fill(table, 100.0);
  const _MRV_EXTRINSIC_PARAM still = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
  EXPECT_TRUE(examples::motion_directions(table.infos(), {{{100, 0, 20, 0}}}, still).empty());
}

TEST(ExtrinsicOf, TurnsAQuaternionIntoItsMatrix) {
  const double half = std::sqrt(0.5);
  const _MRV_EXTRINSIC_PARAM motion = examples::extrinsic_of({{0, 0, half, half}, {1, 2, 3}});
  const double expected[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(motion.R[i], expected[i], 1e-15);
  EXPECT_EQ(motion.T[2], 3.0);
  EXPECT_NEAR(examples::rotation_of(motion).z(), 1.5707963267948966, 1e-12);
}

}  // namespace
