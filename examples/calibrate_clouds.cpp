// Calibrates the laser planes whose measured clouds stand in a CSV file, and tells how well, and
// what the status of a calibration does not tell: sectors of the fan without enough points of their
// own, and an optimisation that changed nothing. With a stored table the clouds are field
// measurements: it finds the motion between table and device, and tells what of it to trust.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "examples/arguments.h"
#include "examples/cloud_csv.h"
#include "examples/field_clouds.h"
#include "kestrane/buffers.h"
#include "kestrane/factory_calib.h"
#include "simulation/host_table.h"

namespace {

using examples::PlaneCloud;
using simulation::HostTable;

constexpr char kUsage[] =
    "usage: calibrate_clouds [--optimise] [--far] [--save TABLE] FILE\n"
    "       calibrate_clouds --standard TABLE FILE\n"
    "  FILE              CSV with the header plane,frame,x,y,z; up to 100 planes, rows in any "
    "order\n"
    "  --optimise        refine the grid corners against the points of each cell\n"
    "  --far             take depths 220 to 1000 instead of 100 to 1000\n"
    "  --save TABLE      write the table to a text file, its planes in ascending order\n"
    "  --standard TABLE  calibrate in the field, against the planes of that table in the same "
    "order\n"
    "Exit status 0: every plane was calibrated; 1: not so; 2: the command line was not "
    "understood.\n";

struct Options {
  std::string path;
  std::string save;      // where the table goes; empty for nowhere
  std::string standard;  // the stored table; empty for a factory calibration
  bool optimise = false;
  bool far = false;
};

// A calibrator with memory for the figures of its latest plane.
struct Calibration {
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;

  bool prepare(kestrane::_LASER_TYPE type, kestrane::_KESTRANE_OPTIM_FLAG flag) {
    return calibrator.init() == KESTRANE_OK && calibrator.set_laser_type(type) == KESTRANE_OK &&
           calibrator.set_optimize_flag(flag) == KESTRANE_OK && indicators.init(1) == KESTRANE_OK &&
           corners.init(1) == KESTRANE_OK;
  }

  // Row of the table for the plane; its figures always go to row 0.
  _KESTRANE_STATUS run(int row, PlaneCloud& cloud) {
    const auto count = static_cast<std::int32_t>(cloud.points.size());
    const _KESTRANE_STATUS status = calibrator.factory_calib(row, {cloud.points.data(), count});
    if (status != KESTRANE_OK) return status;
    return calibrator.get_indicators(0, indicators, corners);
  }
};

// What the figures of a plane's cells add up to. Distances are those of a cell's points to the
// cell's plane.
struct CellFigures {
  std::vector<int> borrowed;  // sectors without a measured cell: they took a neighbour's plane
  int cells = 0;              // measured cells
  double offset = 0.0;        // mean size of the cells' mean distances
  double deviation = 0.0;     // mean of their standard deviations
  double largest = 0.0;       // largest signed distance
};

CellFigures add_up(const kestrane::_LASER_LINES_INFOS& indicators) {
  CellFigures figures;
  for (int j = 0; j < indicators.count; ++j) {
    const int before = figures.cells;
    for (int k = 0; k < indicators.lines[j].count; ++k) {
      const double* v = indicators.lines[j].cells[k].v;
      if (v[0] == 0.0 && v[1] == 0.0 && v[2] == 0.0) continue;
      figures.largest = figures.cells == 0 ? v[0] : std::max(figures.largest, v[0]);
      figures.offset += std::abs(v[1]);
      figures.deviation += v[2];
      ++figures.cells;
    }
    if (figures.cells == before) figures.borrowed.push_back(j);
  }
  if (figures.cells > 0) {
    figures.offset /= figures.cells;
    figures.deviation /= figures.cells;
  }
  return figures;
}

// How many corners two tables do not share, and the largest change of x.
struct CornerChange {
  int moved = 0;
  int all = 0;
  double largest = 0.0;
};

CornerChange compare(const kestrane::_LASER_LINES_INFOS& from,
                     const kestrane::_LASER_LINES_INFOS& to) {
  CornerChange change;
  for (int i = 0; i < from.count; ++i) {
    for (int k = 0; k < from.lines[i].count; ++k) {
      const double move = std::abs(to.lines[i].cells[k].v[0] - from.lines[i].cells[k].v[0]);
      ++change.all;
      if (move == 0.0) continue;
      ++change.moved;
      change.largest = std::max(change.largest, move);
    }
  }
  return change;
}

// 0, 1, 2, 7 as "0-2, 7".
std::string as_runs(const std::vector<int>& numbers) {
  std::string text;
  for (std::size_t i = 0; i < numbers.size();) {
    std::size_t last = i;
    while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) ++last;
    if (!text.empty()) text.append(", ");
    text.append(std::to_string(numbers[i]));
    if (last > i) text.append(1, '-').append(std::to_string(numbers[last]));
    i = last + 1;
  }
  return text;
}

