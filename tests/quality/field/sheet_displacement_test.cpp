#include "quality/field/sheet_displacement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using Eigen::Vector3d;
using kestrane::quality::Displacement;
using kestrane::quality::Matrix6;
using kestrane::quality::MotionFigures;
using kestrane::quality::RigidMotion;
using kestrane::quality::sheet_displacement;
using kestrane::quality::SheetBlock;

// Figures whose covariances are multiples of the identity, about a centre at depth 300.
MotionFigures figures_with(bool by_frame, bool by_plane) {
  MotionFigures figures;
  figures.frame.centre = Vector3d(0, 0, 300);
  figures.frame.length = 50.0;
  figures.observed = Matrix6::Identity();
  figures.covariance.by_frame_known = by_frame;
  figures.covariance.by_plane_known = by_plane;
  figures.covariance.by_frame = 0.04 * Matrix6::Identity();
  figures.covariance.by_plane = 0.09 * Matrix6::Identity();
  return figures;
}

RigidMotion shift(double x, double z) {
  RigidMotion motion;
  motion.t = Vector3d(x, 0, z);
  return motion;
}

const std::vector<SheetBlock> kBlocks = {{3, {1, 2}, {100, 0, 300}, {1, 0, 0}},
                                         {4, {5, 6}, {100, 0, 350}, {0.6, 0, 0.8}},
                                         {5, {7, 8}, {100, 50, 300}, {1, 0, 0}}};

// 0.5 along x and 0.5 along z: 0.5, 0.7 and 0.5 along the normals.
TEST(SheetDisplacement, IsTheMotionAlongTheNormals) {
  const Displacement displacement =
      sheet_displacement(kBlocks, shift(0.5, 0.5), figures_with(true, false));
  EXPECT_NEAR(displacement.rms, std::sqrt((0.25 + 0.49 + 0.25) / 3.0), 1e-15);
  EXPECT_NEAR(displacement.max, 0.7, 1e-15);
  EXPECT_EQ(displacement.plane, 4);
  EXPECT_EQ(displacement.block.line, 5);
  EXPECT_EQ(displacement.block.cell, 6);
}

// A row holds the unit normal and, over the length of 50, the arm of the turn about the centre.
TEST(SheetDisplacement, HasTheMeanVarianceOfItsRows) {
  double squares = 0.0;
  for (const SheetBlock& block : kBlocks) {
    const Vector3d arm = (block.point - Vector3d(0, 0, 300)).cross(block.normal) / 50.0;
    squares += arm.squaredNorm() + 1.0;
  }
  const RigidMotion still;
  EXPECT_NEAR(sheet_displacement(kBlocks, still, figures_with(true, false)).sigma,
              0.2 * std::sqrt(squares / 3.0), 1e-15);
  EXPECT_NEAR(sheet_displacement(kBlocks, still, figures_with(true, true)).sigma,
              0.3 * std::sqrt(squares / 3.0), 1e-15);
}

TEST(SheetDisplacement, HasNoSigmaWithoutACovariance) {
  const Displacement displacement =
      sheet_displacement(kBlocks, shift(0.5, 0.0), figures_with(false, false));
  EXPECT_TRUE(std::isnan(displacement.sigma));
  EXPECT_NEAR(displacement.max, 0.5, 1e-15);
}

TEST(SheetDisplacement, IsNotDeterminedWithoutBlocks) {
  const Displacement displacement =
      sheet_displacement({}, shift(0.5, 0.0), figures_with(true, true));
  EXPECT_TRUE(std::isnan(displacement.rms));
  EXPECT_TRUE(std::isnan(displacement.max));
  EXPECT_TRUE(std::isnan(displacement.sigma));
  EXPECT_EQ(displacement.plane, 0);
}

}  // namespace
