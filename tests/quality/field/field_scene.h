// A device with a stored table, knocked by a known motion and measured in the field since.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/plane_table.h"
#include "simulation/random.h"
#include "simulation/scanner.h"

namespace field_scene {

using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;

struct Settings {
  int planes = 8;
  double bow = 0.4;
  bool factory_table = false;  // calibrated from clouds, instead of the true tangent planes
  int factory_points = 8000;   // of a plane
  int points = 2000;           // of a plane, in the field
  int frames = 20;             // of a plane
  double half_fan = 30.0;      // degrees; at 30 a few points miss the outermost blocks
  double noise = 0.05;
  double frame_noise = 0.03;
  std::uint64_t seed = 1;
};

struct Scene {
  std::vector<simulation::Sheet> sheets;
  PlaneTable table;
  simulation::Placement motion;
  std::vector<PointList> frames;
};

inline PlaneTable true_table(const std::vector<simulation::Sheet>& sheets) {
  PlaneTable table(static_cast<std::int32_t>(sheets.size()));
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    simulation::fill_true_table(sheets[p], {}, table.grids(), table.record().planes[p].block);
  }
  return table;
}

inline PlaneTable factory_table(const std::vector<simulation::Sheet>& sheets,
                                const Settings& settings) {
  PlaneTable table(static_cast<std::int32_t>(sheets.size()));
  kestrane::KESTRANE_LASER_FAC_CALIB job;
  if (job.init() != KESTRANE_OK) return {};
  simulation::CloudSettings cloud_settings;
  cloud_settings.points = settings.factory_points;
  cloud_settings.noise = settings.noise;
  cloud_settings.frame_noise = settings.frame_noise;
  cloud_settings.frames = settings.frames;
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    cloud_settings.seed = 7000 * settings.seed + p;
    simulation::Cloud cloud = simulation::measure(sheets[p], cloud_settings);
    const auto plane = static_cast<int>(p);
    if (job.factory_calib(plane, simulation::record_of(cloud)) != KESTRANE_OK) return {};
  }
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
  job.get_laser_plane_infos(record);
  return table;
}

// Up to 0.3 milliradian about each axis and 0.2 along each.
inline simulation::Placement knock(std::uint64_t seed) {
  simulation::Random random(1000 + seed);
  double draws[6];
  for (double& draw : draws) draw = random.uniform(-1.0, 1.0);
  return simulation::rigid_motion({3e-4 * draws[0], 3e-4 * draws[1], 3e-4 * draws[2]},
                                  {0.2 * draws[3], 0.2 * draws[4], 0.2 * draws[5]});
}

inline std::vector<PointList> measure(const std::vector<simulation::Sheet>& sheets,
                                      const simulation::Placement& motion,
                                      const Settings& settings) {
  std::vector<PointList> lists;
  simulation::CloudSettings cloud = simulation::field_cloud_settings();
  cloud.points = settings.points;
  cloud.frames = settings.frames;
  cloud.noise = settings.noise;
  cloud.frame_noise = settings.frame_noise;
  cloud.fan_low_degrees = -settings.half_fan;
  cloud.fan_high_degrees = settings.half_fan;
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    cloud.seed = 100 * settings.seed + p;
    lists.push_back(simulation::measure(sheets[p], motion, cloud).points);
  }
  return lists;
}

inline Scene make(const Settings& settings) {
  simulation::DeviceSettings device;
  device.planes = settings.planes;
  device.bow = settings.bow;
  device.seed = settings.seed;
  Scene scene;
  scene.sheets = simulation::make_device(device);
  scene.table =
      settings.factory_table ? factory_table(scene.sheets, settings) : true_table(scene.sheets);
  scene.motion = knock(settings.seed);
  scene.frames = measure(scene.sheets, scene.motion, settings);
  return scene;
}

// A block's middle on the sheet of the table, and the sheet's unit normal.
struct Place {
  double p[3];
  double n[3];
};

// All blocks of the planes first to last whose middle lies at a depth of 244.5 to 325.5.
inline std::vector<Place> places(const PlaneTable& table, int first, int last) {
  std::vector<Place> found;
  for (int plane = first; plane <= last; ++plane) {
    for (std::int32_t j = 0; j < 15; ++j) {
      for (std::int32_t k = 3; k < 7; ++k) {
        const double* abc = table.cell(plane, {j, k}).v;
        if (abc[0] == 0.0 || !std::isfinite(abc[0] + abc[1] + abc[2])) continue;
        const double length =
            std::copysign(std::sqrt(abc[0] * abc[0] + abc[1] * abc[1] + abc[2] * abc[2]), abc[0]);
        const kestrane::_LASER_PLANE_GRIDS& grids = table.grids();
        const double y = grids.grid_y_start[k] + (j + 0.5) * grids.grid_y_step[k];
        const double z = 150.0 + 27.0 * (k + 0.5);
        found.push_back({{-(abc[1] * y + abc[2] * z + 1.0) / abc[0], y, z},
                         {abc[0] / length, abc[1] / length, abc[2] / length}});
      }
    }
  }
  return found;
}

// n ((R - I) p + t)
inline double displacement(const Place& place, const double* R, const double* t) {
  double sum = 0.0;
  for (int i = 0; i < 3; ++i) {
    double moved = t[i] - place.p[i];
    for (int j = 0; j < 3; ++j) moved += R[3 * i + j] * place.p[j];
    sum += place.n[i] * moved;
  }
  return sum;
}

inline double displacement(const Place& place, const _MRV_EXTRINSIC_PARAM& motion) {
  return displacement(place, motion.R, motion.T);
}

inline double displacement(const Place& place, const simulation::Placement& motion) {
  const double t[3] = {motion.t.x, motion.t.y, motion.t.z};
  return displacement(place, motion.R, t);
}

// Root mean square over the places of how far two motions put the sheets apart.
template <class A, class B>
double apart(const std::vector<Place>& all, const A& a, const B& b) {
  double squares = 0.0;
  for (const Place& place : all) {
    const double difference = displacement(place, a) - displacement(place, b);
    squares += difference * difference;
  }
  return std::sqrt(squares / static_cast<double>(all.size()));
}

// The six lengths of a true motion as the directions of `result` count them.
inline std::vector<double> lengths(const simulation::Placement& motion,
                                   const kestrane::quality::FieldResult& result) {
  const double* R = motion.R;
  const double w[3] = {0.5 * (R[7] - R[5]), 0.5 * (R[2] - R[6]), 0.5 * (R[3] - R[1])};
  const double sine = std::hypot(w[0], w[1], w[2]);
  const double angle = std::atan2(sine, 0.5 * (R[0] + R[4] + R[8] - 1.0));
  const double factor = sine > 0.0 ? angle / sine : 1.0;
  const double c[3] = {result.centre.x, result.centre.y, result.centre.z};
  const double t[3] = {motion.t.x, motion.t.y, motion.t.z};
  std::vector<double> all(6);
  for (std::size_t i = 0; i < 3; ++i) {
    all[i] = result.length * factor * w[i];
    all[3 + i] = t[i] - c[i];
    for (std::size_t j = 0; j < 3; ++j) all[3 + i] += R[3 * i + j] * c[j];
  }
  return all;
}

inline std::vector<double> lengths(const _MRV_EXTRINSIC_PARAM& motion,
                                   const kestrane::quality::FieldResult& result) {
  simulation::Placement placement;
  for (int i = 0; i < 9; ++i) placement.R[i] = motion.R[i];
  placement.t = {motion.T[0], motion.T[1], motion.T[2]};
  return lengths(placement, result);
}

}  // namespace field_scene
