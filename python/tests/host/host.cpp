// A host in C++ that does what the tests do in Python, from the same files, and leaves its results
// as plain numbers: what Python hands out has to equal them to the bit.
//
//   host layout                                   offsets of the point's fields, on standard output
//   host <job> <folder>                           reads and writes files of that folder
//
// In    cloud_<p>.bin  the points of plane p, as they lie in memory; frames_<p>.bin of the field
//       arguments.txt  numbers of the job, one a line
// Out   <name>.<type>  numbers of one kind: f8, i8, i4, u1; <name>.txt a line each
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

#include "kestrane/compensator.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "kestrane/files.h"
#include "kestrane/quality/coefficients.h"
#include "kestrane/quality/difference.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/findings.h"
#include "kestrane/quality/refinement.h"
#include "kestrane/quality/storage.h"

namespace {

using namespace kestrane;           // NOLINT: a host's own program
using namespace kestrane::quality;  // NOLINT
using Points = std::vector<_KESTRANE_ID_POINT3D>;

std::string folder;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "host: %s\n", what.c_str());
  std::exit(1);
}

void require(_KESTRANE_STATUS status, const char* what) {
  if (status != KESTRANE_OK) fail(std::string(what) + " gave " + std::to_string(status));
}

template <class T>
const char* type_of() {
  if (std::is_same_v<T, double>) return "f8";
  if (std::is_same_v<T, std::int64_t>) return "i8";
  if (std::is_same_v<T, std::int32_t>) return "i4";
  return "u1";
}

template <class T>
void write(const std::string& name, const T* values, std::size_t count) {
  std::ofstream out(folder + "/" + name + "." + type_of<T>(), std::ios::binary);
  out.write(reinterpret_cast<const char*>(values), static_cast<std::streamsize>(count * sizeof(T)));
  if (!out) fail("cannot write " + name);
}
template <class T>
void write(const std::string& name, const std::vector<T>& values) {
  write(name, values.data(), values.size());
}
void write(const std::string& name, const std::vector<_LASER_TRIPLE>& triples) {
  write(name, reinterpret_cast<const double*>(triples.data()), triples.size() * 3);
}
void write(const std::string& name, const std::vector<std::string>& lines) {
  std::ofstream out(folder + "/" + name + ".txt");
  for (const std::string& line : lines) out << line << '\n';
}

// One field of every record of a list.
template <class T, class List, class Field>
void column(const std::string& name, const List& list, Field field) {
  std::vector<T> values;
  for (const auto& record : list) values.push_back(static_cast<T>(field(record)));
  write(name, values);
}

Points read_points(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) fail("cannot open " + path);
  Points points(static_cast<std::size_t>(in.tellg()) / sizeof(_KESTRANE_ID_POINT3D));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(points.data()),
          static_cast<std::streamsize>(points.size() * sizeof(_KESTRANE_ID_POINT3D)));
  if (!in) fail("cannot read " + path);
  return points;
}

std::vector<PointList> read_lists(const std::string& kind) {
  std::vector<PointList> lists;
  for (int p = 0;; ++p) {
    const std::string path = folder + "/" + kind + "_" + std::to_string(p) + ".bin";
    if (!std::ifstream(path)) break;
    lists.push_back(read_points(path));
  }
  if (lists.empty()) fail("no " + kind);
  return lists;
}

std::vector<double> arguments() {
  std::ifstream in(folder + "/arguments.txt");
  return {std::istream_iterator<double>(in), std::istream_iterator<double>()};
}

void write_table(const std::string& name, const PlaneTable& table) {
  write(name + ".cells", table.data(), table.size());
  std::vector<double> whole;
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    whole.insert(whole.end(), table.whole_plane(p), table.whole_plane(p) + 3);
  }
  write(name + ".whole", whole);
}

