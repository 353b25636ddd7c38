// A small host: it includes every public header, calls every job once and holds the numbers against
// what is known of two flat sheets. Ends with 0 where all of them are right.
//
//   consumer <folder for files>
#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "checks.h"
#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "kestrane/export.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "kestrane/files.h"
#include "kestrane/records.h"

namespace {

constexpr int kPlanes = 2;
constexpr int kLines = 15;
constexpr int kCells = 50;

// Exact points on exact planes: what is left is rounding, of a decomposition at most.
constexpr double kRounding = 1e-8;
// Points alternate by this much about their sheet, two at a time, so that the mean distances of all
// frames are alike, and those of every second point as well.
constexpr double kRipple = 0.02;

// A sheet x = at + tilt z, as a x + b y + c z + 1 = 0.
struct Sheet {
  double at;
  double tilt;

  double x(double z) const { return at + tilt * z; }
  Eigen::Vector3d plane() const { return {-1.0 / at, 0.0, tilt / at}; }
};

constexpr Sheet kSheets[kPlanes] = {{110.0, -0.12}, {140.0, -0.16}};

// A host's memory for a plane table.
struct Table {
  Table()
      : cells(std::size_t{kPlanes} * kLines * kCells),
        lines(std::size_t{kPlanes} * kLines),
        rows(kPlanes) {
    for (std::size_t n = 0; n < lines.size(); ++n) lines[n] = {&cells[n * kCells], kCells};
    for (std::size_t p = 0; p < rows.size(); ++p) rows[p].block = {&lines[p * kLines], kLines};
    infos = {rows.data(), &grids, kPlanes};
  }

  std::vector<kestrane::_LASER_TRIPLE> cells;
  std::vector<kestrane::_LASER_LINE_INFOS> lines;
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows;
  kestrane::_LASER_PLANE_GRIDS grids = {};
  _MRV_LASER_PLANE_BLOCK_INFOS infos = {};
};

// The whole fan of a sheet, in depth rows; `offset` and `ripple` along x.
std::vector<_KESTRANE_ID_POINT3D> measure(const Sheet& sheet, double from, double to, double offset,
                                          double ripple) {
  std::vector<_KESTRANE_ID_POINT3D> points;
  constexpr double kRadian = 3.14159265358979323846 / 180.0;
  for (double degrees = -29.75; degrees < 30.0; degrees += 0.5) {
    for (double z = from; z < to; z += 20.0) {
      const double sign = points.size() / 2 % 2 == 0 ? 1.0 : -1.0;
      points.push_back({sheet.x(z) + offset + sign * ripple, z * std::tan(degrees * kRadian), z,
                        static_cast<std::int32_t>(points.size() / 4 % 4)});
    }
  }
  return points;
}

void check_table(const Table& table, const char* what) {
  for (int p = 0; p < kPlanes; ++p) {
    const Eigen::Vector3d plane = kSheets[p].plane();
    for (int n = 0; n < kLines * kCells; ++n) {
      const double* cell = table.cells[static_cast<std::size_t>(p * kLines * kCells + n)].v;
      for (int i = 0; i < 3; ++i) check_near(cell[i], plane[i], kRounding, what);
    }
  }
}

struct Factory {
  Table table;
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
};

void factory_job(Factory& factory) {
  kestrane::KESTRANE_LASER_FAC_CALIB calib;
  check(calib.init() == KESTRANE_OK, "factory init");
  check(calib.set_laser_type(kestrane::LASER_TYPE_STANDARD) == KESTRANE_OK, "set_laser_type");
  check(calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_OFF) == KESTRANE_OK, "set_optimize_flag");
  check(factory.indicators.init(kPlanes) == KESTRANE_OK, "indicators init");
  check(factory.corners.init(kPlanes) == KESTRANE_OK, "corners init");
  for (int p = 0; p < kPlanes; ++p) {
    auto points = measure(kSheets[p], 120.0, 990.0, 0.0, 0.0);
    const _KESTRANE_ID_POINT3DS cloud = {points.data(), static_cast<std::int32_t>(points.size())};
    check(calib.factory_calib(p, cloud) == KESTRANE_OK, "factory_calib");
    check(calib.get_indicators(p, factory.indicators, factory.corners) == KESTRANE_OK,
          "get_indicators");
  }
  check(calib.get_laser_plane_infos(factory.table.infos) == KESTRANE_OK, "get_laser_plane_infos");
  check_table(factory.table, "cell of the factory table");
  for (int p = 0; p < kPlanes; ++p) {
    const double* corner = factory.corners.planes[p].lines[7].cells[20].v;
    check_near(corner[0], kSheets[p].x(corner[2]), 1e-6, "x of a corner");
  }
}

