#include "examples/field_clouds.h"

#include <algorithm>
#include <cstdio>

#include "examples/field_yardstick.h"
#include "kestrane/buffers.h"
#include "kestrane/fast_calib.h"
#include "kestrane/files.h"

namespace examples {
namespace {

// A direction that is fixed this much less than the best one is named.
constexpr double kWeak = 1e-3;

bool succeeded(const char* call, _KESTRANE_STATUS status) {
  if (status == KESTRANE_OK) return true;
  std::fprintf(stderr, "%s ended with status %d\n", call, static_cast<int>(status));
  return false;
}

// The table's rows in the host's form; lines and cells stay where they are.
std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows_of(const kestrane::_LASER_PLANE_BLOCK_INFOS& table) {
  // [snippet]
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows(static_cast<std::size_t>(table.plane_count));
  for (std::size_t p = 0; p < rows.size(); ++p) {
    rows[p].block = table.planes[p].block;
    std::copy_n(table.planes[p].laser_plane_R, 3, rows[p].laser_plane_R);
  }
  // [snippet end]
  return rows;
}

bool read_table(const std::string& path, std::int32_t planes,
                kestrane::LASER_PLANE_BLOCK_INFOS_GROUP& table) {
  if (!succeeded("init", table.init(planes))) return false;
  const _KESTRANE_STATUS status = kestrane::read_plane_block_infos(path, table);
  if (status == KESTRANE_ERR_INVALID_PARAM) {
    std::fprintf(stderr, "%s: not a table of %d planes, as many as were measured\n", path.c_str(),
                 planes);
    return false;
  }
  return succeeded("read_plane_block_infos", status);
}

void report_motion(const _MRV_EXTRINSIC_PARAM& motion) {
  const Eigen::Vector3d rotation = 1e6 * rotation_of(motion);
  std::printf("  rotation    (%.1f, %.1f, %.1f) microrad about x, y, z\n", rotation.x(),
              rotation.y(), rotation.z());
  std::printf("  translation (%.4f, %.4f, %.4f)\n", motion.T[0], motion.T[1], motion.T[2]);
}

void report_kept(kestrane::KestraneLaserFastCalibrator& engine, const FrameLists& frames,
                 const _MRV_EXTRINSIC_PARAM& motion) {
  const Kept kept = frames_kept(engine, frames);
  std::printf("  frames      %d in, %d with a number that the first plane lacks, %d kept\n",
              kept.frames_in, kept.frames_unknown, kept.frames);
  std::printf("  points      %d in, %d in kept frames, %d of them within 1.5 at the end\n",
              points_of(frames), points_of(kept.points), points_near(engine, kept.points, motion));
}

void report_directions(const std::vector<MotionDirection>& directions) {
  for (std::size_t i = 0; i < directions.size(); ++i) {
    const MotionDirection& d = directions[i];
    if (i > 0 && d.strength >= kWeak) break;
    std::printf(
        "  %s strength %.1e: translation (%.3f, %.3f, %.3f), rotation (%.3f, %.3f, %.3f)%s\n",
        i == 0 ? "least fixed" : "           ", d.strength, d.translation.x(), d.translation.y(),
        d.translation.z(), d.rotation.x(), d.rotation.y(), d.rotation.z(),
        d.strength < kWeak ? ", do not trust it" : "");
  }
}

}  // namespace

bool save_table(const _MRV_LASER_PLANE_BLOCK_INFOS& infos, const std::string& path) {
  std::vector<kestrane::_LASER_PLANE_BLOCK_INFO> rows(static_cast<std::size_t>(infos.plane_count));
  for (std::size_t p = 0; p < rows.size(); ++p) {
    rows[p] = {};
    rows[p].block = infos.planes[p].block;
    std::copy_n(infos.planes[p].laser_plane_R, 3, rows[p].laser_plane_R);
  }
  kestrane::_LASER_PLANE_BLOCK_INFOS table = {rows.data(), infos.grids, infos.plane_count,
                                              infos.plane_count};
  return succeeded("save_plane_block_infos", kestrane::save_plane_block_infos(table, path));
}

bool calibrate_field(const std::string& table_path, const std::vector<PlaneCloud>& clouds) {
  const auto planes = static_cast<std::int32_t>(clouds.size());
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP table;
  if (!read_table(table_path, planes, table)) return false;
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows = rows_of(table);
  const _MRV_LASER_PLANE_BLOCK_INFOS standard = {rows.data(), table.grids, planes};
  FrameLists frames;
  for (const PlaneCloud& cloud : clouds) frames.push_back(cloud.points);

  kestrane::KESTRANE_LASER_FAST_CALIB calib;
  kestrane::KestraneLaserFastCalibrator engine;
  if (!succeeded("init", calib.init()) || !succeeded("init", engine.init())) return false;
  calib.set_laser_plane_standard(standard);
  engine.set_laser_plane_standard(standard);
  const _KESTRANE_STATUS status = calib.fast_calib(frames, 0, planes - 1);
  std::printf("field calibration of %d planes\n", planes);
  std::printf("  status      %d\n", static_cast<int>(status));
  if (status != KESTRANE_OK) return false;

  _MRV_TRANSFORM transform{};
  double mean = 0.0, max = 0.0, deviation = 0.0;
  calib.get_transform_param(transform);
  calib.get_calib_indicator(mean, max, deviation);
  const _MRV_EXTRINSIC_PARAM motion = extrinsic_of(transform);
  report_motion(motion);
  std::printf("  indicators  mean %.4f, largest %.4f, half the mean deviation %.4f\n", mean, max,
              deviation);
  report_kept(engine, frames, motion);
  report_directions(motion_directions(standard, frames, motion));
  return true;
}

}  // namespace examples
