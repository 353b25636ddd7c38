#include "kestrane/quality/plane_table.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "kestrane/buffers.h"
#include "tests/support/bits.h"

namespace {

using kestrane::quality::Block;
using kestrane::quality::FanPlace;
using kestrane::quality::PlaneTable;
using kestrane_test::kInf;
using kestrane_test::kNaN;

const double kSlope = std::tan(0.5235987755982988);

// Every cell a number of its own: a of plane p, line j, cell k is 1 + p + j / 100 + k / 10000.
PlaneTable numbered_table(std::int32_t planes) {
  PlaneTable table(planes);
  for (std::int32_t p = 0; p < planes; ++p) {
    for (std::int32_t j = 0; j < PlaneTable::kLines; ++j) {
      for (std::int32_t k = 0; k < PlaneTable::kCells; ++k) {
        table.cell(p, {j, k}) = {{1.0 + p + j / 100.0 + k / 10000.0, 0.5, -0.25}};
      }
    }
    for (int i = 0; i < 3; ++i) table.whole_plane(p)[i] = 10.0 * p + i;
  }
  return table;
}

// --- refusals --------------------------------------------------------------------------------

TEST(PlaneTable, RefusesACountOutside0To100) {
  EXPECT_THROW(PlaneTable(-1), std::invalid_argument);
  EXPECT_THROW(PlaneTable(101), std::invalid_argument);
  EXPECT_EQ(PlaneTable(100).planes(), 100);
}

TEST(PlaneTable, RefusesAPlaneOrABlockThatItDoesNotHave) {
  PlaneTable table(2);
  const PlaneTable& read = table;
  for (const std::int32_t plane : {-1, 2}) {
    EXPECT_THROW(table.cell(plane, {0, 0}), std::invalid_argument);
    EXPECT_THROW(read.cell(plane, {0, 0}), std::invalid_argument);
    EXPECT_THROW(table.whole_plane(plane), std::invalid_argument);
    EXPECT_THROW(read.whole_plane(plane), std::invalid_argument);
    EXPECT_THROW(read.is_empty(plane, {0, 0}), std::invalid_argument);
    EXPECT_THROW(read.row_is_empty(plane), std::invalid_argument);
    EXPECT_THROW(read.x_at(plane, 0.0, 300.0), std::invalid_argument);
    EXPECT_THROW(read.distance(plane, {0.0, 0.0, 300.0}), std::invalid_argument);
  }
  for (const Block block : {Block{-1, 0}, Block{15, 0}, Block{0, -1}, Block{0, 50}}) {
    EXPECT_THROW(table.cell(0, block), std::invalid_argument);
    EXPECT_THROW(read.cell(0, block), std::invalid_argument);
    EXPECT_THROW(read.is_empty(0, block), std::invalid_argument);
    EXPECT_THROW(read.block_middle(block), std::invalid_argument);
  }
}

// --- memory ----------------------------------------------------------------------------------

TEST(PlaneTable, StartsEmptyWithTheFansBounds) {
  const PlaneTable table(3);
  EXPECT_EQ(table.size(), 3U * 15 * 50 * 3);
  for (std::size_t i = 0; i < table.size(); ++i) ASSERT_EQ(table.data()[i], 0.0);
  for (std::int32_t p = 0; p < 3; ++p) {
    EXPECT_TRUE(table.row_is_empty(p));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(table.whole_plane(p)[i], 0.0);
  }
  EXPECT_EQ(table.grids().z_start, 150.0);
  EXPECT_EQ(table.grids().z_step, 27.0);
  EXPECT_EQ(table.grids().grid_z[50], 1500.0);
  EXPECT_DOUBLE_EQ(table.grids().grid_y_start[10], -kSlope * 420.0);
  EXPECT_DOUBLE_EQ(table.grids().grid_y_step[10], 2.0 * kSlope * 420.0 / 15.0);
  EXPECT_EQ(table.grids().grid_head[0], 0);
}

TEST(PlaneTable, WithoutPlanesHasNoData) {
  PlaneTable table;
  EXPECT_EQ(table.planes(), 0);
  EXPECT_EQ(table.size(), 0U);
  EXPECT_EQ(table.data(), nullptr);
  EXPECT_EQ(std::as_const(table).data(), nullptr);
  EXPECT_EQ(table.record().plane_count, 0);
  EXPECT_EQ(table, PlaneTable(0));
}

TEST(PlaneTable, IsOneBlockPlaneByPlaneLineByLine) {
  PlaneTable table = numbered_table(2);
  EXPECT_EQ(table.cell(1, {3, 7}).v, table.data() + ((1 * 15 + 3) * 50 + 7) * 3);
  EXPECT_EQ(table.data()[((1 * 15 + 3) * 50 + 7) * 3], 1.0 + 1 + 3 / 100.0 + 7 / 10000.0);
  EXPECT_EQ(table.data()[((1 * 15 + 3) * 50 + 7) * 3 + 2], -0.25);
}

TEST(PlaneTable, RecordLeadsIntoTheTable) {
  PlaneTable table = numbered_table(2);
  const _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
  ASSERT_EQ(record.plane_count, 2);
  EXPECT_EQ(record.grids, &table.grids());
  for (std::int32_t p = 0; p < 2; ++p) {
    ASSERT_EQ(record.planes[p].block.count, 15);
    EXPECT_EQ(record.planes[p].laser_plane_R, table.whole_plane(p));
    for (std::int32_t j = 0; j < 15; ++j) {
      ASSERT_EQ(record.planes[p].block.lines[j].count, 50);
      EXPECT_EQ(record.planes[p].block.lines[j].cells, &table.cell(p, {j, 0}));
    }
  }
}

TEST(PlaneTable, ConstantRecordIsTheSame) {
  PlaneTable table = numbered_table(2);
  const _MRV_LASER_PLANE_BLOCK_INFOS written = table.record();
  const _MRV_LASER_PLANE_BLOCK_INFOS read = std::as_const(table).record();
  EXPECT_EQ(read.planes, written.planes);
  EXPECT_EQ(read.grids, written.grids);
  EXPECT_EQ(read.plane_count, written.plane_count);
}

TEST(PlaneTable, RecordBringsCountsBackThatAJobHasWritten) {
  PlaneTable table = numbered_table(1);
  table.record().planes[0].block.count = 0;
  EXPECT_EQ(table.record().planes[0].block.count, 15);
}

TEST(PlaneTable, CopySharesNothing) {
  PlaneTable table = numbered_table(2);
  PlaneTable copy(table);
  PlaneTable assigned;
  assigned = table;
  EXPECT_EQ(copy, table);
  EXPECT_EQ(assigned, table);
  table.cell(1, {2, 3}).v[0] = 99.0;
  EXPECT_EQ(copy.record().planes[1].block.lines[2].cells[3].v[0], 1.0 + 1 + 0.02 + 0.0003);
  EXPECT_EQ(assigned.record().planes[1].block.lines[2].cells[3].v[0], 1.0 + 1 + 0.02 + 0.0003);
  EXPECT_NE(copy, table);
  const double* const place = copy.data();
  PlaneTable& itself = copy;
  copy = itself;
  EXPECT_EQ(copy.data(), place);
}

TEST(PlaneTable, MoveTakesTheMemoryAlong) {
  PlaneTable table = numbered_table(2);
  const PlaneTable copy(table);
  const double* const place = table.data();
  PlaneTable moved(std::move(table));
  EXPECT_EQ(moved.data(), place);
  EXPECT_EQ(moved, copy);
  EXPECT_EQ(moved.record().planes[1].block.lines[0].cells, &moved.cell(1, {0, 0}));
  EXPECT_EQ(moved.record().grids, &moved.grids());
  EXPECT_EQ(table.planes(), 0);  // NOLINT(bugprone-use-after-move): it is told to be empty
  PlaneTable assigned(1);
  assigned = std::move(moved);
  EXPECT_EQ(assigned.data(), place);
  EXPECT_EQ(assigned, copy);
}

// --- copies of records -----------------------------------------------------------------------

TEST(PlaneTableCopyOf, TakesEverythingFromAHostsRecord) {
  PlaneTable table = numbered_table(3);
  table.grids().grid_head[2] = 7;
  table.grids().grid_y_step[4] = 1.5;
  EXPECT_EQ(PlaneTable::copy_of(table.record()), table);
}

TEST(PlaneTableCopyOf, TakesTheLibrarysOwnRecord) {
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  group.planes[1].block.lines[14].cells[49] = {{0.5, 0.25, 0.125}};
  group.planes[1].laser_plane_R[2] = 3.0;
  const PlaneTable table = PlaneTable::copy_of(group);
  ASSERT_EQ(table.planes(), 2);
  EXPECT_EQ(table.cell(1, {14, 49}).v[1], 0.25);
  EXPECT_EQ(table.whole_plane(1)[2], 3.0);
  EXPECT_TRUE(table.row_is_empty(0));
}

TEST(PlaneTableCopyOf, TakesARowWithoutLinesAsEmpty) {
  PlaneTable table = numbered_table(2);
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
  record.planes[0].block.count = 0;
  const PlaneTable copy = PlaneTable::copy_of(record);
  EXPECT_TRUE(copy.row_is_empty(0));
  EXPECT_FALSE(copy.row_is_empty(1));
}

TEST(PlaneTableCopyOf, RefusesWhatIsNoTable) {
  PlaneTable table = numbered_table(2);
  const auto refuses = [&](auto spoil) {
    _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
    spoil(record);
    EXPECT_THROW(PlaneTable::copy_of(record), std::invalid_argument);
  };
  refuses([](auto& record) { record.planes = nullptr; });
  refuses([](auto& record) { record.grids = nullptr; });
  refuses([](auto& record) { record.planes[1].block.count = 14; });
  refuses([](auto& record) { record.planes[1].block.lines = nullptr; });
  refuses([](auto& record) { record.planes[1].block.lines[3].count = 51; });
  refuses([](auto& record) { record.planes[1].block.lines[3].cells = nullptr; });
}

TEST(PlaneTableCopyOf, RefusesALibrarysRecordThatIsNoTable) {
  const auto refuses = [](auto spoil) {
    kestrane::LASER_PLANE_BLOCK_INFOS_GROUP group;
    EXPECT_EQ(group.init(2), KESTRANE_OK);
    kestrane::_LASER_PLANE_BLOCK_INFOS& record = group;
    const kestrane::_LASER_PLANE_BLOCK_INFOS whole = record;
    spoil(record);
    EXPECT_THROW(PlaneTable::copy_of(record), std::invalid_argument);
    record = whole;
  };
  refuses([](auto& record) { record.planes = nullptr; });
  refuses([](auto& record) { record.grids = nullptr; });
}

// By its own words, before a table is made for the count.
TEST(PlaneTableCopyOf, RefusesARecordOfMorePlanesThanADeviceHas) {
  PlaneTable table(2);
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  const auto reason = [](const auto& record) {
    try {
      PlaneTable::copy_of(record);
    } catch (const std::invalid_argument& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  for (const std::int32_t planes : {-1, 101}) {
    _MRV_LASER_PLANE_BLOCK_INFOS of_host = table.record();
    of_host.plane_count = planes;
    kestrane::_LASER_PLANE_BLOCK_INFOS of_library = group;
    of_library.plane_count = planes;
    const std::string expected = "a plane table's record has " + std::to_string(planes) + " planes";
    EXPECT_EQ(reason(of_host), expected);
    EXPECT_EQ(reason(of_library), expected);
  }
}

TEST(PlaneTableCopyOf, NeedsNoRowsWithoutPlanes) {
  PlaneTable table(0);
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
  record.planes = nullptr;
  EXPECT_EQ(PlaneTable::copy_of(record), table);
}

// --- look-up ---------------------------------------------------------------------------------

TEST(PlaneTable, EmptyCellsAreThoseThatGiveNoX) {
  PlaneTable table(1);
  const auto empty_as = [&](double a, double b, double c) {
    table.cell(0, {0, 0}) = {{a, b, c}};
    const bool empty = table.is_empty(0, {0, 0});
    const FanPlace middle = table.block_middle({0, 0});
    EXPECT_EQ(table.row_is_empty(0), empty);
    EXPECT_EQ(std::isnan(table.x_at(0, middle.y, middle.z)), empty);
    EXPECT_EQ(std::isnan(table.distance(0, {0.0, middle.y, middle.z})), empty);
    return empty;
  };
  EXPECT_TRUE(empty_as(0.0, 0.0, 0.0));
  EXPECT_TRUE(empty_as(0.0, 1.0, 0.0));
  EXPECT_TRUE(empty_as(2e-16, 2e-16, -2e-16));
  EXPECT_FALSE(empty_as(2e-16, 2e-16, -3e-16));
  EXPECT_FALSE(empty_as(2e-16, 3e-16, -2e-16));
  EXPECT_TRUE(empty_as(-kInf, 1.0, 1.0));
  EXPECT_TRUE(empty_as(kNaN, 1.0, 1.0));
  EXPECT_TRUE(empty_as(1.0, kInf, 1.0));
  EXPECT_TRUE(empty_as(1.0, 1.0, -kInf));
  EXPECT_FALSE(empty_as(1e-17, 1e-3, 0.0));
  EXPECT_FALSE(empty_as(3e-16, 0.0, 0.0));
  EXPECT_FALSE(table.row_is_empty(0));
}

TEST(PlaneTable, LooksBlocksUpByTruncation) {
  const PlaneTable table(1);
  const auto block_at = [&](double y, double z) { return table.lookup(y, z); };
  ASSERT_TRUE(block_at(0.0, 420.0));
  EXPECT_EQ(block_at(0.0, 420.0)->line, 7);
  EXPECT_EQ(block_at(0.0, 420.0)->cell, 10);
  EXPECT_EQ(block_at(0.0, 123.001)->cell, 0);  // truncated toward zero
  EXPECT_FALSE(block_at(0.0, 123.0));
  EXPECT_FALSE(block_at(0.0, 1500.0));
  EXPECT_FALSE(block_at(1e300, 300.0));
  EXPECT_FALSE(block_at(kNaN, 300.0));
  EXPECT_FALSE(block_at(0.0, kNaN));
  EXPECT_FALSE(block_at(kInf, 300.0));
  EXPECT_FALSE(block_at(-kInf, 300.0));
  // At depth 420 a block is 2 * 420 / 15 slopes wide; the first begins 420 slopes below the middle.
  const double width = 56.0 * kSlope;
  EXPECT_EQ(block_at(-420.0 * kSlope - 0.999 * width, 420.0)->line, 0);  // toward zero again
  EXPECT_FALSE(block_at(-420.0 * kSlope - 1.001 * width, 420.0));
  EXPECT_EQ(block_at(420.0 * kSlope - 0.001 * width, 420.0)->line, 14);
  EXPECT_FALSE(block_at(420.0 * kSlope + 0.001 * width, 420.0));
}

TEST(PlaneTable, GivesNoNumberOutsideThoughEveryCellHasAPlane) {
  const PlaneTable table = numbered_table(2);
  ASSERT_FALSE(std::isnan(table.x_at(1, 40.0, 433.0)));
  EXPECT_TRUE(std::isnan(table.x_at(1, 40.0, 2000.0)));
  EXPECT_TRUE(std::isnan(table.x_at(1, -400.0, 433.0)));
  ASSERT_FALSE(std::isnan(table.distance(1, {1.0, 40.0, 433.0})));
  EXPECT_TRUE(std::isnan(table.distance(1, {1.0, 40.0, 2000.0})));
  EXPECT_TRUE(std::isnan(table.distance(1, {1.0, -400.0, 433.0})));
}

TEST(PlaneTable, EveryBlockHoldsItsMiddle) {
  const PlaneTable table(1);
  for (std::int32_t j = 0; j < 15; ++j) {
    for (std::int32_t k = 0; k < 50; ++k) {
      const FanPlace middle = table.block_middle({j, k});
      const std::optional<Block> found = table.lookup(middle.y, middle.z);
      ASSERT_TRUE(found);
      EXPECT_EQ(found->line, j);
      EXPECT_EQ(found->cell, k);
    }
  }
  // Even steps at the nearer depth: line 7 is the middle one, line 14 ends at the fan's edge.
  EXPECT_NEAR(table.block_middle({7, 10}).y, 0.0, 1e-12);
  EXPECT_NEAR(table.block_middle({14, 10}).y, kSlope * 420.0 * 14.0 / 15.0, 1e-12);
  EXPECT_EQ(table.block_middle({7, 10}).z, 433.5);
}

// x = 120 + 0.02 y - 0.25 z, so (a, b, c) = (-1, 0.02, -0.25) / 120.
TEST(PlaneTable, MeasuresAgainstAKnownPlane) {
  PlaneTable table(2);
  const FanPlace place = {40.0, 433.0};
  const Block at = *table.lookup(place.y, place.z);
  const double x = 120.0 + 0.02 * 40.0 - 0.25 * 433.0;
  for (const double sign : {1.0, -1.0}) {
    // The mirrored sheet -x has the opposite a.
    table.cell(1, at) = {{-sign / 120.0, 0.02 / 120.0, -0.25 / 120.0}};
    EXPECT_NEAR(table.x_at(1, place.y, place.z), sign * x, 1e-12);
    const double n_x = 1.0 / std::sqrt(1.0 + 0.02 * 0.02 + 0.25 * 0.25);
    EXPECT_NEAR(table.distance(1, {sign * x + 2.0, place.y, place.z}), 2.0 * n_x, 1e-12);
    EXPECT_NEAR(table.distance(1, {sign * x - 2.0, place.y, place.z}), -2.0 * n_x, 1e-12);
  }
  EXPECT_TRUE(std::isnan(table.x_at(0, place.y, place.z)));
  EXPECT_TRUE(std::isnan(table.distance(0, {x, place.y, place.z})));
  EXPECT_TRUE(std::isnan(table.x_at(1, 40.0, 2000.0)));
  EXPECT_TRUE(std::isnan(table.distance(1, {x, 40.0, 2000.0})));
  EXPECT_TRUE(std::isnan(table.distance(1, {kNaN, place.y, place.z})));
}

// --- equality --------------------------------------------------------------------------------

TEST(PlaneTableEquality, SeesEveryNumber) {
  const PlaneTable table = numbered_table(2);
  const auto differs = [&](auto change) {
    PlaneTable other(table);
    change(other);
    return other != table;
  };
  EXPECT_TRUE(differs([](PlaneTable& t) { t.cell(1, {14, 49}).v[2] = 0.0; }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t.cell(0, {0, 0}).v[0] = std::nextafter(1.0, 2.0); }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t.whole_plane(1)[2] = 0.5; }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t.grids().grid_head[3] = 1; }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t.grids().grid_z[50] = 0.5; }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t.grids().grid_y_start[50] = 0.5; }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t.grids().grid_y_step[0] = 0.5; }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t.grids().z_start = 0.5; }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t.grids().z_step = 0.5; }));
  EXPECT_TRUE(differs([](PlaneTable& t) { t = PlaneTable(1); }));
  EXPECT_FALSE(differs([](PlaneTable&) {}));
  EXPECT_NE(PlaneTable(1), PlaneTable(2));  // which begin alike
}