// Every cloud through the job, and what it hands out for each; returns how many they are.
std::int32_t calibrate_all(KESTRANE_LASER_FAC_CALIB& job, const std::vector<PointList>& clouds,
                           LASER_PLANE_INDICATOR_MANAGER& indicators,
                           LASER_PLANE_GRID_CORNERS_MANAGER& corners) {
  const auto planes = static_cast<std::int32_t>(clouds.size());
  require(indicators.init(planes), "indicators");
  require(corners.init(planes), "corners");
  const auto records = clouds_of(clouds);
  for (std::int32_t p = 0; p < planes; ++p) {
    require(job.factory_calib(p, records[static_cast<std::size_t>(p)]), "factory_calib");
    require(job.get_indicators(p, indicators, corners), "get_indicators");
  }
  return planes;
}

// The table that the plain job makes of the clouds.
PlaneTable calibrate(const std::vector<PointList>& clouds, bool optimise) {
  KESTRANE_LASER_FAC_CALIB job;
  require(job.init(), "init");
  require(job.set_optimize_flag(optimise ? KESTRANE_OPTIM_ON : KESTRANE_OPTIM_OFF), "flag");
  LASER_PLANE_INDICATOR_MANAGER indicators;
  LASER_PLANE_GRID_CORNERS_MANAGER corners;
  const std::int32_t planes = calibrate_all(job, clouds, indicators, corners);
  PlaneTable table(planes);
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
  require(job.get_laser_plane_infos(record), "get_laser_plane_infos");
  std::vector<_LASER_TRIPLE> figures;
  std::vector<_LASER_TRIPLE> places;
  for (std::int32_t p = 0; p < planes; ++p) {
    for (int j = 0; j < 15; ++j) {
      const _LASER_TRIPLE* cells = indicators.planes[p].lines[j].cells;
      figures.insert(figures.end(), cells, cells + 50);
    }
    for (int j = 0; j < 16; ++j) {
      const _LASER_TRIPLE* cells = corners.planes[p].lines[j].cells;
      places.insert(places.end(), cells, cells + 51);
    }
  }
  write("indicators", figures);
  write("corners", places);
  return table;
}

void factory() {
  const PlaneTable table = calibrate(read_lists("cloud"), arguments().at(0) != 0.0);
  write_table("table", table);
  // As a host without the quality library saves it.
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  require(group.init(table.planes()), "group");
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    for (std::int32_t j = 0; j < 15; ++j) {
      for (std::int32_t k = 0; k < 50; ++k) {
        group.planes[p].block.lines[j].cells[k] = table.cell(p, {j, k});
      }
    }
    for (int i = 0; i < 3; ++i) group.planes[p].laser_plane_R[i] = table.whole_plane(p)[i];
  }
  *group.grids = table.grids();
  require(save_plane_block_infos(group, folder + "/saved_by_host"), "save");
}

void field() {
  const PlaneTable table = calibrate(read_lists("cloud"), false);
  const std::vector<PointList> frames = read_lists("frames");
  const auto last = static_cast<int>(frames.size()) - 1;
  KESTRANE_LASER_FAST_CALIB job;
  require(job.init(), "init");
  require(job.set_laser_plane_standard(table.record()), "standard");
  require(job.fast_calib(frames, 0, last), "fast_calib");
  _MRV_TRANSFORM transform;
  double indicators[3];
  require(job.get_transform_param(transform), "transform");
  require(job.get_calib_indicator(indicators[0], indicators[1], indicators[2]), "indicators");
  write("quaternion", transform.quaternion, 4);
  write("translation", transform.translation, 3);
  write("field_indicators", indicators, 3);

  // The engine's distances of the first list from its plane, moved a little.
  KestraneLaserFastCalibrator engine;
  require(engine.init(), "engine");
  require(engine.set_laser_plane_standard(table.record()), "standard");
  std::vector<Eigen::Matrix<double, 3, -1>> sets(1);
  sets[0].resize(3, static_cast<Eigen::Index>(frames[0].size()));
  for (std::size_t i = 0; i < frames[0].size(); ++i) {
    sets[0].col(static_cast<Eigen::Index>(i)) << frames[0][i].x, frames[0][i].y, frames[0][i].z;
  }
  std::vector<std::vector<double>> residuals(1);
  engine.cal_residual(sets, 0, 0, {{0, -1, 0, 1, 0, 0, 0, 0, 1}, {0.25, -0.5, 1}}, residuals);
  write("residuals", residuals[0]);

  LASER_COMPENSATOR_COEFFS_MANAGER in;
  LASER_COMPENSATOR_COEFFS_MANAGER out;
  _COMPENSATOR_COEFFS* record = nullptr;
  for (LASER_COMPENSATOR_COEFFS_MANAGER* owner : {&in, &out}) {
    require(owner->init(last + 1), "coefficients");
    require(owner->get_compensator_coeffs(last + 1, record), "coefficients");
  }
  in.range_count = 1;
  in.range_first[0] = 0;
  in.range_last[0] = last;
  require(engine.calib_Rt(frames, 0, last, 0.0, in, out), "calib_Rt");
  write("slots", out.Mbs_factory_to_user, 12U * (static_cast<std::size_t>(last) + 1));
}

