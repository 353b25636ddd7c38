#include "files/plane_block_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "kestrane/files.h"
#include "tests/files/records_under_test.h"
#include "tests/files/temporary_folder.h"
#include "tests/literal/files.h"

namespace kestrane {
namespace {

constexpr std::uint64_t kOld = 77;  // what a target holds before it is read into

void make_small(PlaneTable& table) {
  table->planes[0].block.count = 2;
  table->planes[0].block.lines[0].count = 2;
  table->planes[0].block.lines[1].count = 1;
}

std::string saved_bytes(PlaneTable& table, const TemporaryFolder& folder) {
  EXPECT_EQ(save_plane_block_infos(*table, folder.path("saved.txt")), KESTRANE_OK);
  return bytes_of(folder.path("saved.txt"));
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The 155 numbers of the grid record, counted up from 1.
std::string grid_text() {
  std::string text;
  for (int i = 1; i <= 155; ++i) text.append(std::to_string(i)).push_back('\n');
  return text;
}

// Reads `bytes` as the library does, with two windows, and as plain streams do; all must agree in
// status and in every byte of the record.
_KESTRANE_STATUS expect_read_as_literal(const MemoryFile& file, const std::string& bytes,
                                        PlaneTable& target, PlaneTable& reference) {
  reference.fill(kOld);
  std::istringstream stream(bytes);
  const _KESTRANE_STATUS expected = literal::read_plane_blocks(stream, *reference);
  const std::string wanted = reference.all_bytes();
  const std::string path = file.hold(bytes);
  target.fill(kOld);
  EXPECT_EQ(read_plane_block_infos(path, *target), expected);
  EXPECT_TRUE(target.all_bytes() == wanted);
  target.fill(kOld);
  InputFile narrow(path, 7);
  EXPECT_EQ(read_plane_blocks(narrow, *target), expected);
  EXPECT_TRUE(target.all_bytes() == wanted);
  return expected;
}

TEST(PlaneBlockFile, RefusesATableWithoutRowsOrGridsBeforeTheFileIsTouched) {
  const TemporaryFolder folder;
  const std::string path = folder.file("kept.txt", "kept");
  PlaneTable table(1, 1, 1);
  auto* planes = table->planes;
  auto* grids = table->grids;
  table->planes = nullptr;
  EXPECT_EQ(read_plane_block_infos(folder.path("none"), *table), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(save_plane_block_infos(*table, path), KESTRANE_ERR_NULL_POINTER);
  table->planes = planes;
  table->grids = nullptr;
  EXPECT_EQ(read_plane_block_infos(folder.path("none"), *table), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(save_plane_block_infos(*table, path), KESTRANE_ERR_NULL_POINTER);
  table->grids = grids;
  EXPECT_EQ(bytes_of(path), "kept");
}

TEST(PlaneBlockFile, WritesOneNumberALineAndThenANestingOfCounts) {
  const TemporaryFolder folder;
  PlaneTable table(1, 1, 1);
  make_small(table);
  double number = 0.0;
  for (double* list : {table->grids->grid_z, table->grids->grid_y_start, table->grids->grid_y_step})
    for (int k = 0; k < 51; ++k) list[k] = ++number;
  table->grids->z_start = ++number;
  table->grids->z_step = ++number;
  auto* lines = table->planes[0].block.lines;
  lines[0].cells[0] = {{0.1, -2.0, 1e-7}};
  lines[0].cells[1] = {{123456789.0, 0.0, -0.0}};
  lines[1].cells[0] = {{1.0 / 3.0, 1e100, 5.0}};
  std::copy_n(std::vector<double>{0.002, -0.25, 1500.0}.data(), 3, table->planes[0].laser_plane_R);
  EXPECT_EQ(saved_bytes(table, folder), grid_text() +
                                            "1\n2\n"
                                            "2\n"
                                            "0.1 -2 1e-07 \n"
                                            "1.23457e+08 0 -0 \n"
                                            "1\n"
                                            "0.333333 1e+100 5 \n"
                                            "0.002 -0.25 1500\n");
}

TEST(PlaneBlockFile, EndsCellLinesInABlankAndPlaneLinesInNone) {
  const TemporaryFolder folder;
  PlaneTable table(2, 2, 2);
  const std::vector<std::string> lines = lines_of(saved_bytes(table, folder));
  ASSERT_EQ(lines.size(), 156U + 2 * (1 + 15 * 51 + 1));
  EXPECT_EQ(lines[156], "15");
  EXPECT_EQ(lines[157], "50");
  EXPECT_EQ(lines[158].back(), ' ');
  EXPECT_EQ(std::count(lines[158].begin(), lines[158].end(), ' '), 3);
  const std::string& whole = lines[156 + 1 + 15 * 51];
  EXPECT_EQ(std::count(whole.begin(), whole.end(), ' '), 2);
  EXPECT_NE(whole.back(), ' ');
}

TEST(PlaneBlockFile, OfATableWithoutPlanesEndsAfterTheZero) {
  const TemporaryFolder folder;
  PlaneTable table(1, 0, 3);
  const std::string text = saved_bytes(table, folder);
  const std::vector<std::string> lines = lines_of(text);
  EXPECT_EQ(lines.size(), 156U);
  EXPECT_EQ(lines.back(), "0");
  EXPECT_EQ(text.back(), '\n');
}

TEST(PlaneBlockFile, WritesWhatFormattedStreamsWrite) {
  const TemporaryFolder folder;
  for (std::uint64_t seed = 1; seed <= 4; ++seed) {
    PlaneTable table(7, 7, seed);
    table->planes[0].block.lines[3].cells[4] = {{NAN, -INFINITY, -NAN}};
    table->planes[1].block.count = -3;
    table->planes[2].block.lines[5].count = 0;
    table->planes[2].block.lines[6].count = -9;
    std::ostringstream expected;
    literal::save_plane_blocks(expected, *table);
    EXPECT_TRUE(saved_bytes(table, folder) == expected.str());
  }
}

TEST(PlaneBlockFile, WritesANegativePlaneCountAndNoPlane) {
  const TemporaryFolder folder;
  PlaneTable table(1, -4, 3);
  EXPECT_EQ(lines_of(saved_bytes(table, folder)).back(), "-4");
}

TEST(PlaneBlockFile, ReadsBackWhatItWroteToSixDigits) {
  constexpr double kHalfOfTheSixthDigit = 5.001e-6;  // relative, with the rounding of the parse
  const TemporaryFolder folder;
  PlaneTable saved(100, 100, 4), target(100, 100, kOld);
  saved_bytes(saved, folder);
  EXPECT_EQ(read_plane_block_infos(folder.path("saved.txt"), *target), KESTRANE_OK);
  for (int i = 0; i < 100; ++i) {
    for (int j = 0; j < 15; ++j) {
      for (int v = 0; v < 150; ++v) {
        const double wanted = saved->planes[i].block.lines[j].cells[v / 3].v[v % 3];
        const double got = target->planes[i].block.lines[j].cells[v / 3].v[v % 3];
        ASSERT_NEAR(got, wanted, std::abs(wanted) * kHalfOfTheSixthDigit);
      }
    }
  }
  const std::string again = folder.path("again.txt");
  EXPECT_EQ(save_plane_block_infos(*target, again), KESTRANE_OK);
  EXPECT_TRUE(bytes_of(again) == bytes_of(folder.path("saved.txt")));
}

TEST(PlaneBlockFile, RoundsNineDigitsToSix) {
  const TemporaryFolder folder;
  PlaneTable saved(1, 1, 5), target(1, 1, kOld);
  saved->planes[0].block.lines[14].cells[49].v[2] = 1.23456789;
  saved_bytes(saved, folder);
  EXPECT_EQ(read_plane_block_infos(folder.path("saved.txt"), *target), KESTRANE_OK);
  EXPECT_EQ(target->planes[0].block.lines[14].cells[49].v[2], 1.23457);
}

TEST(PlaneBlockFile, ReadsNumbersWhereverWhiteSpaceParts) {
  const MemoryFile file;
  PlaneTable target(1, 1, kOld), reference(1, 1, kOld);
  std::string text = grid_text() + "1 1 2 1 2 3 4 5 6 7 8 9";
  std::replace(text.begin(), text.end(), '\n', '\t');
  EXPECT_EQ(expect_read_as_literal(file, "\r\n" + text, target, reference), KESTRANE_OK);
  EXPECT_EQ(target->grids->z_step, 155.0);
  EXPECT_EQ(target->planes[0].block.lines[0].cells[1].v[2], 6.0);
  EXPECT_EQ(target->planes[0].laser_plane_R[2], 9.0);
}

TEST(PlaneBlockFile, LeavesOutWhatTheFormatDoesNotHold) {
  const MemoryFile file;
  PlaneTable target(1, 1, kOld), reference(1, 1, kOld);
  target->grids->grid_head[2] = reference->grids->grid_head[2] = 1234;
  target->planes[0].plane_flag = reference->planes[0].plane_flag = 9;
  expect_read_as_literal(file, grid_text() + "1 0 7 8 9", target, reference);
  EXPECT_EQ(target->grids->grid_head[2], 1234);
  EXPECT_EQ(target->planes[0].plane_flag, 9);
  EXPECT_EQ(target->planes[0].pivot[1], reference->planes[0].pivot[1]);
}

TEST(PlaneBlockFile, RefusesAnotherPlaneCountWithTheGridAlreadyRead) {
  const MemoryFile file;
  PlaneTable target(2, 2, kOld), reference(2, 2, kOld);
  for (const char* count : {"1", "3", "-2", "0", "2147483647", "2147483648", "x", ""})
    EXPECT_EQ(expect_read_as_literal(file, grid_text() + count, target, reference),
              KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(target->grids->grid_z[0], 1.0);
  EXPECT_EQ(target->grids->z_step, 155.0);
  EXPECT_EQ(target->plane_count, 2);
}

TEST(PlaneBlockFile, TakesAFileWithoutPlaneCountForATableWithoutPlanes) {
  const MemoryFile file;
  PlaneTable none(1, 0, kOld), none_reference(1, 0, kOld), one(1, 1, kOld),
      one_reference(1, 1, kOld);
  for (const char* text : {"", "1 2 3", "1 x 3"}) {
    EXPECT_EQ(expect_read_as_literal(file, text, none, none_reference), KESTRANE_OK);
    EXPECT_EQ(expect_read_as_literal(file, text, one, one_reference), KESTRANE_ERR_INVALID_PARAM);
  }
  EXPECT_EQ(none->grids->grid_z[0], 1.0);
}

TEST(PlaneBlockFile, ReadsANegativePlaneCountAsNoPlane) {
  const MemoryFile file;
  PlaneTable target(1, -1, kOld), reference(1, -1, kOld);
  EXPECT_EQ(expect_read_as_literal(file, grid_text() + "-1 1 1 1 2 3", target, reference),
            KESTRANE_OK);
}

TEST(PlaneBlockFile, KeepsEveryFieldAfterTheEndOfACutFile) {
  const TemporaryFolder folder;
  const MemoryFile file;
  PlaneTable saved(1, 1, 6), target(1, 1, kOld), reference(1, 1, kOld);
  make_small(saved);
  const std::string bytes = saved_bytes(saved, folder);
  const std::size_t counted = bytes.find("\n1\n2\n2\n") + 2;
  for (std::size_t size = 0; size <= bytes.size() && !HasFailure(); ++size)
    EXPECT_EQ(expect_read_as_literal(file, bytes.substr(0, size), target, reference),
              size < counted ? KESTRANE_ERR_INVALID_PARAM : KESTRANE_OK);
}

TEST(PlaneBlockFile, ReadsAnyFlippedBitAsFormattedStreamsDo) {
  const TemporaryFolder folder;
  const MemoryFile file;
  PlaneTable saved(1, 1, 7), target(1, 1, kOld), reference(1, 1, kOld);
  make_small(saved);
  std::string bytes = saved_bytes(saved, folder);
  for (std::size_t bit = 0; bit < 8 * bytes.size() && !HasFailure(); ++bit) {
    const char mask = static_cast<char>(1 << (bit % 8));
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ mask);
    expect_read_as_literal(file, bytes, target, reference);
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ mask);
  }
}

TEST(PlaneBlockFile, StoresNegativeCountsAndReadsNothingForThem) {
  const MemoryFile file;
  PlaneTable target(1, 1, kOld), reference(1, 1, kOld);
  EXPECT_EQ(expect_read_as_literal(file, grid_text() + "1 -3 7 8 9", target, reference),
            KESTRANE_OK);
  EXPECT_EQ(target->planes[0].block.count, -3);
  EXPECT_EQ(target->planes[0].laser_plane_R[0], 7.0);
  EXPECT_EQ(expect_read_as_literal(file, grid_text() + "1 1 -2147483648 7 8 9", target, reference),
            KESTRANE_OK);
  EXPECT_EQ(target->planes[0].block.lines[0].count, std::numeric_limits<std::int32_t>::min());
}

void add_number(std::string& text, std::int64_t number) {
  text += ' ';
  text += std::to_string(number);
}

// A file of one plane with these counts and as many numbers as they ask for, within reason.
std::string with_counts(std::int64_t lines, std::int64_t cells) {
  std::string text = grid_text() + "1";
  add_number(text, lines);
  for (int j = 0; j < lines && j < 20; ++j) {
    add_number(text, cells);
    for (int v = 0; v < 3 * cells && v < 3 * 60; ++v) add_number(text, v);
  }
  return text + " 7 8 9";
}

TEST(PlaneBlockFile, TakesEveryCountUpToTheRoomOfTheTable) {
  const MemoryFile file;
  PlaneTable target(1, 1, kOld), reference(1, 1, kOld);
  for (const auto& text : {with_counts(0, 0), with_counts(15, 0), with_counts(15, 50)})
    EXPECT_EQ(expect_read_as_literal(file, text, target, reference), KESTRANE_OK);
  EXPECT_EQ(target->planes[0].laser_plane_R[2], 9.0);
}

TEST(PlaneBlockFile, EndsAtACountBeyondTheRoomOfTheTableWithoutStoringIt) {
  const MemoryFile file;
  PlaneTable target(1, 1, kOld), reference(1, 1, kOld);
  for (const auto& text : {with_counts(16, 1), with_counts(2147483647, 1), with_counts(2, 51),
                           with_counts(2, 2147483647)})
    EXPECT_EQ(expect_read_as_literal(file, text, target, reference), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(target->planes[0].block.count, 2);
  EXPECT_EQ(target->planes[0].block.lines[0].count, 50);
}

TEST(PlaneBlockFile, TakesACountBeyondThirtyTwoBitsAsMalformed) {
  const MemoryFile file;
  PlaneTable target(1, 1, kOld), reference(1, 1, kOld);
  EXPECT_EQ(expect_read_as_literal(file, with_counts(2147483648, 1), target, reference),
            KESTRANE_OK);
  EXPECT_EQ(target->planes[0].block.count, 15);
}

// Such a number is read to its end, so that good ones follow it.
TEST(PlaneBlockFile, StopsAtANumberBeyondTheRangeOfDoubles) {
  const MemoryFile file;
  PlaneTable target(2, 2, kOld), reference(2, 2, kOld);
  const std::string planes = "2 1 1 2 2 2 3 3 3 1 1 4 4 4 5 5 5 6 7 8 9 10 11 12 13";
  const std::vector<std::string> numbers = lines_of(grid_text());
  for (std::size_t beyond = 0; beyond < numbers.size(); ++beyond) {
    std::string text;
    for (std::size_t i = 0; i < numbers.size(); ++i)
      text += (i == beyond ? "1e999" : numbers[i]) + ' ';
    EXPECT_EQ(expect_read_as_literal(file, text + planes, target, reference),
              KESTRANE_ERR_INVALID_PARAM);
  }
  for (std::size_t at = 0; at < planes.size(); ++at) {
    if (planes[at] == ' ') continue;
    const std::string cut = planes.substr(0, at) + "1e999" + planes.substr(at + 1);
    expect_read_as_literal(file, grid_text() + cut, target, reference);
  }
}

// Long counts everywhere, so that the seams between windows fall among them.
TEST(PlaneBlockFile, WritesCountsAcrossItsWindows) {
  const TemporaryFolder folder;
  PlaneTable table(400, 400, 9);
  for (int planes = 380; planes <= 400; ++planes) {
    table->plane_count = planes;
    for (int p = 0; p < 400; ++p) {
      for (int j = 0; j < 15; ++j)
        table->planes[p].block.lines[j].count = std::numeric_limits<std::int32_t>::min() + planes;
    }
    std::ostringstream expected;
    literal::save_plane_blocks(expected, *table);
    EXPECT_GT(expected.str().size(), kFileWindow);
    EXPECT_TRUE(saved_bytes(table, folder) == expected.str());
    table->grids->z_start *= 10.0;  // another length in front
  }
}

TEST(PlaneBlockFile, StopsAtTheFirstMalformedNumber) {
  const MemoryFile file;
  PlaneTable target(1, 1, kOld), reference(1, 1, kOld);
  for (const char* bad : {"inf", "nan", "1e400", "1e", "abc", "--1"}) {
    const std::string text = grid_text() + "1 1 2 1.5 2.5 3.5 4.5 " + bad + " 6.5 7 8 9";
    EXPECT_EQ(expect_read_as_literal(file, text, target, reference), KESTRANE_OK);
    const auto& cells = target->planes[0].block.lines[0].cells;
    const auto& old = reference->planes[0].block.lines[0].cells;
    EXPECT_EQ(cells[1].v[0], 4.5);
    EXPECT_EQ(cells[1].v[2], old[1].v[2]);
    EXPECT_NE(cells[1].v[2], 6.5);
  }
}

}  // namespace
}  // namespace kestrane