TEST(PlaneTableEquality, TakesAllNaNForEqualAndTheZerosForDifferent) {
  PlaneTable a(1);
  PlaneTable b(1);
  a.cell(0, {0, 0}).v[0] = kNaN;
  b.cell(0, {0, 0}).v[0] = -kNaN;
  EXPECT_EQ(a, b);
  b.cell(0, {0, 0}).v[0] = 0.0;
  EXPECT_NE(a, b);
  a.cell(0, {0, 0}).v[0] = -0.0;
  EXPECT_NE(a, b);
}

TEST(PlaneTableEquality, TakesAllNaNForEqualInTheBoundsToo) {
  const auto with = [](double z_start, double z_step, double z) {
    PlaneTable table(1);
    table.grids().z_start = z_start;
    table.grids().z_step = z_step;
    table.grids().grid_z[50] = z;
    return table;
  };
  EXPECT_EQ(with(kNaN, 27.0, 1500.0), with(-kNaN, 27.0, 1500.0));
  EXPECT_EQ(with(150.0, kNaN, 1500.0), with(150.0, -kNaN, 1500.0));
  EXPECT_EQ(with(150.0, 27.0, kNaN), with(150.0, 27.0, -kNaN));
  EXPECT_NE(with(kNaN, 27.0, 1500.0), with(150.0, 27.0, 1500.0));
  EXPECT_NE(with(150.0, kNaN, 1500.0), with(150.0, 27.0, 1500.0));
}

}  // namespace
