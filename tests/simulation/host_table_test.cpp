#include "simulation/host_table.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>

namespace {

using simulation::HostTable;

TEST(HostTable, LeadsFromItsRecordToEveryCellOnce) {
  HostTable table(3);
  const _MRV_LASER_PLANE_BLOCK_INFOS& infos = table.infos();
  ASSERT_EQ(infos.plane_count, 3);
  std::set<const kestrane::_LASER_TRIPLE*> cells;
  for (int p = 0; p < 3; ++p) {
    ASSERT_EQ(infos.planes[p].block.count, 15);
    for (int j = 0; j < 15; ++j) {
      ASSERT_EQ(infos.planes[p].block.lines[j].count, 50);
      for (int k = 0; k < 50; ++k) {
        const kestrane::_LASER_TRIPLE* cell = &infos.planes[p].block.lines[j].cells[k];
        cells.insert(cell);
        EXPECT_EQ(cell, &table.cell(p, j, k));
        EXPECT_EQ(cell->v, table.abc(p, j, k));
        EXPECT_EQ(cell->v, table.abc(p, 0, 50 * j + k));
      }
    }
  }
  EXPECT_EQ(cells.size(), 3u * 15u * 50u);
}

TEST(HostTable, StartsAtZeroWithoutSharingItsGridRecord) {
  HostTable table(1);
  EXPECT_EQ(table.cell(0, 14, 49).v[2], 0.0);
  EXPECT_EQ(table.row(0).laser_plane_R[0], 0.0);
  EXPECT_EQ(table.grids().grid_z[50], 0.0);
  EXPECT_EQ(&table.grids(), table.infos().grids);
  EXPECT_NE(&table.grids(), &HostTable(1).grids());
}

TEST(HostTable, TakesItsMemoryAlongWhenItIsMoved) {
  HostTable table(2);
  table.fill(1.0, 2.0, 3.0);
  table.infos().grids->z_step = 27.0;
  const HostTable* before = &table;
  HostTable moved = std::move(table);
  EXPECT_NE(&moved, before);
  EXPECT_EQ(moved.size(), 2);
  EXPECT_EQ(moved.infos().planes, &moved.row(0));
  EXPECT_EQ(moved.infos().planes[1].block.lines[3].cells[7].v[1], 2.0);
  EXPECT_EQ(moved.infos().grids->z_step, 27.0);
  EXPECT_EQ(moved.row(1).laser_plane_R[2], 3.0);
}

TEST(HostTable, GivesEveryRowAndLineTheSameCount) {
  HostTable table(2);
  table.set_counts(4, 9);
  for (int p = 0; p < 2; ++p) {
    EXPECT_EQ(table.row(p).block.count, 4);
    for (int j = 0; j < 15; ++j) EXPECT_EQ(table.line(p, j).count, 9);
  }
}

}  // namespace