// The optimisation runs the solver beside whatever the host has compiled of Eigen.
void optimised_factory_job() {
  kestrane::KESTRANE_LASER_FAC_CALIB calib;
  check(calib.init() == KESTRANE_OK, "factory init");
  check(calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON) == KESTRANE_OK, "set_optimize_flag");
  auto points = measure(kSheets[0], 120.0, 990.0, 0.0, kRipple);
  const _KESTRANE_ID_POINT3DS cloud = {points.data(), static_cast<std::int32_t>(points.size())};
  check(calib.factory_calib(0, cloud) == KESTRANE_OK, "factory_calib with the optimisation");
}

// Nothing has changed since the calibration; then the device is one unit warmer and has grown.
void compensation_job(const Factory& factory) {
  constexpr double kGrowth = 1e-3;
  Table in = factory.table;
  Table out;
  for (std::size_t n = 0; n < in.lines.size(); ++n) in.lines[n].cells = &in.cells[n * kCells];
  for (std::size_t p = 0; p < in.rows.size(); ++p) in.rows[p].block.lines = &in.lines[p * kLines];
  in.infos = {in.rows.data(), &in.grids, kPlanes};

  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  _KESTRANE_COMPENSATE_PARAM condition = {};
  condition.temperature = 21.0;
  condition.temperature_ref = 20.0;
  condition.scale_per_degree = kGrowth;
  const _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {100.0, 0.0, 20.0}};
  check(compensator.init() == KESTRANE_OK, "compensator init");
  check(compensator.set_laser_plane_param(in.infos) == KESTRANE_OK, "set_laser_plane_param");
  check(compensator.set_extrinsic_matrix(extrinsic) == KESTRANE_OK, "set_extrinsic_matrix");
  check(compensator.set_compensate_param(condition, 0, kPlanes) == KESTRANE_OK,
        "set_compensate_param");
  check(compensator.compensate(0, kPlanes) == KESTRANE_OK, "compensate");
  check(compensator.get_compensate_result(out.infos) == KESTRANE_OK, "get_compensate_result");
  for (int p = 0; p < kPlanes; ++p) {
    const double grown = kSheets[p].at * (1.0 + kGrowth);
    const double* cell = out.cells[static_cast<std::size_t>(p * kLines * kCells + 321)].v;
    check_near(-1.0 / cell[0], grown, 1e-5, "distance of a grown plane");
    check_near(-cell[2] / cell[0], kSheets[p].tilt, kRounding, "tilt of a grown plane");
  }
}

// Matrices of the host's own Eigen, in several sizes, some of them moved and resized on the way.
void residual_job(const Factory& factory) {
  kestrane::KestraneLaserFastCalibrator engine;
  check(engine.init() == KESTRANE_OK, "engine init");
  check(engine.set_laser_plane_standard(factory.table.infos) == KESTRANE_OK,
        "set_laser_plane_standard");
  const _MRV_EXTRINSIC_PARAM unmoved = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
  for (const int columns : {0, 1, 2, 3, 4, 5, 7, 8, 13, 16, 64, 257}) {
    std::vector<Eigen::Matrix<double, 3, -1>> points(kPlanes);
    std::vector<std::vector<double>> residuals(kPlanes);
    double sum = 0.0;
    for (int p = 0; p < kPlanes; ++p) {
      auto& matrix = points[static_cast<std::size_t>(p)];
      matrix.resize(3, columns + 1);
      const Eigen::Vector3d normal = kSheets[p].plane().normalized();
      for (int n = 0; n < columns; ++n) {
        const double z = 200.0 + 3.0 * n;
        const double y = 0.4 * z * std::sin(static_cast<double>(n));
        matrix.col(n) = Eigen::Vector3d(kSheets[p].x(z), y, z) + (0.01 * (n + 1)) * normal;
      }
      matrix.conservativeResize(3, columns);
    }
    points.push_back(points.back());
    points.pop_back();
    engine.cal_residual(points, 0, kPlanes - 1, unmoved, residuals);
    for (int p = 0; p < kPlanes; ++p) {
      const auto& row = residuals[static_cast<std::size_t>(p)];
      check(row.size() == static_cast<std::size_t>(columns), "number of residuals");
      for (std::size_t n = 0; n < row.size(); ++n) {
        check_near(row[n], 0.01 * static_cast<double>(n + 1), 1e-6, "residual");
        sum += row[n];
      }
    }
    double mean = 0.0, max = 0.0, deviation = 0.0;
    check(engine.get_calib_indicator(mean, max, deviation) == KESTRANE_OK, "indicators");
    if (columns == 0) {
      check(std::isnan(mean), "mean of no residual");
    } else {
      check_near(mean, sum / (kPlanes * columns), 1e-12, "mean residual");
      check_near(max, 0.01 * columns, 1e-6, "largest residual");
    }
  }
}

