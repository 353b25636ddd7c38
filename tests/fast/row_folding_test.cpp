#include "fast/row_folding.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "fast/lanes.h"
#include "simulation/random.h"

namespace {

using kestrane::fold_rows;
using kestrane::kFoldedRows;
using kestrane::kRowSize;
using kestrane::RowChunk;
using kestrane::RowTriangle;
using Row = std::vector<double>;
using Rows = std::vector<Row>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Folds rows in chunks of 256, the last one filled up with zeros.
RowTriangle folded(const Rows& rows) {
  RowTriangle triangle;
  for (std::size_t begin = 0; begin < rows.size(); begin += kFoldedRows) {
    RowChunk chunk{};
    std::size_t count = 0;
    for (; count < kFoldedRows && begin + count < rows.size(); ++count) {
      for (int c = 0; c < kRowSize; ++c) {
        chunk.column[c][count] = rows[begin + count][static_cast<std::size_t>(c)];
      }
    }
    fold_rows(chunk, static_cast<int>((count + 3) / 4 * 4), triangle);
  }
  return triangle;
}

Rows random_rows(std::uint64_t seed, int count) {
  simulation::Random random(seed);
  Rows rows;
  for (int i = 0; i < count; ++i) {
    Row row;
    for (int c = 0; c < kRowSize; ++c) row.push_back(std::pow(10.0, c - 3) * random.gaussian());
    rows.push_back(row);
  }
  return rows;
}

TEST(Lanes, AddUpInPairs) {
  const double values[4] = {1.0, 0x1p-53, 1.0, 0x1p-53};  // each small one is lost in its pair
  EXPECT_EQ(kestrane::Lanes::load(values).sum(), 2.0);
  const double apart[4] = {0x1p-53, 0x1p-53, 1.0, 0.0};
  EXPECT_EQ(kestrane::Lanes::load(apart).sum(), 1.0 + 0x1p-52);
}

TEST(FoldRows, LeavesTheTriangleAloneWithoutAnythingToFold) {
  RowTriangle triangle = folded(random_rows(1, 40));
  const RowTriangle before = triangle;
  RowChunk zeros{};
  fold_rows(zeros, kFoldedRows, triangle);
  for (int i = 0; i < kRowSize; ++i) {
    for (int j = 0; j < kRowSize; ++j) EXPECT_EQ(triangle.at[i][j], before.at[i][j]);
  }
}

TEST(FoldRows, TakesASingleRowAsItIsButForItsSign) {
  const Row row = {3, -1, 4, 1, -5, 9, 2};
  const RowTriangle triangle = folded({row});
  for (int c = 0; c < kRowSize; ++c) {
    // One square root and one division: the row's length and its share.
    EXPECT_NEAR(triangle.at[0][c], -row[static_cast<std::size_t>(c)], 1e-14) << c;
  }
}

TEST(FoldRows, StaysZeroBelowTheDiagonal) {
  const RowTriangle triangle = folded(random_rows(2, 700));
  for (int i = 0; i < kRowSize; ++i) {
    for (int j = 0; j < i; ++j) EXPECT_EQ(triangle.at[i][j], 0.0);
  }
}

// Entry (i, j) of A' A.
long double product(const Rows& rows, std::size_t i, std::size_t j) {
  long double sum = 0;
  for (const Row& row : rows) sum += static_cast<long double>(row[i]) * row[j];
  return sum;
}

TEST(FoldRows, KeepsTheProductsOfAllColumns) {
  constexpr double kRounding = 1e-14;  // of the columns' lengths
  for (const int count : {1, 4, 6, 7, 255, 256, 257, 3000}) {
    const Rows rows = random_rows(static_cast<std::uint64_t>(count), count);
    const RowTriangle triangle = folded(rows);
    for (std::size_t i = 0; i < kRowSize; ++i) {
      for (std::size_t j = 0; j < kRowSize; ++j) {
        long double sum = 0;
        for (const auto& row : triangle.at) sum += static_cast<long double>(row[i]) * row[j];
        const long double lengths = std::sqrt(product(rows, i, i) * product(rows, j, j));
        EXPECT_NEAR(static_cast<double>((sum - product(rows, i, j)) / lengths), 0.0, kRounding)
            << count << " rows, " << i << ", " << j;
      }
    }
  }
}

// Squared, the small entry is lost beside the 1: a factor of A' A would end at 0.
TEST(FoldRows, KeepsADirectionThatSquaresWouldLose) {
  constexpr double kSmall = 0x1p-40;
  const RowTriangle triangle =
      folded({{1, 1, 0, 0, 0, 0, 0}, {kSmall, 0, 0, 0, 0, 0, 0}, {0, kSmall, 0, 0, 0, 0, 0}});
  // To first order the root of 2; the square of the small entry does not show in double.
  EXPECT_NEAR(std::abs(triangle.at[1][1]) / kSmall, std::sqrt(2.0), 1e-10);
}

TEST(FoldRows, LetsANaNShow) {
  for (int c = 0; c < kRowSize; ++c) {
    Rows rows = random_rows(5, 20);
    rows[11][static_cast<std::size_t>(c)] = kNaN;
    const RowTriangle triangle = folded(rows);
    EXPECT_TRUE(std::isnan(triangle.at[c][c])) << c;
  }
}

TEST(FoldRows, KeepsNothingOfTheRowsBefore) {
  RowChunk bad{};
  bad.column[0][3] = bad.column[5][7] = kNaN;
  RowTriangle spoilt;
  RowChunk zeros{};
  RowTriangle untouched;
  fold_rows(bad, kFoldedRows, spoilt);
  fold_rows(zeros, kFoldedRows, untouched);
  EXPECT_TRUE(std::isnan(spoilt.at[0][0]));
  for (const auto& row : untouched.at) {
    for (const double value : row) EXPECT_EQ(value, 0.0);
  }
}

// The same reflections one number after the other: four running sums a product, added in pairs.
void fold_plainly(const Rows& rows, RowTriangle& triangle) {
  Rows a = rows;
  const auto dot = [&](std::size_t i, std::size_t j) {
    double lane[4] = {0, 0, 0, 0};
    for (std::size_t r = 0; r < a.size(); ++r) lane[r % 4] = lane[r % 4] + a[r][i] * a[r][j];
    return (lane[0] + lane[1]) + (lane[2] + lane[3]);
  };
  for (std::size_t k = 0; k < kRowSize; ++k) {
    double* top = triangle.at[k];
    const double squares = dot(k, k);
    if (squares == 0.0) continue;
    double dots[kRowSize] = {};
    for (std::size_t j = k + 1; j < kRowSize; ++j) dots[j] = dot(k, j);
    const double length = std::sqrt(top[k] * top[k] + squares);
    const double end = std::signbit(top[k]) ? length : -length;
    const double head = top[k] - end;
    const double factor = 1.0 / (end * head);
    top[k] = end;
    for (std::size_t j = k + 1; j < kRowSize; ++j) {
      const double share = factor * (head * top[j] + dots[j]);
      top[j] = top[j] + share * head;
      for (Row& row : a) row[j] = row[j] + share * row[k];
    }
  }
}

TEST(FoldRows, HasTheBitsOfFourPlainSums) {
  RowTriangle expected;
  Rows all;
  for (std::uint64_t seed = 0; seed < 5; ++seed) {
    const Rows rows = random_rows(seed, kFoldedRows);
    fold_plainly(rows, expected);
    all.insert(all.end(), rows.begin(), rows.end());
  }
  const RowTriangle triangle = folded(all);
  for (int i = 0; i < kRowSize; ++i) {
    for (int j = 0; j < kRowSize; ++j) EXPECT_EQ(triangle.at[i][j], expected.at[i][j]);
  }
}

}  // namespace
