// What the held runs calibrate: small, and with a result that is known without them.
#pragma once

#include <cstdint>
#include <vector>

#include "simulation/scanner.h"
#include "tests/support/fast_scene.h"

namespace held_scenes {

// One sector, some twenty cells deep: so few that the solver's steps do not depend on rounding.
inline simulation::Cloud factory_cloud() {
  simulation::CloudSettings settings;
  settings.points = 3000;
  settings.seed = 7;
  settings.depth_low = 250.0;
  settings.depth_high = 750.0;
  settings.fan_low_degrees = -1.9;
  settings.fan_high_degrees = 1.9;
  return simulation::measure(simulation::make_device({})[3], settings);
}

inline constexpr int kPlanes = 4;
inline constexpr int kManyPoints = 2500;  // of a plane: one block for the solver
inline constexpr int kFewPoints = 250;    // of a plane: a block for each point

// Flat sheets in four directions, none along an axis: together they fix all of a motion.
inline std::vector<simulation::Sheet> flat_sheets() {
  return {{120.0, 0.30, -0.20, 0.0, 0.0},
          {125.0, -0.35, 0.15, 0.0, 0.0},
          {118.0, 0.05, 0.30, 0.0, 0.0},
          {122.0, -0.10, -0.30, 0.0, 0.0}};
}

inline constexpr simulation::Vec3 kRotation = {0.0012, -0.0021, 0.0016};  // about each axis
inline constexpr simulation::Vec3 kTranslation = {0.31, -0.17, 0.23};

// The sheets after that motion, as the field job measures them.
inline std::vector<std::vector<_KESTRANE_ID_POINT3D>> field_lists(int points_per_plane) {
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = points_per_plane;
  return fast_scene::measure_all(flat_sheets(), simulation::rigid_motion(kRotation, kTranslation),
                                 settings);
}

}  // namespace held_scenes
