// A host that was compiled for one release and meets the next one: it works on with the same
// numbers while the library's package is upgraded, and when it is started again.
//
//   host keep <file>         one round of all jobs; keeps its numbers in the file
//   host hold <file>         one round; its numbers have to be those of the file
//   host work <file> <end>   rounds until there is a file <end>, each held against the file and
//                            against the first round; one line a round
//
// Small files of the rounds lie beside <file>. Only what the first release has is used here.
#include <sys/stat.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "kestrane/files.h"
#include "kestrane/records.h"

namespace {

constexpr int kPlanes = 4;
constexpr int kLines = 15;
constexpr int kCells = 50;
constexpr std::size_t kBlocks = std::size_t{kLines} * kCells;

// What a release may change in a calibration: rounding of fits and of the solver.
constexpr double kRounding = 1e-8;

// How far a number may be from what another release, or another round, has made of it.
enum class Kind {
  kFixed,   // the order of operations is fixed: equal bits everywhere
  kFitted,  // equal bits in every round of one release, rounding between two
  kSolved   // rounding: the first release's solver had threads
};

struct Numbers {
  std::vector<double> fixed, fitted, solved;

  std::vector<double>& of(Kind kind) {
    return kind == Kind::kFixed ? fixed : kind == Kind::kFitted ? fitted : solved;
  }
};

int failures = 0;

void check(bool holds, const char* what) {
  if (holds) return;
  std::printf("wrong: %s\n", what);
  ++failures;
}

// A sheet x = at + tilt z + slope y.
struct Sheet {
  double at, tilt, slope;

