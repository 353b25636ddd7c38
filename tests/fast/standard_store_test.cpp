#include "fast/standard_store.h"

#include <cstdlib>
#include <vector>

#include "tests/fast/fast_support.h"

namespace {

using namespace fast_support;

constexpr std::ptrdiff_t kHead = 8960;
constexpr std::ptrdiff_t kBody = 19456;
constexpr std::ptrdiff_t kTail = 1280;

class StandardStore : public testing::Test {
 protected:
  StandardStore() : block_(1955840, 0) { kestrane::lay_out_standard(block_.data(), standard_); }

  std::ptrdiff_t offset(const void* address) const {
    return static_cast<const unsigned char*>(address) - block_.data();
  }

  std::vector<unsigned char> block_;
  kestrane::_LASER_PLANE_BLOCK_INFOS* standard_ = nullptr;
};

TEST_F(StandardStore, MeasuresHeadBodiesAndTail) {
  kestrane::_LASER_PLANE_BLOCK_INFOS* untouched = nullptr;
  EXPECT_EQ(kestrane::lay_out_standard(nullptr, untouched), 1955840);
  EXPECT_EQ(kestrane::lay_out_standard(nullptr, untouched), kHead + 100 * kBody + kTail);
  EXPECT_EQ(untouched, nullptr);
}

TEST_F(StandardStore, ReportsTheSameSizeWhenCarving) {
  EXPECT_EQ(kestrane::lay_out_standard(block_.data(), standard_), 1955840);
}

TEST_F(StandardStore, PutsRecordRowsAndGridsWhereTheyBelong) {
  EXPECT_EQ(offset(standard_), 0);
  EXPECT_EQ(offset(standard_->planes), 128);
  EXPECT_EQ(offset(standard_->grids), kHead + 100 * kBody);
}

TEST_F(StandardStore, WiresEveryLineAndCellArrayOfEveryBody) {
  for (std::ptrdiff_t p = 0; p < 100; ++p) {
    const kestrane::_LASER_LINES_INFOS& table = standard_->planes[p].block;
    ASSERT_EQ(offset(table.lines), kHead + p * kBody);
    for (std::ptrdiff_t j = 0; j < 15; ++j) {
      ASSERT_EQ(offset(table.lines[j].cells), kHead + p * kBody + 256 + j * 1280);
    }
  }
}

TEST_F(StandardStore, LeavesCountsAndTheSecondTableAlone) {
  EXPECT_EQ(standard_->plane_count, 0);
  for (int p = 0; p < 100; ++p) {
    EXPECT_EQ(standard_->planes[p].block.count, 0);
    EXPECT_EQ(standard_->planes[p].block.lines[14].count, 0);
    EXPECT_EQ(standard_->planes[p].block_aux.lines, nullptr);
  }
}

TEST_F(StandardStore, CopiesCountsCellsAndTheWholeGridRecord) {
  fast_scene::Standard source(2);
  for (int p = 0; p < 2; ++p) {
    for (int j = 0; j < 15; ++j) {
      for (int k = 0; k < 50; ++k) {
        source.cell(p, j, k) = {{p + 1.0, j + 0.25, k + 0.5}};
      }
    }
  }
  for (int i = 0; i < 4; ++i) source.grids().grid_head[i] = 40 + i;
  kestrane::copy_standard(source.host(), *standard_);
  EXPECT_EQ(standard_->plane_count, 2);
  for (int p = 0; p < 2; ++p) {
    const kestrane::_LASER_LINES_INFOS& table = standard_->planes[p].block;
    ASSERT_EQ(table.count, 15);
    for (int j = 0; j < 15; ++j) {
      ASSERT_EQ(table.lines[j].count, 50);
      for (int k = 0; k < 50; ++k) {
        EXPECT_EQ(table.lines[j].cells[k].v[0], p + 1.0);
        EXPECT_EQ(table.lines[j].cells[k].v[1], j + 0.25);
        EXPECT_EQ(table.lines[j].cells[k].v[2], k + 0.5);
      }
    }
  }
  EXPECT_EQ(std::memcmp(standard_->grids, &source.grids(), sizeof(source.grids())), 0);
  EXPECT_EQ(standard_->grids->grid_head[3], 43);
}

TEST_F(StandardStore, CopiesPartlyUsedTablesAsFarAsTheirCountsGo) {
  fast_scene::Standard source = flat_standard(1);
  _MRV_LASER_PLANE_BLOCK_INFOS host = source.host();
  host.planes[0].block.count = 3;
  host.planes[0].block.lines[1].count = 7;
  kestrane::copy_standard(host, *standard_);
  const kestrane::_LASER_LINES_INFOS& table = standard_->planes[0].block;
  EXPECT_EQ(table.count, 3);
  EXPECT_EQ(table.lines[1].count, 7);
  EXPECT_EQ(table.lines[1].cells[6].v[0], kSheetAt128.v[0]);
  EXPECT_EQ(table.lines[1].cells[7].v[0], 0.0);
  EXPECT_EQ(table.lines[3].count, 0);
}

TEST_F(StandardStore, CopiesAPlaneCountBelowOneAsANumber) {
  fast_scene::Standard source = flat_standard(1);
  _MRV_LASER_PLANE_BLOCK_INFOS host = source.host();
  for (const std::int32_t count : {0, -2}) {
    host.plane_count = count;
    kestrane::copy_standard(host, *standard_);
    EXPECT_EQ(standard_->plane_count, count);
    EXPECT_EQ(standard_->planes[0].block.lines[0].cells[0].v[0], 0.0);
  }
  EXPECT_EQ(standard_->grids->z_step, 27.0) << "the bounds come along all the same";
}

TEST_F(StandardStore, LeavesAPlaneOfAnEarlierTableBeyondTheCount) {
  fast_scene::Standard two = flat_standard(2);
  kestrane::copy_standard(two.host(), *standard_);
  fast_scene::Standard one = flat_standard(1);
  one.fill(0, {{3.0, 2.0, 1.0}});
  kestrane::copy_standard(one.host(), *standard_);
  EXPECT_EQ(standard_->plane_count, 1);
  EXPECT_EQ(standard_->planes[0].block.lines[0].cells[0].v[0], 3.0);
  EXPECT_EQ(standard_->planes[1].block.lines[0].cells[0].v[0], kSheetAt128.v[0]);
}

TEST_F(StandardStore, LeavesWholePlanesOut) {
  fast_scene::Standard source = flat_standard(1);
  _MRV_LASER_PLANE_BLOCK_INFOS host = source.host();
  host.planes[0].laser_plane_R[0] = 5.0;
  kestrane::copy_standard(host, *standard_);
  EXPECT_EQ(standard_->planes[0].laser_plane_R[0], 0.0);
}

TEST_F(StandardStore, KeepsNoPointerIntoTheHostsTable) {
  fast_scene::Standard source = flat_standard(1);
  kestrane::copy_standard(source.host(), *standard_);
  source.fill(0, {{9.0, 9.0, 9.0}});
  EXPECT_EQ(standard_->planes[0].block.lines[0].cells[0].v[0], kSheetAt128.v[0]);
}

}  // namespace