void compensation() {
  const PlaneTable table = calibrate(read_lists("cloud"), false);
  const std::vector<double> n = arguments();
  const _KESTRANE_COMPENSATE_PARAM param = {n.at(0), n.at(1), n.at(2), n.at(3),
                                            n.at(4), n.at(5), n.at(6), n.at(7)};
  const _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1},
                                          {n.at(8), n.at(9), n.at(10)}};
  const auto first = static_cast<std::int32_t>(n.at(11));
  const auto last = static_cast<std::int32_t>(n.at(12));
  KESTRANE_LASER_COMPENSATOR job;
  require(job.init(), "init");
  require(job.set_laser_plane_param(table.record()), "table");
  require(job.set_extrinsic_matrix(extrinsic), "extrinsic");
  require(job.set_compensate_param(param, first, last), "param");
  require(job.compensate(first, last), "compensate");
  PlaneTable result(table.planes());
  _MRV_LASER_PLANE_BLOCK_INFOS record = result.record();
  require(job.get_compensate_result(record), "result");
  write_table("compensated", result);
}

void coefficients() {
  KESTRANE_LASER_FAC_CALIB job;
  require(job.init(), "init");
  LASER_PLANE_INDICATOR_MANAGER indicators;
  LASER_PLANE_GRID_CORNERS_MANAGER corners;
  const std::int32_t planes = calibrate_all(job, read_lists("cloud"), indicators, corners);
  LASER_COMPENSATOR_COEFFS_MANAGER source;
  LASER_COMPENSATOR_COEFFS_MANAGER result;
  _COMPENSATOR_COEFFS* record = nullptr;
  for (LASER_COMPENSATOR_COEFFS_MANAGER* owner : {&source, &result}) {
    require(owner->init(planes), "coefficients");
    require(owner->get_compensator_coeffs(planes, record), "coefficients");
  }
  for (std::int32_t p = 0; p < planes; ++p) {
    for (int j = 0; j < 16; ++j) {
      for (int k = 0; k < 51; ++k) {
        source.opt_coeffs->planes[p].lines[j].cells[k] = {{0.01 * (j + 1), -1.0, 118.0 + k + p}};
      }
    }
  }
  source.range_count = 1;
  source.range_first[0] = 0;
  source.range_last[0] = planes - 1;
  KestraneLaserFastCalibrator engine;
  require(engine.calib(indicators, corners, arguments().at(0), source, result), "calib");
  save_coefficients(source, folder + "/source_by_host");
  save_coefficients(result, folder + "/result_by_host");
  const TableOfCorners table = table_of(corners_at(result, 30.0));
  if (!table.refused.empty()) fail(table.refused);
  write_table("table_at_30", table.table);
}

void write_judgement(const std::string& name, const Judgement& judgement) {
  std::vector<std::string> lines{judgement.verdict};
  std::vector<double> figures;
  for (const Finding& finding : judgement.findings) {
    lines.push_back(std::string(name_of(finding.level)) + " " + finding.id + " " + finding.text);
    for (const Figure& figure : finding.figures) {
      lines.push_back("  " + figure.name);
      figures.push_back(figure.value);
    }
  }
  write(name, lines);
  write(name, figures);
}

