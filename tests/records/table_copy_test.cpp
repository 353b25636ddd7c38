#include "records/table_copy.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/records/owner_checks.h"

namespace {

using namespace kestrane;

// A table of four lines of six cells, whose memory is its own.
struct Table {
  std::array<std::array<_LASER_TRIPLE, 6>, 4> cells = {};
  std::array<_LASER_LINE_INFOS, 4> lines = {};
  _LASER_LINES_INFOS table = {};

  explicit Table(double mark) {
    for (std::size_t j = 0; j < 4; ++j) {
      lines[j] = {cells[j].data(), 6};
      for (std::size_t k = 0; k < 6; ++k) {
        const double value = mark + 10.0 * static_cast<double>(j) + static_cast<double>(k);
        cells[j][k] = {{value, value + 0.25, value + 0.5}};
      }
    }
    table = {lines.data(), 4};
  }
};

TEST(CopyTable, CopiesCountsAndCellsAndKeepsThePointersOfTheTarget) {
  const Table from(100.0);
  Table to(500.0);
  to.table.count = 1;
  to.lines[2].count = 0;
  copy_table(from.table, to.table);
  EXPECT_EQ(to.table.lines, to.lines.data());
  EXPECT_EQ(to.table.count, 4);
  for (std::size_t j = 0; j < 4; ++j) {
    EXPECT_EQ(to.lines[j].cells, to.cells[j].data());
    EXPECT_EQ(to.lines[j].count, 6);
    for (std::size_t k = 0; k < 6; ++k) {
      const double* v = from.cells[j][k].v;
      expect_triple(to.cells[j][k], v[0], v[1], v[2]);
    }
  }
}

TEST(CopyTable, StopsAtTheCountsOfTheSource) {
  Table from(100.0);
  from.table.count = 2;
  from.lines[0].count = 3;
  Table to(500.0);
  copy_table(from.table, to.table);
  EXPECT_EQ(to.table.count, 2);
  EXPECT_EQ(to.lines[0].count, 3);
  expect_triple(to.cells[0][2], 102.0, 102.25, 102.5);
  expect_triple(to.cells[0][3], 503.0, 503.25, 503.5);
  EXPECT_EQ(to.lines[2].count, 6);
  expect_triple(to.cells[2][0], 520.0, 520.25, 520.5);
}

TEST(CopyTable, CopiesACountBelow1AsANumberAndMovesNothing) {
  for (const std::int32_t count : {0, -5}) {
    Table from(100.0);
    from.lines[1].count = count;
    Table to(500.0);
    copy_table(from.table, to.table);
    EXPECT_EQ(to.lines[1].count, count);
    expect_triple(to.cells[1][0], 510.0, 510.25, 510.5);
    expect_triple(to.cells[2][0], 120.0, 120.25, 120.5);

    from.table.count = count;
    Table untouched(700.0);
    copy_table(from.table, untouched.table);
    EXPECT_EQ(untouched.table.count, count);
    EXPECT_EQ(untouched.lines[0].count, 6);
    expect_triple(untouched.cells[0][0], 700.0, 700.25, 700.5);
  }
}

TEST(CopyTable, TakesATableWithoutLines) {
  const _LASER_LINES_INFOS none = {nullptr, 0};
  _LASER_LINES_INFOS target = {nullptr, 3};
  copy_table(none, target);
  EXPECT_EQ(target.count, 0);
}

TEST(CopyTable, CopiesATableOntoItself) {
  Table table(100.0);
  copy_table(table.table, table.table);
  EXPECT_EQ(table.table.count, 4);
  expect_triple(table.cells[3][5], 135.0, 135.25, 135.5);
}

}  // namespace