  double x(double y, double z) const { return at + tilt * z + slope * y; }
};

constexpr Sheet kSheets[kPlanes] = {
    {110.0, -0.12, 0.01}, {125.0, -0.14, -0.02}, {140.0, -0.16, 0.02}, {155.0, -0.18, -0.01}};

// 12,000 points over the fan, 20 frames of parallel lines, with noise that depends on nothing but
// the place in the list.
std::vector<_KESTRANE_ID_POINT3D> measure(const Sheet& sheet, double from, double to, double move) {
  std::vector<_KESTRANE_ID_POINT3D> points;
  std::uint32_t state = 12345;
  for (int n = 0; n < 12000; ++n) {
    const double degrees = -29.9 + 59.8 * (n % 600) / 599.0;
    const double z = from + (to - from) * (n / 600) / 19.0;
    const double y = z * std::tan(degrees * 3.14159265358979323846 / 180.0);
    state = state * 1664525U + 1013904223U;
    const double noise = 0.1 * (state / 4294967296.0 - 0.5);
    points.push_back({sheet.x(y, z) + move + noise, y, z, n / 600});
  }
  return points;
}

// A host's memory for a plane table, with the fan's grid and no plane in any cell.
struct Table {
  Table() : cells(kPlanes * kBlocks), lines(std::size_t{kPlanes} * kLines), rows(kPlanes) {
    wire();
    kestrane::KESTRANE_LASER_FAC_CALIB empty;
    check(empty.init() == KESTRANE_OK, "factory init");
    check(empty.get_laser_plane_infos(infos) == KESTRANE_OK, "grid of the fan");
    wire();  // an uncalibrated row has no lines
  }
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  void wire() {
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

void keep(std::vector<double>& numbers, const std::vector<kestrane::_LASER_TRIPLE>& cells) {
  for (const auto& cell : cells) numbers.insert(numbers.end(), cell.v, cell.v + 3);
}

// The bytes of a file as numbers: files have to be equal byte for byte.
void keep_file(std::vector<double>& numbers, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::transform(std::istreambuf_iterator<char>(file), {}, std::back_inserter(numbers),
                 [](char c) { return static_cast<double>(c); });
}

// The true sheets, so that what follows has the same input whatever the release.
void fill(Table& table) {
  for (std::size_t n = 0; n < table.cells.size(); ++n) {
    const Sheet& sheet = kSheets[n / kBlocks];
    const double at = sheet.at + 1e-4 * static_cast<double>(n % kBlocks);
    table.cells[n] = {{-1.0 / at, sheet.slope / at, sheet.tilt / at}};
  }
}

void factory(Numbers& numbers) {
  Table table;
  kestrane::KESTRANE_LASER_FAC_CALIB calib;
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  check(calib.init() == KESTRANE_OK && indicators.init(kPlanes) == KESTRANE_OK &&
            corners.init(kPlanes) == KESTRANE_OK,
        "factory init");
  for (int p = 0; p < kPlanes; ++p) {
    auto points = measure(kSheets[p], 120.0, 990.0, 0.0);
    const _KESTRANE_ID_POINT3DS cloud = {points.data(), static_cast<std::int32_t>(points.size())};
    check(calib.factory_calib(p, cloud) == KESTRANE_OK, "factory_calib");
    check(calib.get_indicators(p, indicators, corners) == KESTRANE_OK, "get_indicators");
    for (int i = 0; i < 16; ++i) {
      for (int k = 0; k < 51; ++k) {
        const double* corner = corners.planes[p].lines[i].cells[k].v;
        numbers.fitted.insert(numbers.fitted.end(), corner, corner + 3);
      }
    }
    for (int j = 0; j < kLines; ++j) {
      for (int k = 0; k < kCells; ++k) {
        const double* figures = indicators.planes[p].lines[j].cells[k].v;
        numbers.fitted.insert(numbers.fitted.end(), figures, figures + 3);
      }
    }
  }
  check(calib.get_laser_plane_infos(table.infos) == KESTRANE_OK, "get_laser_plane_infos");
  keep(numbers.fitted, table.cells);
}

void compensation(Numbers& numbers, Table& table) {
  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  _KESTRANE_COMPENSATE_PARAM condition = {};
  condition.temperature = 31.0;
  condition.temperature_ref = 20.0;
  condition.scale_per_degree = 1.2e-5;
  const _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {100.0, 3.0, 20.0}};
  check(compensator.init() == KESTRANE_OK, "compensator init");
  check(compensator.set_laser_plane_param(table.infos) == KESTRANE_OK, "set_laser_plane_param");
  check(compensator.set_extrinsic_matrix(extrinsic) == KESTRANE_OK, "set_extrinsic_matrix");
  check(compensator.set_compensate_param(condition, 0, kPlanes) == KESTRANE_OK,
        "set_compensate_param");
  check(compensator.compensate(0, kPlanes) == KESTRANE_OK, "compensate");
  Table out;
  check(compensator.get_compensate_result(out.infos) == KESTRANE_OK, "get_compensate_result");
  keep(numbers.fixed, out.cells);
}

void field(Numbers& numbers, Table& table) {
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> frames;
  for (const Sheet& sheet : kSheets) frames.push_back(measure(sheet, 225.0, 345.0, 0.15));
  kestrane::KESTRANE_LASER_FAST_CALIB calib;
  check(calib.init() == KESTRANE_OK, "fast init");
  check(calib.set_laser_plane_standard(table.infos) == KESTRANE_OK, "set_laser_plane_standard");
  check(calib.fast_calib(frames, 0, kPlanes - 1) == KESTRANE_OK, "fast_calib");
  double figures[3] = {};
  check(calib.get_calib_indicator(figures[0], figures[1], figures[2]) == KESTRANE_OK,
        "get_calib_indicator");
  numbers.solved.insert(numbers.solved.end(), figures, figures + 3);
  _MRV_TRANSFORM motion = {};
  check(calib.get_transform_param(motion) == KESTRANE_OK, "get_transform_param");
  const double* q = motion.quaternion;
  const Eigen::Matrix3d rotation = Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix();
  // Where it carries the sheets; along them the motion is not fixed.
  for (const Sheet& sheet : kSheets) {
    const Eigen::Vector3d moved =
        rotation * Eigen::Vector3d(sheet.x(0.0, 280.0), 0.0, 280.0) +
        Eigen::Vector3d(motion.translation[0], motion.translation[1], motion.translation[2]);
    numbers.solved.push_back(moved[0] - sheet.x(moved[1], moved[2]));
  }
}

void residuals(Numbers& numbers, Table& table) {
  kestrane::KestraneLaserFastCalibrator engine;
  check(engine.init() == KESTRANE_OK, "engine init");
  check(engine.set_laser_plane_standard(table.infos) == KESTRANE_OK, "set_laser_plane_standard");
  std::vector<Eigen::Matrix<double, 3, -1>> points(kPlanes);
  for (int p = 0; p < kPlanes; ++p) {
    const auto measured = measure(kSheets[p], 200.0, 900.0, 0.1);
    auto& matrix = points[static_cast<std::size_t>(p)];
    matrix.resize(3, 600);
    for (Eigen::Index n = 0; n < 600; ++n) {
      const auto& point = measured[static_cast<std::size_t>(20 * n)];
      matrix.col(n) = Eigen::Vector3d(point.x, point.y, point.z);
    }
  }
  std::vector<std::vector<double>> distances(kPlanes);
  engine.cal_residual(points, 0, kPlanes - 1, {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0.01, 0, 0}},
                      distances);
  for (const auto& row : distances) {
    numbers.fixed.insert(numbers.fixed.end(), row.begin(), row.end());
  }
}

// Models follow corners of the true sheets; both files, written and read.
void coefficients_and_files(Numbers& numbers, Table& table, const std::string& beside) {
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER owners[3];
  kestrane::_COMPENSATOR_COEFFS* records[3] = {};
  check(indicators.init(kPlanes) == KESTRANE_OK && corners.init(kPlanes) == KESTRANE_OK, "init");
  for (int n = 0; n < 3; ++n) {
    check(owners[n].init(kPlanes) == KESTRANE_OK &&
              owners[n].get_compensator_coeffs(kPlanes, records[n]) == KESTRANE_OK,
          "coefficients init");
  }
  for (int p = 0; p < kPlanes; ++p) {
    for (int j = 0; j < kLines; ++j) {
      for (int k = 0; k < kCells; ++k) indicators.planes[p].lines[j].cells[k].v[1] = 0.01;
    }
    for (int i = 0; i < 16; ++i) {
      for (int k = 0; k < 51; ++k) {
        const double z = 150.0 + 27.0 * k;
        const double x = kSheets[p].x(0.07 * (i - 7.5) * z, z);
        corners.planes[p].lines[i].cells[k] = {{x + 0.02, 0.07 * (i - 7.5) * z, z}};
        records[0]->opt_coeffs->planes[p].lines[i].cells[k] = {{-0.001, 1.0, -x}};
      }
    }
  }
  kestrane::KestraneLaserFastCalibrator engine;
  check(engine.calib(indicators, corners, 28.0, *records[0], *records[1]) == KESTRANE_OK, "calib");
  check(kestrane::save_compensator_coeffs(*records[1], beside + ".coeffs") == KESTRANE_OK, "save");
  check(kestrane::read_compensator_coeffs(beside + ".coeffs", *records[2]) == KESTRANE_OK, "read");
  for (int p = 0; p < kPlanes; ++p) {
    for (int i = 0; i < 16; ++i) {
      const auto& line = records[2]->opt_coeffs->planes[p].lines[i];
      for (int k = 0; k < line.count; ++k) {
        numbers.fixed.insert(numbers.fixed.end(), line.cells[k].v, line.cells[k].v + 3);
      }
    }
  }

  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP written;
  check(written.init(kPlanes) == KESTRANE_OK, "table init");
  for (int p = 0; p < kPlanes; ++p) {
    for (int j = 0; j < kLines; ++j) {
      std::copy_n(table.rows[static_cast<std::size_t>(p)].block.lines[j].cells, kCells,
                  written.planes[p].block.lines[j].cells);
    }
  }
  check(kestrane::save_plane_block_infos(written, beside + ".table") == KESTRANE_OK, "save");
  keep_file(numbers.fixed, beside + ".table");
  keep_file(numbers.fixed, beside + ".coeffs");
}

Numbers one_round(const std::string& beside) {
  Numbers numbers;
  factory(numbers);
  Table table;
  fill(table);
  compensation(numbers, table);
  field(numbers, table);
  residuals(numbers, table);
  coefficients_and_files(numbers, table, beside);
  return numbers;
}

bool equal_bits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

double farthest(const std::vector<double>& a, const std::vector<double>& b) {
  if (a.size() != b.size()) return HUGE_VAL;
  double largest = 0.0;
  for (std::size_t n = 0; n < a.size(); ++n) {
    const double apart = std::abs(a[n] - b[n]);
    if (!(apart <= largest)) largest = std::isnan(apart) ? HUGE_VAL : apart;
  }
  return largest;
}

void save(Numbers numbers, const std::string& path) {
  std::ofstream file(path, std::ios::binary);
  for (const Kind kind : {Kind::kFixed, Kind::kFitted, Kind::kSolved}) {
    const std::vector<double>& values = numbers.of(kind);
    const std::size_t count = values.size();
    file.write(reinterpret_cast<const char*>(&count), sizeof count);
    file.write(reinterpret_cast<const char*>(values.data()),
               static_cast<std::streamsize>(count * sizeof(double)));
  }
  check(file.good(), "numbers kept");
}

Numbers read(const std::string& path) {
  Numbers numbers;
  std::ifstream file(path, std::ios::binary);
  for (const Kind kind : {Kind::kFixed, Kind::kFitted, Kind::kSolved}) {
    std::size_t count = 0;
    file.read(reinterpret_cast<char*>(&count), sizeof count);
    if (!file) break;
    numbers.of(kind).resize(count);
    file.read(reinterpret_cast<char*>(numbers.of(kind).data()),
              static_cast<std::streamsize>(count * sizeof(double)));
  }
  check(file.good() && !numbers.solved.empty(), "numbers read");
  return numbers;
}

void hold(const Numbers& found, const Numbers& kept) {
  check(equal_bits(found.fixed, kept.fixed), "a number whose operations have a fixed order");
  const double fitted = farthest(found.fitted, kept.fitted);
  const double solved = farthest(found.solved, kept.solved);
  check(fitted <= kRounding, "a number of a fit");
  check(solved <= kRounding, "a number of the solver");
  std::printf("%zu fixed, %zu fitted (%.1e apart), %zu solved (%.1e apart)\n", found.fixed.size(),
              found.fitted.size(), fitted, found.solved.size(), solved);
}

bool exists(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string order = argc > 1 ? argv[1] : "";
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (order == "keep" && argc == 3) {
    save(one_round(argv[2]), argv[2]);
  } else if (order == "hold" && argc == 3) {
    hold(one_round(std::string(argv[2]) + ".again"), read(argv[2]));
  } else if (order == "work" && argc == 4) {
    const Numbers kept = read(argv[2]);
    const Numbers first = one_round(std::string(argv[2]) + ".work");
    while (!exists(argv[3])) {
      const Numbers round = one_round(std::string(argv[2]) + ".work");
      check(equal_bits(round.fitted, first.fitted), "a round of a fit");
      hold(round, kept);
    }
  } else {
    std::printf("host keep <file> | hold <file> | work <file> <end>\n");
    return 2;
  }
  return failures == 0 ? 0 : 1;
}