template <class List, class Of>
void write_residuals(const std::string& name, const List& list, Of of) {
  column<std::int64_t>(name + ".points", list, [&](const auto& r) { return of(r).points; });
  column<double>(name + ".rms", list, [&](const auto& r) { return of(r).rms; });
  column<double>(name + ".bias", list, [&](const auto& r) { return of(r).bias; });
  column<double>(name + ".q95", list, [&](const auto& r) { return of(r).q95; });
  column<double>(name + ".q99", list, [&](const auto& r) { return of(r).q99; });
  column<double>(name + ".max", list, [&](const auto& r) { return of(r).max; });
}

void write_planes(const std::vector<PlaneFigures>& planes) {
  using P = PlaneFigures;
  write_residuals("planes", planes, [](const P& p) { return p.residuals; });
  column<double>("planes.median", planes, [](const P& p) { return p.median; });
  column<double>("planes.sigma", planes, [](const P& p) { return p.sigma; });
  column<std::int64_t>("planes.valid", planes, [](const P& p) { return p.valid; });
  column<std::int64_t>("planes.outliers", planes, [](const P& p) { return p.outliers; });
  column<double>("planes.outlier_share", planes, [](const P& p) { return p.outlier_share(); });
  column<double>("planes.coverage", planes, [](const P& p) { return p.coverage; });
  column<std::uint8_t>("planes.borrowed_in_volume", planes,
                       [](const P& p) { return p.borrowed_in_volume; });
  column<double>("planes.seam", planes, [](const P& p) { return p.seam; });
  column<double>("planes.median_seam", planes, [](const P& p) { return p.median_seam; });
  column<double>("planes.repeatability", planes, [](const P& p) { return p.repeatability; });
  column<double>("planes.within_poses", planes, [](const P& p) { return p.within_poses; });
  column<double>("planes.between_poses", planes, [](const P& p) { return p.between_poses; });
  column<std::int32_t>("status", planes, [](const P& p) { return p.status; });
  column<double>("optimisation.largest_move", planes,
                 [](const P& p) { return p.optimisation.largest_move; });
  column<std::int32_t>("optimisation.at_bound", planes,
                       [](const P& p) { return p.optimisation.at_bound; });
  column<double>("optimisation.rms_without", planes,
                 [](const P& p) { return p.optimisation.rms_without; });
  column<double>("optimisation.median_seam_without", planes,
                 [](const P& p) { return p.optimisation.median_seam_without; });
}

void write_lists(const std::vector<PlaneFigures>& planes) {
  std::vector<BlockFigures> blocks;
  std::vector<PoseFigures> poses;
  std::vector<FrameAccount> frames;
  std::vector<WorstPoint> worst;
  std::vector<double> moves;
  std::vector<std::string> reasons;
  for (const PlaneFigures& plane : planes) {
    blocks.insert(blocks.end(), plane.blocks.begin(), plane.blocks.end());
    poses.insert(poses.end(), plane.poses.begin(), plane.poses.end());
    frames.insert(frames.end(), plane.screening.frames.begin(), plane.screening.frames.end());
    worst.insert(worst.end(), plane.screening.worst.begin(), plane.screening.worst.end());
    moves.insert(moves.end(), plane.optimisation.corner_moves.begin(),
                 plane.optimisation.corner_moves.end());
    reasons.push_back(plane.reason);
    if (plane.blocks.empty()) blocks.resize(blocks.size() + 750);
  }
  write("reasons", reasons);
  write("optimisation.corner_moves", moves);
  write_residuals("blocks", blocks, [](const BlockFigures& b) { return b.residuals; });
  column<double>("blocks.seam", blocks, [](const auto& b) { return b.seam; });
  column<double>("blocks.repeatability", blocks, [](const auto& b) { return b.repeatability; });
  column<std::uint8_t>("blocks.origin", blocks, [](const auto& b) { return b.origin; });
  column<std::int32_t>("poses.frame", poses, [](const auto& f) { return f.frame; });
  column<std::int64_t>("poses.points", poses, [](const auto& f) { return f.points; });
  column<double>("poses.median", poses, [](const auto& f) { return f.median; });
  column<std::uint8_t>("poses.off", poses, [](const auto& f) { return f.off; });
  column<std::int64_t>("screening.points", planes,
                       [](const auto& p) { return p.screening.points; });
  column<std::int64_t>("screening.kept", planes, [](const auto& p) { return p.screening.kept; });
  column<std::int64_t>("screening.not_finite", planes,
                       [](const auto& p) { return p.screening.dropped.not_finite; });
  column<std::int64_t>("screening.depth", planes,
                       [](const auto& p) { return p.screening.dropped.depth; });
  column<std::int64_t>("screening.gross", planes,
                       [](const auto& p) { return p.screening.dropped.gross; });
  column<std::int64_t>("screening.screened", planes,
                       [](const auto& p) { return p.screening.dropped.screened(); });
  column<std::int32_t>("screening.frames.frame", frames, [](const auto& f) { return f.frame; });
  column<std::int64_t>("screening.frames.points", frames, [](const auto& f) { return f.points; });
  column<std::int64_t>("screening.frames.kept", frames, [](const auto& f) { return f.kept; });
  column<std::int64_t>("screening.frames.gross", frames,
                       [](const auto& f) { return f.dropped.gross; });
  column<std::int64_t>("screening.worst.index", worst, [](const auto& w) { return w.index; });
  column<std::int32_t>("screening.worst.frame", worst, [](const auto& w) { return w.frame; });
  column<double>("screening.worst.x", worst, [](const auto& w) { return w.point.x; });
  column<double>("screening.worst.residual", worst, [](const auto& w) { return w.residual; });
}

