#include <gtest/gtest.h>

#include <type_traits>

#include "kestrane/records.h"

namespace {

using morvia::MORVIA_LASER_PLANE_CONTAINER;

TEST(LaserPlaneContainer, IsFourMachineWords) {
  EXPECT_EQ(sizeof(MORVIA_LASER_PLANE_CONTAINER), 32u);
}

TEST(LaserPlaneContainer, CopiesItsWordsFlatAndReturnsItself) {
  MORVIA_LASER_PLANE_CONTAINER from = {};
  MORVIA_LASER_PLANE_CONTAINER to = {};
  for (std::size_t i = 0; i < 4; ++i) {
    from.words[i] = 0xfedcba9876543210u + i;
    to.words[i] = i;
  }
  MORVIA_LASER_PLANE_CONTAINER& result = (to = from);
  EXPECT_EQ(&result, &to);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(to.words[i], 0xfedcba9876543210u + i);
    EXPECT_EQ(from.words[i], 0xfedcba9876543210u + i);
  }
}

TEST(LaserPlaneContainer, SurvivesAssignmentToItself) {
  MORVIA_LASER_PLANE_CONTAINER container = {{1, 2, 3, 4}};
  MORVIA_LASER_PLANE_CONTAINER& alias = container;
  container = alias;
  EXPECT_EQ(container.words[3], 4u);
}

}  // namespace