const char* meaning(_KESTRANE_STATUS status) {
  if (status == KESTRANE_OK) return "ok";
  if (status == KESTRANE_ERR_FAILED) {
    return "failed: too few points in the depth band or in every sector, or a plane through the "
           "origin";
  }
  return "refused";
}

void report_points(const PlaneCloud& cloud) {
  const auto dropped = std::count_if(cloud.points.begin(), cloud.points.end(),
                                     [](const auto& point) { return std::isnan(point.x); });
  std::printf("  points      %zu", cloud.points.size());
  if (dropped > 0) std::printf(", %d of them dropped", static_cast<int>(dropped));
  std::printf("\n");
}

void report_figures(const CellFigures& figures) {
  const int sectors = HostTable::kLines - static_cast<int>(figures.borrowed.size());
  std::printf("  sectors     %d of %d populated\n", sectors, HostTable::kLines);
  if (!figures.borrowed.empty()) {
    std::printf("  borrowed    %s: too few points of their own, a neighbour's plane stands there\n",
                as_runs(figures.borrowed).c_str());
  }
  std::printf("  cells       %d of %d populated\n", figures.cells,
              HostTable::kLines * HostTable::kCells);
  std::printf(
      "  residuals   cell mean %.4f, standard deviation %.4f (averages), largest signed %.4f\n",
      figures.offset, figures.deviation, figures.largest);
}

void report_change(const CornerChange& change) {
  if (change.moved == 0) {
    std::printf("  optimised   moved no corner: the table is the same as without it\n");
  } else {
    std::printf("  optimised   moved %d of %d corners, by %.4f at most\n", change.moved, change.all,
                change.largest);
  }
}

// The plane a x + b y + c z + 1 = 0 as normal and distance from the origin along it.
void report_plane(const double* abc) {
  const double size = std::sqrt(abc[0] * abc[0] + abc[1] * abc[1] + abc[2] * abc[2]);
  std::printf("  plane       normal (%.4f, %.4f, %.4f), distance %.3f\n", -abc[0] / size,
              -abc[1] / size, -abc[2] / size, 1.0 / size);
}

// --- The run ------------------------------------------------------------------------------------

bool calibrate(const Options& options, int row, PlaneCloud& cloud, Calibration& chosen,
               Calibration& plain) {
  const _KESTRANE_STATUS status = chosen.run(row, cloud);
  std::printf("plane %d\n", static_cast<int>(cloud.plane));
  std::printf("  status      %d, %s\n", static_cast<int>(status), meaning(status));
  report_points(cloud);
  if (status != KESTRANE_OK) return false;
  report_figures(add_up(chosen.indicators.planes[0]));
  if (options.optimise) {
    if (plain.run(row, cloud) != KESTRANE_OK) return false;
    report_change(compare(plain.corners.planes[0], chosen.corners.planes[0]));
  }
  HostTable table(row + 1);
  if (chosen.calibrator.get_laser_plane_infos(table.infos()) != KESTRANE_OK) return false;
  report_plane(table.infos().planes[row].laser_plane_R);
  return true;
}