Limits some_limits() {
  Limits limits;
  limits.rms = 0.06;
  limits.p99 = 0.3;
  limits.coverage = 0.9;
  limits.seam = 0.05;
  limits.outliers = 0.01;
  limits.field_motion = 0.2;
  return limits;
}

void safe_factory() {
  const std::vector<PointList> clouds = read_lists("cloud");
  FactorySettings settings;
  settings.optimise = arguments().at(0) != 0.0;
  settings.refine = Refine::kAll;
  const FactoryResult result = calibrate_factory(clouds_of(clouds), settings);
  write_table("table", result.table);
  write("indicators", result.indicators);
  write("corners", result.corners);
  write_residuals("device", std::vector<ResidualFigures>{result.device},
                  [](const ResidualFigures& r) { return r; });
  write("histogram.counts", result.histogram.counts);
  const double bounds[2] = {result.histogram.low, result.histogram.width};
  write("histogram.bounds", bounds, 2);
  write_planes(result.planes);
  write_lists(result.planes);
  std::vector<RefinementFigures> gains;
  for (const PlaneFigures& plane : result.planes) {
    if (plane.refinement) gains.push_back(*plane.refinement);
  }
  column<double>("refinement.refined_rms", gains, [](const auto& g) { return g.refined_rms; });
  column<double>("refinement.plain_rms", gains, [](const auto& g) { return g.plain_rms; });
  write_judgement("findings", judge(result, some_limits()));
  write_judgement("findings_without_limits", judge(result));

  const RefinedDevice refined = refine(clouds);
  write_table("refined", refined.table);
  std::vector<double> sigma;
  std::vector<_LASER_TRIPLE> corners;
  std::vector<_LASER_TRIPLE> indicators;
  for (const RefinedPlane& plane : refined.planes) {
    if (plane.corners.empty()) continue;
    for (const RefinedCorner& corner : plane.corners) {
      corners.push_back({{corner.x, corner.y, corner.z}});
      sigma.push_back(corner.sigma);
    }
    indicators.insert(indicators.end(), plane.indicators.begin(), plane.indicators.end());
  }
  write("refined.sigma", sigma);
  write("refined.corners", corners);
  write("refined.indicators", indicators);
  const auto& planes = refined.planes;
  column<double>("refined.smoothing", planes, [](const auto& p) { return p.lambda; });
  column<double>("refined.noise", planes, [](const auto& p) { return p.noise; });
  column<double>("refined.degrees_of_freedom", planes,
                 [](const auto& p) { return p.degrees_of_freedom; });
  column<double>("refined.cross_validated_rms", planes,
                 [](const auto& p) { return p.cross_validated_rms; });
  column<std::int32_t>("refined.order", planes, [](const auto& p) { return p.order; });
  column<std::int32_t>("refined.frames_used", planes, [](const auto& p) { return p.frames_used; });
  column<std::int64_t>("refined.used", planes, [](const auto& p) { return p.counts.used; });

  const Difference difference = compare(result.table, refined.table);
  write("difference.values", difference.values);
  write("difference.rests", difference.rests);
  const double figures[] = {difference.rms, difference.max, difference.rest, difference.rest_max,
                            difference.explained};
  write("difference", figures, 5);
  write("difference.R", difference.rigid.R, 9);
  write("difference.t", difference.rigid.T, 3);
  write_judgement("drift", judge(difference, some_limits()));
}

