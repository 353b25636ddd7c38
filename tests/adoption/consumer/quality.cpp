// A small host of kestrane::quality: it includes every header of that library, takes two flat
// sheets through the safe calls, and holds the numbers against what is known of them. Ends with 0
// where all of them are right.
//
//   quality_consumer <folder for files>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "checks.h"
#include "kestrane/buffers.h"
#include "kestrane/quality/coefficients.h"
#include "kestrane/quality/difference.h"
#include "kestrane/quality/errors.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/findings.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/quality/refinement.h"
#include "kestrane/quality/screening.h"
#include "kestrane/quality/storage.h"
#include "kestrane/quality/working_volume.h"

namespace {

namespace quality = kestrane::quality;

constexpr std::int32_t kPlanes = 2;
constexpr std::int32_t kFrames = 10;
// Exact points on exact planes: what is left is rounding, of a decomposition at most.
constexpr double kRounding = 1e-8;
// A coefficient of a table file has six digits; -1/a is x then, some 120.
constexpr double kSixDigits = 2e-3;

// A sheet x = at + tilt z.
struct Sheet {
  double at;
  double tilt;

  double x(double z) const { return at + tilt * z; }
  double normal_x() const { return 1.0 / std::sqrt(1.0 + tilt * tilt); }
};

constexpr Sheet kSheets[kPlanes] = {{110.0, -0.12}, {140.0, -0.16}};

// The whole fan of a sheet, moved by `offset` along x. Every ray and depth is a pose in turn.
quality::PointList measure(const Sheet& sheet, double from, double to, double offset) {
  quality::PointList points;
  constexpr double kRadian = 3.14159265358979323846 / 180.0;
  for (double degrees = -29.75; degrees < 30.0; degrees += 0.5) {
    for (double z = from; z < to; z += 20.0) {
      points.push_back({sheet.x(z) + offset, z * std::tan(degrees * kRadian), z,
                        static_cast<std::int32_t>(points.size()) % kFrames});
    }
  }
  return points;
}

std::vector<quality::PointList> measure(double from, double to, double offset) {
  std::vector<quality::PointList> lists;
  for (const Sheet& sheet : kSheets) lists.push_back(measure(sheet, from, to, offset));
  return lists;
}

// Bad points are taken out and named; the table is that of the good ones.
quality::FactoryResult factory() {
  std::vector<quality::PointList> clouds = measure(120.0, 990.0, 0.0);
  clouds[1].push_back({kSheets[1].x(500.0) + 150.0, 0.0, 500.0, 3});
  const quality::ScreenedCloud screened = quality::screen_cloud(clouds[1]);
  check(screened.refused.empty() && screened.account.dropped.gross == 1, "one gross point");

  quality::FactoryResult result = quality::calibrate_factory(quality::clouds_of(clouds));
  check(result.refused.empty() && result.table.planes() == kPlanes, "a calibrated device");
  for (std::int32_t p = 0; p < kPlanes; ++p) {
    const quality::FanPlace middle = result.table.block_middle({7, 20});
    check_near(result.table.x_at(p, middle.y, middle.z), kSheets[p].x(middle.z), kRounding,
               "x of the factory table");
    check_near(result.planes[static_cast<std::size_t>(p)].residuals.rms, 0.0, kRounding,
               "RMS of exact points");
  }
  check(result.planes[1].screening.dropped.gross == 1, "one gross point in the calibration");

  quality::Limits limits;
  limits.rms = 0.1;
  const quality::Judgement judgement = quality::judge(result, limits);
  const quality::Finding* residuals = judgement.find("residuals");
  check(residuals != nullptr && residuals->level == quality::Level::kOk, "residuals in limits");
  const quality::Finding* taken_out = judgement.find("screened");
  check(taken_out != nullptr && taken_out->level == quality::Level::kWarn, "a warning");
  check(judgement.verdict == "usable with limits", "verdict");
  return result;
}

// The device has moved along x: every sheet by that much along its normal.
void field(const quality::PlaneTable& table) {
  constexpr double kMove = 0.1;
  const quality::FieldResult result = quality::calibrate_field(table, measure(225.0, 345.0, kMove));
  check(result.refused.empty(), "a field calibration");
  const double n0 = kSheets[0].normal_x();
  const double n1 = kSheets[1].normal_x();
  check_near(result.displacement.rms, kMove * std::sqrt(0.5 * (n0 * n0 + n1 * n1)), 1e-6,
             "displacement");
  check(result.directions.size() == 6, "six directions");
  check(quality::judge(result).verdict == "no limits given", "no verdict without limits");
}

void files_and_differences(const quality::PlaneTable& table, const std::string& folder) {
  const std::string path = folder + "/checked_planes.txt";
  quality::save_table(table, path);
  const quality::PlaneTable read = quality::read_table(path);
  const quality::Difference difference = quality::compare(table, read);
  check(difference.refused.empty() && difference.max < kSixDigits, "table from its file");

  std::string reason;
  try {
    quality::read_table(folder + "/no_such_file.txt");
  } catch (const quality::FileError& error) {  // across the border of the library
    reason = error.what();
  }
  check(reason.find("no_such_file.txt") != std::string::npos, "the error names its file");
}

void refinement(const std::vector<quality::PointList>& clouds) {
  const quality::RefinedDevice refined = quality::refine(clouds, {}, 2);
  for (std::int32_t p = 0; p < kPlanes; ++p) {
    check(refined.planes[static_cast<std::size_t>(p)].refused.empty(), "a refined plane");
    const quality::FanPlace middle = refined.table.block_middle({7, 20});
    check_near(refined.table.x_at(p, middle.y, middle.z), kSheets[p].x(middle.z), kRounding,
               "x of the refined table");
  }
}

// Models that do not depend on the condition give the corners back, and these the sheets.
void coefficients(const quality::FactoryResult& measured, const std::string& folder) {
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER owner;
  kestrane::_COMPENSATOR_COEFFS* record = nullptr;
  check(owner.init(kPlanes) == KESTRANE_OK, "coefficients init");
  check(owner.get_compensator_coeffs(kPlanes, record) == KESTRANE_OK, "coefficients");
  for (std::size_t p = 0; p < kPlanes; ++p) {
    for (std::size_t i = 0; i < 16; ++i) {
      for (std::size_t k = 0; k < 51; ++k) {
        const double x = measured.corners[(p * 16 + i) * 51 + k].v[0];
        record->opt_coeffs->planes[p].lines[i].cells[k] = {{0.0, 1.0, -x}};
      }
    }
  }
  const std::string path = folder + "/checked_coefficients.bin";
  quality::save_coefficients(*record, path);
  const auto stored = quality::read_coefficients(path);
  const quality::TableOfCorners table = quality::table_of(quality::corners_at(*stored, 24.0));
  check(table.refused.empty(), "a table from coefficients");
  for (std::int32_t p = 0; p < kPlanes; ++p) {
    const quality::FanPlace middle = table.table.block_middle({7, 20});
    check_near(table.table.x_at(p, middle.y, middle.z), kSheets[p].x(middle.z), 1e-6,
               "x of the table from coefficients");
  }
}

void mistakes_are_thrown() {
  bool thrown = false;
  try {
    quality::PlaneTable(101);
  } catch (const std::exception&) {
    thrown = true;
  }
  check(thrown, "more planes than there can be are refused");
  check(quality::WorkingVolume{}.holds(0.0, 500.0), "the whole fan");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string folder = argc > 1 ? argv[1] : ".";
  try {
    const quality::FactoryResult measured = factory();
    field(measured.table);
    files_and_differences(measured.table, folder);
    refinement(measure(150.0, 990.0, 0.0));
    coefficients(measured, folder);
    mistakes_are_thrown();
  } catch (const std::exception& error) {
    std::printf("wrong: %s\n", error.what());
    ++failures;
  }
  std::printf("quality consumer: %s\n", failures == 0 ? "all numbers are right" : "failed");
  return failures == 0 ? 0 : 1;
}
