// Every allocation of the screening, of coefficients and of storage refused once: the standard
// exception comes out, nothing is lost, and no file is left behind or harmed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/coefficients.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/findings.h"
#include "kestrane/quality/refinement.h"
#include "kestrane/quality/screening.h"
#include "kestrane/quality/storage.h"
#include "simulation/scanner.h"
#include "tests/faults/every_cut.h"
#include "tests/files/temporary_folder.h"
#include "tests/quality/point_clouds.h"
#include "tests/quality/stored_records.h"
#include "tests/support/fault_heap.h"
#include "tests/support/sanitized.h"

namespace {

using namespace kestrane::quality;  // NOLINT: everything under test stands there
using faults::append;
using faults::expect_cuts_of_a_long_run_leave_nothing_behind;
using faults::expect_every_cut_leaves_nothing_behind;
using faults::Outcome;
using kestrane::TemporaryFolder;
using quality_tests::bowed_x;
using quality_tests::bytes_of_coefficients;
using quality_tests::fan_grid;
using quality_tests::odd_table;
using quality_tests::OddCoefficients;

Outcome numbers_of(const PlaneTable& table) {
  Outcome outcome(table.data(), table.data() + table.size());
  for (std::int32_t p = 0; p < table.planes(); ++p) append(outcome, table.whole_plane(p), 3);
  return outcome;
}

Outcome numbers_of(const PointList& points) {
  Outcome outcome;
  for (const auto& point : points)
    outcome.insert(outcome.end(), {point.x, point.y, point.z, static_cast<double>(point.id)});
  return outcome;
}

Outcome numbers_of(const std::string& bytes) { return Outcome(bytes.begin(), bytes.end()); }

class TableCopy {
 public:
  static constexpr long kStays = 0;
  void operate() {
    PlaneTable fresh(2);
    fresh = table_;
    copy_ = PlaneTable::copy_of(fresh.record());
  }
  Outcome outcome() const { return numbers_of(copy_); }

 private:
  PlaneTable table_ = odd_table(2);
  PlaneTable copy_;
};

// Few enough points that sectors are counted, with frame numbers far apart and points off.
class CloudScreening {
 public:
  static constexpr long kStays = 0;
  CloudScreening() {
    for (std::size_t i = 0; i < points_.size(); i += 50)
      points_[i].x += 10.0 + 0.1 * static_cast<double>(i);
    for (auto& point : points_) point.id *= 1000000;
  }
  void operate() { screened_ = screen_cloud(points_); }
  Outcome outcome() const {
    Outcome outcome = numbers_of(screened_.points);
    append(outcome, screened_.sheet.c.data(), 6);
    outcome.push_back(static_cast<double>(screened_.account.worst.size()));
    return outcome;
  }

 private:
  PointList points_ = fan_grid(45, 60, 150.0, 950.0, bowed_x);
  ScreenedCloud screened_;
};

class CloudRefusal {
 public:
  static constexpr long kStays = 0;
  void operate() { screened_ = screen_cloud(points_); }
  Outcome outcome() const { return numbers_of(screened_.refused); }

 private:
  PointList points_ = fan_grid(20, 20, 0.15, 0.95, bowed_x);
  ScreenedCloud screened_;
};

// A plane with a bad point and a gap, calibrated, measured and judged. The engine's block stays.
class SafeFactory {
 public:
  static constexpr long kStays = 1;
  SafeFactory() {
    EXPECT_EQ(engine_.init(), KESTRANE_OK);
    PointList& points = clouds_[0];
    points.erase(std::remove_if(points.begin(), points.end(),
                                [](const auto& p) { return std::abs(p.y) > 0.1 * p.z; }),
                 points.end());  // a few sectors are enough
    for (std::size_t i = 0; i < points.size(); ++i) points[i].id = static_cast<std::int32_t>(i % 4);
    points[7].x += 50.0;
  }
  void operate() {
    result_ = calibrate_factory(engine_, clouds_of(clouds_));
    judgement_ = judge(result_);
  }
  Outcome outcome() const {
    EXPECT_EQ(result_.refused, "");
    EXPECT_GT(result_.planes[0].repeatability, 0.0);
    Outcome outcome = numbers_of(result_.table);
    outcome.push_back(result_.device.rms);
    outcome.push_back(result_.device.q99);
    outcome.push_back(result_.planes[0].repeatability);
    for (const Finding& finding : judgement_.findings) {
      const Outcome text = numbers_of(finding.text);
      append(outcome, text.data(), text.size());
    }
    return outcome;
  }