void safe_field() {
  const PlaneTable table = calibrate(read_lists("cloud"), false);
  const FieldResult result = calibrate_field(table, read_lists("frames"));
  if (!result.refused.empty()) fail(result.refused);
  write("R", result.motion.R, 9);
  write("t", result.motion.T, 3);
  write("quaternion", result.transform.quaternion, 4);
  write("smallest.R", result.smallest_motion.R, 9);
  write("smallest.t", result.smallest_motion.T, 3);
  const double figures[] = {
      result.displacement.rms, result.displacement.max, result.displacement.sigma,
      result.indicators.mean,  result.indicators.max,   result.indicators.deviation,
      result.centre.x,         result.centre.y,         result.centre.z,
      result.length,           result.residual};
  write("figures", figures, std::size(figures));
  std::vector<std::string> names;
  std::vector<double> vectors;
  for (const MotionDirection& direction : result.directions) {
    names.push_back(direction.name);
    vectors.insert(vectors.end(), direction.vector, direction.vector + 6);
  }
  write("directions.names", names);
  write("directions.vectors", vectors);
  column<double>("directions.sigma", result.directions, [](const auto& d) { return d.sigma; });
  column<double>("directions.strength", result.directions,
                 [](const auto& d) { return d.strength; });
  column<std::uint8_t>("directions.fixed", result.directions,
                       [](const auto& d) { return d.fixed; });
  const std::vector<StageCount> stages(result.used.stages, result.used.stages + 5);
  column<std::int64_t>("stages.points", stages, [](const auto& s) { return s.points; });
  column<std::int32_t>("stages.frames", stages, [](const auto& s) { return s.frames; });
  column<std::int32_t>("stages.planes", stages, [](const auto& s) { return s.planes; });
  write_judgement("findings", judge(result, some_limits()));
}

// The largest resident size so far, in kilobytes. That of getrusage would begin with the parent's.
long peak() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word != "VmHWM:") continue;
    long kilobytes = 0;
    status >> kilobytes;
    return kilobytes;
  }
  fail("no VmHWM");
}

// How much the largest resident size grows by a plain calibration of the clouds.
void memory() {
  const std::vector<PointList> clouds = read_lists("cloud");
  const long before = peak();
  calibrate(clouds, false);
  std::cout << peak() - before << '\n';
}

void layout() {
  using P = _KESTRANE_ID_POINT3D;
  std::cout << sizeof(P) << ' ' << alignof(P) << ' ' << offsetof(P, x) << ' ' << offsetof(P, y)
            << ' ' << offsetof(P, z) << ' ' << offsetof(P, id) << '\n';
}

}  // namespace

int main(int count, char** words) {
  const std::string job = count > 1 ? words[1] : "";
  if (job == "layout") {
    layout();
    return 0;
  }
  if (count != 3) fail("a job and a folder are needed");
  folder = words[2];
  if (job == "factory") factory();
  if (job == "field") field();
  if (job == "compensation") compensation();
  if (job == "coefficients") coefficients();
  if (job == "safe_factory") safe_factory();
  if (job == "safe_field") safe_field();
  if (job == "memory") memory();
  return 0;
}
