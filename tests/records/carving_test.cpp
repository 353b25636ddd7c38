#include "records/carving.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

namespace {

using namespace kestrane;

struct Free {
  void operator()(void* block) const { std::free(block); }
};
using Block = std::unique_ptr<void, Free>;

TEST(Carver, RoundsEachSectionUpTo128Bytes) {
  Carver carver(nullptr);
  carver.take<char>(1);
  EXPECT_EQ(carver.size(), 128);
  carver.take<char>(128);
  EXPECT_EQ(carver.size(), 256);
  carver.take<char>(129);
  EXPECT_EQ(carver.size(), 512);
  carver.take<double>(0);
  EXPECT_EQ(carver.size(), 512);
}

TEST(Carver, HandsOutTheAddressesThatItMeasured) {
  alignas(128) std::array<unsigned char, 1024> room;
  Carver measuring(nullptr);
  Carver carving(room.data());
  for (const int count : {3, 0, 17, 1}) {
    EXPECT_EQ(measuring.take<double>(count), nullptr);
    const std::int64_t place = carving.size();
    EXPECT_EQ(static_cast<void*>(carving.take<double>(count)),
              static_cast<void*>(room.data() + place));
    EXPECT_EQ(measuring.size(), carving.size());
  }
  EXPECT_FALSE(measuring.carves());
  EXPECT_TRUE(carving.carves());
}

// (-8 + 127) / 128 rounds down to 0, (-128 + 127) / 128 to -1.
TEST(Carver, TakesAwayForNegativeCounts) {
  Carver little(nullptr);
  little.take<double>(-1);
  EXPECT_EQ(little.size(), 0);
  Carver more(nullptr);
  more.take<double>(-16);
  EXPECT_EQ(more.size(), -128);
}

TEST(Carver, MeasuresCountsBeyond32Bits) {
  Carver carver(nullptr);
  carver.take<std::array<char, 128>>(std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(carver.size(), std::int64_t{128} * std::numeric_limits<std::int32_t>::max());
}

TEST(Carver, LeavesOutWhatItIsToldToSkip) {
  Carver carver(nullptr);
  carver.take<char>(5);
  carver.skip(3 * 256);
  EXPECT_EQ(carver.size(), 128 + 768);
}

TEST(CarveTable, PutsLinesBeforeCellsInSectionsOf256And1280Bytes) {
  Carver measuring(nullptr);
  carve_table(measuring, kBlocks, Counts::kFull, nullptr);
  EXPECT_EQ(measuring.size(), 256 + 15 * 1280);
  Carver corners(nullptr);
  carve_table(corners, kCorners, Counts::kFull, nullptr);
  EXPECT_EQ(corners.size(), 256 + 16 * 1280);

  const Block block(allocate_block(measuring.size(), 0));
  Carver carver(block.get());
  _LASER_LINES_INFOS table = {};
  carve_table(carver, kBlocks, Counts::kFull, &table);
  EXPECT_EQ(carver.size(), measuring.size());
  EXPECT_EQ(table.lines, block.get());
  EXPECT_EQ(table.count, 15);
  auto* bytes = static_cast<unsigned char*>(block.get());
  for (int j = 0; j < 15; ++j) {
    EXPECT_EQ(static_cast<void*>(table.lines[j].cells), bytes + 256 + 1280 * j);
    EXPECT_EQ(table.lines[j].count, 50);
  }
}

// The stores of factory calibration and compensation, which have no owner class.
TEST(CarveTable, AddsUpToTheBlocksOfFactoryAndCompensation) {
  Carver factory(nullptr);
  factory.take<_LASER_PLANE_GRIDS>(1);
  EXPECT_EQ(factory.size(), 1280);
  factory.take<_MRV_LASER_PLANE_BLOCK_INFO>(100);
  EXPECT_EQ(factory.size(), 1280 + 4096);
  for (int p = 0; p < 100; ++p) carve_table(factory, kBlocks, Counts::kLeft, nullptr);
  EXPECT_EQ(factory.size(), 1950976);

  Carver compensation(nullptr);
  compensation.take<_LASER_PLANE_BLOCK_INFO>(100);
  for (int t = 0; t < 200; ++t) carve_table(compensation, kBlocks, Counts::kLeft, nullptr);
  EXPECT_EQ(compensation.size(), 8832 + 100 * 38912);
}

TEST(CarveTable, LeavesCountsWhenToldSo) {
  Carver measuring(nullptr);
  carve_table(measuring, kBlocks, Counts::kLeft, nullptr);
  const Block block(allocate_block(measuring.size(), 0));
  Carver carver(block.get());
  _LASER_LINES_INFOS table = {nullptr, 7};
  carve_table(carver, kBlocks, Counts::kLeft, &table);
  EXPECT_EQ(table.count, 7);
  EXPECT_EQ(table.lines[3].count, 0);
  EXPECT_NE(table.lines[3].cells, nullptr);
}

TEST(AllocateBlock, GivesZeroedMemory) {
  constexpr std::size_t kSize = 4096;
  const Block block(allocate_block(kSize, 0));
  ASSERT_NE(block, nullptr);
  const auto* bytes = static_cast<const unsigned char*>(block.get());
  EXPECT_TRUE(std::all_of(bytes, bytes + kSize, [](unsigned char b) { return b == 0; }));
}

TEST(AllocateBlock, GivesABlockForALayoutOfNothing) {
  const Block block(allocate_block(0, 0));
  EXPECT_NE(block, nullptr);
}

TEST(AllocateBlock, RefusesASizeBelowTheFixedSections) {
  EXPECT_EQ(allocate_block(1279, 1280), nullptr);
  EXPECT_EQ(allocate_block(-128, 0), nullptr);
  const Block enough(allocate_block(1280, 1280));
  EXPECT_NE(enough, nullptr);
}

TEST(AllocateBlock, RefusesASizeThatDoesNotFit32Bits) {
  EXPECT_EQ(allocate_block(std::int64_t{1} << 31, 0), nullptr);
  EXPECT_EQ(allocate_block((std::int64_t{1} << 32) + 4096, 0), nullptr);
}

TEST(ReportedSize, IsTheSizeOrMinusOneWhereItDoesNotFit) {
  EXPECT_EQ(reported_size(1280), 1280);
  EXPECT_EQ(reported_size(-256), -256);
  EXPECT_EQ(reported_size(std::numeric_limits<std::int32_t>::max()), 2147483647);
  EXPECT_EQ(reported_size(std::int64_t{1} << 31), -1);
  EXPECT_EQ(reported_size(-(std::int64_t{1} << 31) - 1), -1);
}

}  // namespace