 private:
  kestrane::KESTRANE_LASER_FAC_CALIB engine_;
  std::vector<PointList> clouds_ = {fan_grid(120, 60, 150.0, 950.0, bowed_x), {}};
  FactoryResult result_;
  Judgement judgement_;
};

class FrameScreening {
 public:
  static constexpr long kStays = 0;
  FrameScreening() { settings_.leave_out_ends = true; }
  void operate() { screened_ = screen_frames(lists_, table_, settings_); }
  Outcome outcome() const {
    Outcome outcome;
    for (const PointList& list : screened_.lists) {
      const Outcome numbers = numbers_of(list);
      append(outcome, numbers.data(), numbers.size());
    }
    return outcome;
  }

 private:
  PlaneTable table_ = odd_table(3);
  std::vector<PointList> lists_ = {
      {}, fan_grid(9, 9, 230.0, 340.0, bowed_x), fan_grid(9, 5, 230.0, 340.0, bowed_x)};
  FrameSettings settings_;
  ScreenedFrames screened_;
};

class TableFromCoefficients {
 public:
  static constexpr long kStays = 0;
  void operate() { table_ = table_of(corners_at(*record_, 30.0)).table; }
  Outcome outcome() const { return numbers_of(table_); }

 private:
  OddCoefficients record_ = OddCoefficients(1);
  PlaneTable table_;
};

// A file in a folder of its own, reached through a link; anything beside the two shows.
class InAFolder {
 public:
  static constexpr long kStays = 0;
  InAFolder() {
    folder_.file("file", "old");
    std::filesystem::create_symlink(folder_.path("file"), folder_.path("link"));
  }
  Outcome outcome() const {
    const std::filesystem::directory_iterator files(folder_.path());
    Outcome outcome = numbers_of(kestrane::bytes_of(folder_.path("file")));
    outcome.push_back(static_cast<double>(std::distance(begin(files), end(files))));
    outcome.push_back(std::filesystem::is_symlink(folder_.path("link")) ? 1.0 : 0.0);
    return outcome;
  }

 protected:
  TemporaryFolder folder_;
};

class TableSaving : public InAFolder {
 public:
  void operate() { save_table(table_, folder_.path("link")); }

 private:
  PlaneTable table_ = odd_table(1);
};

class CoefficientSaving : public InAFolder {
 public:
  void operate() { save_coefficients(*record_, folder_.path("link")); }

 private:
  OddCoefficients record_ = OddCoefficients(1);
};

class TableReading {
 public:
  static constexpr long kStays = 0;
  TableReading() { save_table(odd_table(2), folder_.path("file")); }
  void operate() { table_ = read_table(folder_.path("file")); }
  Outcome outcome() const { return numbers_of(table_); }

 private:
  TemporaryFolder folder_;
  PlaneTable table_;
};

class CoefficientReading {
 public:
  static constexpr long kStays = 0;
  CoefficientReading() {
    OddCoefficients record(2);
    save_coefficients(*record, folder_.path("file"));
  }
  void operate() { record_ = read_coefficients(folder_.path("file")); }
  Outcome outcome() const { return numbers_of(bytes_of_coefficients(*record_)); }

 private:
  TemporaryFolder folder_;
  std::unique_ptr<kestrane::LASER_COMPENSATOR_COEFFS_MANAGER> record_;
};

// A small patch in six frames, on one thread: enough for a choice of the smoothness.
class Refinement {
 public:
  static constexpr long kStays = 0;
  Refinement() {
    simulation::CloudSettings settings;
    settings.points = 60;
    settings.frames = 6;
    settings.depth_low = 400.0;
    settings.depth_high = 450.0;
    settings.fan_low_degrees = 1.0;
    settings.fan_high_degrees = 8.0;
    cloud_ = simulation::measure(simulation::make_device({})[0], settings).points;
  }
  void operate() { device_ = refine({cloud_}); }
  Outcome outcome() const {
    Outcome outcome = numbers_of(device_.table);
    for (const RefinedPlane& plane : device_.planes) {
      for (const RefinedCorner& corner : plane.corners)
        outcome.insert(outcome.end(), {corner.x, corner.sigma});
    }
    return outcome;
  }