// The device has moved along x; the fast calibration brings the standard to where the points are.
void fast_job(const Factory& factory) {
  constexpr double kMove = 0.1;
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> frames;
  for (const Sheet& sheet : kSheets) frames.push_back(measure(sheet, 225.0, 345.0, kMove, kRipple));
  kestrane::KESTRANE_LASER_FAST_CALIB calib;
  check(calib.fast_calib(frames, 0, kPlanes - 1) == KESTRANE_ERR_NOT_READY, "call before init");
  check(calib.init() == KESTRANE_OK, "fast init");
  check(calib.set_laser_plane_standard(factory.table.infos) == KESTRANE_OK,
        "set_laser_plane_standard");
  check(calib.fast_calib(frames, 0, kPlanes - 1) == KESTRANE_OK, "fast_calib");
  _MRV_TRANSFORM motion = {};
  double mean = 0.0, max = 0.0, deviation = 0.0;
  check(calib.get_transform_param(motion) == KESTRANE_OK, "get_transform_param");
  check(calib.get_calib_indicator(mean, max, deviation) == KESTRANE_OK, "get_calib_indicator");
  check_near(Eigen::Map<const Eigen::Vector4d>(motion.quaternion).norm(), 1.0, 1e-12,
             "length of the quaternion");
  // All that is left is the ripple, seen along the normal of a slightly tilted sheet.
  check_near(mean, kRipple * 0.99, 1e-3, "mean distance after the fast calibration");

  const double* q = motion.quaternion;
  const Eigen::Matrix3d rotation = Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix();
  const Eigen::Vector3d translation = Eigen::Map<const Eigen::Vector3d>(motion.translation);
  for (int p = 0; p < kPlanes; ++p) {
    const Eigen::Vector3d on_sheet(kSheets[p].x(280.0), 0.0, 280.0);
    const Eigen::Vector3d moved = rotation * on_sheet + translation;
    check_near(moved.x() - kSheets[p].x(moved.z()), kMove, 2e-3, "move along x");
  }
}

