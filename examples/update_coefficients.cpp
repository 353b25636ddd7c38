// Coefficient calibration: the line models of a device's corners follow one new measurement.
//   update_coefficients [FILE]   where the record goes (coefficients.bin)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "kestrane/buffers.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "kestrane/files.h"
#include "simulation/scanner.h"

namespace {

using kestrane::_COMPENSATOR_COEFFS;
using kestrane::_LASER_TRIPLE;

constexpr double kCondition = 30.0;  // of the device while its corners were measured
constexpr double kModelError = 0.1;  // of the old models, far more than one reading may move them

// What a factory calibration leaves of its latest plane.
struct Measured {
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
};

// In a real host: the device, one plane of it here.
bool measure(Measured& measured) {
  simulation::Cloud cloud = simulation::measure(simulation::make_device({})[0], {});
  kestrane::KESTRANE_LASER_FAC_CALIB calib;
  return calib.init() == KESTRANE_OK && measured.indicators.init(1) == KESTRANE_OK &&
         measured.corners.init(1) == KESTRANE_OK &&
         calib.factory_calib(0, simulation::record_of(cloud)) == KESTRANE_OK &&
         calib.get_indicators(0, measured.indicators, measured.corners) == KESTRANE_OK;
}

// Models that do not depend on the condition, x off by kModelError: 0 t + 1 x + c = 0.
void fill_old_models(const Measured& measured, _COMPENSATOR_COEFFS& coeffs) {
  for (int i = 0; i < 16; ++i) {
    for (int k = 0; k < 51; ++k) {
      const double x = measured.corners.planes[0].lines[i].cells[k].v[0] - kModelError;
      coeffs.opt_coeffs->planes[0].lines[i].cells[k] = {{0.0, 1.0, -x}};
    }
  }
}

bool update(const Measured& measured, _COMPENSATOR_COEFFS& old, const std::string& path) {
  // [snippet]
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER owner;
  kestrane::_COMPENSATOR_COEFFS* updated = nullptr;
  if (owner.init(1) != KESTRANE_OK) return false;
  if (owner.get_compensator_coeffs(1, updated) != KESTRANE_OK) return false;
  kestrane::KestraneLaserFastCalibrator engine;  // this job needs no init
  if (engine.calib(measured.indicators, measured.corners, kCondition, old, *updated) !=
      KESTRANE_OK) {
    return false;
  }
  return kestrane::save_compensator_coeffs(*updated, path) == KESTRANE_OK;
  // [snippet end]
}

double model_x(const _LASER_TRIPLE& model) {
  return -(model.v[0] * kCondition + model.v[2]) / model.v[1];
}

// Whether the models of the corners of blocks with points moved as far as they should, at the
// condition.
bool moved_rightly(const Measured& measured, const _COMPENSATOR_COEFFS& old,
                   const _COMPENSATOR_COEFFS& updated) {
  double least = kModelError;
  double most = 0.0;
  for (int j = 0; j < 15; ++j) {
    for (int k = 0; k < 50; ++k) {
      if (measured.indicators.planes[0].lines[j].cells[k].v[1] == 0.0) continue;  // no points
      const double moved = model_x(updated.opt_coeffs->planes[0].lines[j].cells[k]) -
                           model_x(old.opt_coeffs->planes[0].lines[j].cells[k]);
      least = std::min(least, moved);
      most = std::max(most, moved);
    }
  }
  std::printf("models off by %.3f moved by %.6f to %.6f at condition %.0f\n", kModelError, least,
              most, kCondition);
  // The reading counts as 0.01 off, with the weight of one sample in eleven.
  return 0.0009 < least && most < 0.0010;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : "coefficients.bin";
  Measured measured;
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER owners[2];
  _COMPENSATOR_COEFFS* old = nullptr;
  _COMPENSATOR_COEFFS* stored = nullptr;
  if (!measure(measured) || owners[0].init(1) != KESTRANE_OK || owners[1].init(1) != KESTRANE_OK ||
      owners[0].get_compensator_coeffs(1, old) != KESTRANE_OK ||
      owners[1].get_compensator_coeffs(1, stored) != KESTRANE_OK) {
    return 1;
  }
  fill_old_models(measured, *old);
  if (!update(measured, *old, path)) return 1;
  if (kestrane::read_compensator_coeffs(path, *stored) != KESTRANE_OK) return 1;
  return moved_rightly(measured, *old, *stored) ? 0 : 1;
}