 private:
  PointList cloud_;
  RefinedDevice device_;
};

// The engine of a calibration that the host gives none is refused its block, too; what is
// calibrated has no points.
class OwnEngines {
 public:
  void factory() { told_ = calibrate_factory(clouds_).refused; }
  void field() { told_ = calibrate_field(table_, lists_).refused; }
  const std::string& told() const { return told_; }

 private:
  std::vector<_KESTRANE_ID_POINT3DS> clouds_ = {{nullptr, 0}};
  PlaneTable table_ = odd_table(1);
  std::vector<PointList> lists_ = std::vector<PointList>(1);
  std::string told_;
};

TEST(MemoryFaults, ShowInTheEnginesOfACalibration) {
  const fault_heap::LostByDesign lost_by_design;  // an engine without its block, and the blocks
  for (const auto operation : {&OwnEngines::factory, &OwnEngines::field}) {
    OwnEngines engines;
    (engines.*operation)();
    EXPECT_FALSE(engines.told().empty());
    faults::Ending ending = faults::Ending::kThrew;
    long cuts = 0;
    while (ending != faults::Ending::kWentThrough) {
      ending = faults::run_cut(faults::Place::kOwn, ++cuts, [&] { (engines.*operation)(); });
      EXPECT_NE(ending, faults::Ending::kSwallowed) << cuts;
    }
    EXPECT_GT(cuts, 3);
  }
}

TEST(MemoryFaults, LeaveTablesWhole) {
  EXPECT_GE(expect_every_cut_leaves_nothing_behind<TableCopy>(), 9);
}

TEST(MemoryFaults, LeaveTheScreeningOfACloudRepeatable) {
  EXPECT_GE(expect_every_cut_leaves_nothing_behind<CloudScreening>(), 10);
  EXPECT_GE(expect_every_cut_leaves_nothing_behind<CloudRefusal>(), 5);
}

TEST(MemoryFaults, LeaveSafeCalibrationsRepeatable) {
  EXPECT_GE(expect_cuts_of_a_long_run_leave_nothing_behind<SafeFactory>(), 100);
}

TEST(MemoryFaults, LeaveRefinementsRepeatable) {
  EXPECT_GE(expect_cuts_of_a_long_run_leave_nothing_behind<Refinement>(), 100);
}

// Without any fault, which is told in no time.
TEST(MemoryFaults, AreNotWhatARefinementGivesItsMemoryBackFor) {
  Refinement().operate();  // what stays of a first run stays
  const fault_heap::Holding before = fault_heap::holding();
  Refinement().operate();
  const fault_heap::Holding after = fault_heap::holding();
  EXPECT_EQ(after.blocks, before.blocks);
  EXPECT_EQ(after.bytes, before.bytes);
}

TEST(MemoryFaults, LeaveTheScreeningOfFramesRepeatable) {
  EXPECT_GE(expect_every_cut_leaves_nothing_behind<FrameScreening>(), 10);
}

TEST(MemoryFaults, LeaveCoefficientsRepeatable) {
  EXPECT_GE(expect_cuts_of_a_long_run_leave_nothing_behind<TableFromCoefficients>(), 10);
}

TEST(MemoryFaults, LeaveFilesRepeatableAndNothingBesideThem) {
  if (kestrane_test::kSanitized) {
    GTEST_SKIP()
        << "the sanitizer's realpath takes its block past the stand-in, which counts its end";
  }
  EXPECT_GE(expect_every_cut_leaves_nothing_behind<TableSaving>(), 15);
  EXPECT_GE(expect_every_cut_leaves_nothing_behind<CoefficientSaving>(), 10);
}

TEST(MemoryFaults, LeaveReadersRepeatable) {
  EXPECT_GE(expect_every_cut_leaves_nothing_behind<TableReading>(), 5);
  EXPECT_GE(expect_every_cut_leaves_nothing_behind<CoefficientReading>(), 3);
}

// A save that was refused memory leaves the old bytes: seen before the next save covers them up.
TEST(MemoryFaults, LeaveTheOldFile) {
  for (long n = 1;; ++n) {
    TableSaving saving;
    const Outcome before = saving.outcome();
    if (faults::run_cut(faults::Place::kOwn, n, [&] { saving.operate(); }) ==
        faults::Ending::kWentThrough)
      break;
    EXPECT_EQ(saving.outcome(), before) << n;
  }
}

}  // namespace