// A model that predicts what was measured stays what it is; files give it back to the last bit.
void coefficient_job(Factory& factory, const std::string& folder) {
  constexpr double kCondition = 30.0;
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER source_owner, result_owner, read_owner;
  kestrane::_COMPENSATOR_COEFFS *source = nullptr, *result = nullptr, *read = nullptr;
  check(source_owner.init(kPlanes) == KESTRANE_OK, "coefficients init");
  check(result_owner.init(kPlanes) == KESTRANE_OK, "coefficients init");
  check(read_owner.init(kPlanes) == KESTRANE_OK, "coefficients init");
  check(source_owner.get_compensator_coeffs(kPlanes, source) == KESTRANE_OK, "coefficients");
  check(result_owner.get_compensator_coeffs(kPlanes, result) == KESTRANE_OK, "coefficients");
  check(read_owner.get_compensator_coeffs(kPlanes, read) == KESTRANE_OK, "coefficients");
  const auto model_of = [](kestrane::_COMPENSATOR_COEFFS* record, int p) {
    return record->opt_coeffs->planes[p].lines[7].cells[10].v;
  };
  for (int p = 0; p < kPlanes; ++p) {
    // Every block counts as measured, and every reading lies beyond what a reading may pull.
    for (int j = 0; j < kLines; ++j) {
      for (int k = 0; k < kCells; ++k) factory.indicators.planes[p].lines[j].cells[k].v[1] = 1.0;
    }
    for (int i = 0; i < 16; ++i) {
      for (int k = 0; k < 51; ++k) {
        const double x = factory.corners.planes[p].lines[i].cells[k].v[0] - 1.0;
        source->opt_coeffs->planes[p].lines[i].cells[k] = {{0.0, 1.0, -x}};
      }
    }
  }
  kestrane::KestraneLaserFastCalibrator engine;
  check(engine.calib(factory.indicators, factory.corners, kCondition, *source, *result) ==
            KESTRANE_OK,
        "calib");
  for (int p = 0; p < kPlanes; ++p) {
    const double* old_model = model_of(source, p);
    const double* new_model = model_of(result, p);
    const double moved =
        -(new_model[0] * kCondition + new_model[2]) / new_model[1] + old_model[2] / old_model[1];
    // One sample of eleven, 0.01 off, near the middle of the ten: a bit above 0.01 / 11.
    check_near(moved, 0.01 / 11.0, 1e-4, "move of a model");
    check(std::memcmp(source->opt_coeffs->planes[p].lines[15].cells,
                      result->opt_coeffs->planes[p].lines[15].cells, sizeof(double) * 3 * 51) == 0,
          "model of a corner that belongs to no block");
  }
  const std::string path = folder + "/coefficients.bin";
  check(kestrane::save_compensator_coeffs(*result, path) == KESTRANE_OK, "save coefficients");
  check(kestrane::read_compensator_coeffs(path, *read) == KESTRANE_OK, "read coefficients");
  for (int p = 0; p < kPlanes; ++p) {
    check(std::memcmp(model_of(result, p), model_of(read, p), sizeof(double) * 3) == 0,
          "model from the file");
  }
}

void table_file_job(const Factory& factory, const std::string& folder) {
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP written, read;
  check(written.init(kPlanes) == KESTRANE_OK && read.init(kPlanes) == KESTRANE_OK, "table init");
  for (int p = 0; p < kPlanes; ++p) {
    for (int j = 0; j < kLines; ++j) {
      std::copy_n(factory.table.infos.planes[p].block.lines[j].cells, kCells,
                  written.planes[p].block.lines[j].cells);
    }
  }
  const std::string path = folder + "/planes.txt";
  check(kestrane::save_plane_block_infos(written, path) == KESTRANE_OK, "save table");
  check(kestrane::read_plane_block_infos(path, read) == KESTRANE_OK, "read table");
  for (int p = 0; p < kPlanes; ++p) {
    const double* cell = read.planes[p].block.lines[14].cells[49].v;
    const double a = kSheets[p].plane()[0];
    check_near(cell[0], a, std::abs(a) * 1e-5, "cell from the file");
  }
}

void other_owners() {
  kestrane::LASER_GRID_PLANE_GROUPS_MANAGER groups;
  kestrane::_LASER_GRID_PLANE_GROUPS* record = nullptr;
  check(groups.init(2, 3) == KESTRANE_OK, "groups init");
  check(groups.get_laser_grid_plane_groups(2, 3, record) == KESTRANE_OK, "groups");
  check(record->groups[1]->plane_count == 3, "planes of a group");
  kestrane::LASER_PLANE_GRID_OPT_COEFFS_MANAGER coeffs;
  check(coeffs.init(1) == KESTRANE_OK && coeffs.plane_capacity == 1, "coefficient table");
  morvia::MORVIA_LASER_PLANE_CONTAINER words = {{1, 2, 3, 4}}, copy = {};
  copy = words;
  check(copy.words[3] == 4, "four words");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string folder = argc > 1 ? argv[1] : ".";
  Factory factory;
  factory_job(factory);
  compensation_job(factory);
  residual_job(factory);
  fast_job(factory);
  table_file_job(factory, folder);
  coefficient_job(factory, folder);
  optimised_factory_job();
  other_owners();
  std::printf("consumer: %s\n", failures == 0 ? "all numbers are right" : "failed");
  return failures == 0 ? 0 : 1;
}