bool calibrate_all(const Options& options, std::vector<PlaneCloud>& clouds) {
  const auto type = options.far ? kestrane::LASER_TYPE_FAR : kestrane::LASER_TYPE_STANDARD;
  Calibration chosen;
  Calibration plain;
  if (!chosen.prepare(
          type, options.optimise ? kestrane::KESTRANE_OPTIM_ON : kestrane::KESTRANE_OPTIM_OFF) ||
      !plain.prepare(type, kestrane::KESTRANE_OPTIM_OFF)) {
    std::fprintf(stderr, "the calibrator could not be prepared\n");
    return false;
  }
  bool all = true;
  for (std::size_t p = 0; p < clouds.size(); ++p) {
    all = calibrate(options, static_cast<int>(p), clouds[p], chosen, plain) && all;
  }
  if (!all || options.save.empty()) return all;
  HostTable table(static_cast<int>(clouds.size()));
  return chosen.calibrator.get_laser_plane_infos(table.infos()) == KESTRANE_OK &&
         examples::save_table(table.infos(), options.save);
}

bool read_file(const Options& options, std::vector<PlaneCloud>& planes) {
  examples::Clouds clouds = examples::read_clouds(options.path);
  planes = std::move(clouds.planes);
  if (clouds.error.empty()) return true;
  if (clouds.error_line > 0) {
    std::fprintf(stderr, "%s: line %lld: %s\n", options.path.c_str(),
                 static_cast<long long>(clouds.error_line), clouds.error.c_str());
  } else {
    std::fprintf(stderr, "%s: %s\n", options.path.c_str(), clouds.error.c_str());
  }
  return false;
}

// The word after an option; false, with a complaint, when there is none.
bool read_path(examples::Arguments& arguments, std::string_view option, std::string& path) {
  const auto word = arguments.next();
  if (word && !word->empty()) {
    path = *word;
    return true;
  }
  std::fprintf(stderr, "%s takes a path\n", std::string(option).c_str());
  return false;
}

// Exit status for a command line that asks for no calibration; none to go on.
std::optional<int> read_options(int argc, char** argv, Options& options) {
  examples::Arguments arguments(argc, argv);
  bool understood = true;
  while (const auto name = arguments.next()) {
    if (*name == "--help") {
      std::fputs(kUsage, stdout);
      return examples::kExitOk;
    }
    if (*name == "--optimise") {
      options.optimise = true;
    } else if (*name == "--far") {
      options.far = true;
    } else if (*name == "--save") {
      understood = read_path(arguments, *name, options.save) && understood;
    } else if (*name == "--standard") {
      understood = read_path(arguments, *name, options.standard) && understood;
    } else if (name->starts_with("--") || name->empty() || !options.path.empty()) {
      std::fprintf(stderr, "unknown argument: %s\n", std::string(*name).c_str());
      understood = false;
    } else {
      options.path = *name;
    }
  }
  if (!options.standard.empty() && (options.optimise || options.far || !options.save.empty())) {
    std::fprintf(stderr, "--standard stands alone\n");
    understood = false;
  }
  if (understood && !options.path.empty()) return std::nullopt;
  if (understood) std::fprintf(stderr, "no FILE given\n");
  std::fputs(kUsage, stderr);
  return examples::kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const std::optional<int> early = read_options(argc, argv, options);
  if (early) return *early;

  std::vector<PlaneCloud> clouds;
  if (!read_file(options, clouds)) return examples::kExitFailed;
  const bool calibrated = options.standard.empty()
                              ? calibrate_all(options, clouds)
                              : examples::calibrate_field(options.standard, clouds);
  return calibrated ? examples::kExitOk : examples::kExitFailed;
}
