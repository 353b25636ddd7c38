#include "kestrane/quality/storage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

#include "kestrane/files.h"
#include "tests/files/temporary_folder.h"
#include "tests/quality/stored_records.h"
#include "tests/support/bits.h"

namespace {

using kestrane::bytes_of;
using kestrane::MemoryFile;
using kestrane::TemporaryFolder;
using kestrane::quality::FileError;
using kestrane::quality::PlaneTable;
using kestrane::quality::read_coefficients;
using kestrane::quality::read_table;
using kestrane::quality::save_coefficients;
using kestrane::quality::save_table;
using kestrane::quality::SavedTable;
using kestrane_test::kNaN;
using quality_tests::bytes_of_coefficients;
using quality_tests::odd_table;
using quality_tests::OddCoefficients;
using quality_tests::table_in;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// The reason of the FileError that `step` throws; empty without one.
template <class Step>
std::string reason(Step step) {
  try {
    step();
  } catch (const FileError& error) {
    return error.reason();
  }
  return {};
}

std::string table_text(const PlaneTable& table) {
  const TemporaryFolder folder;
  save_table(table, folder.path("table"));
  return bytes_of(folder.path("table"));
}

std::size_t files_in(const TemporaryFolder& folder) {
  const std::filesystem::directory_iterator files(folder.path());
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

// --- tables ----------------------------------------------------------------------------------

TEST(StoredTable, ComesBackWithSixDigits) {
  const TemporaryFolder folder;
  const PlaneTable table = odd_table(3);
  save_table(table, folder.path("table"));
  const PlaneTable stored = read_table(folder.path("table"));
  ASSERT_EQ(stored.planes(), 3);
  for (std::size_t i = 0; i < table.size(); ++i)
    ASSERT_NEAR(stored.data()[i], table.data()[i], 5e-6 * std::abs(table.data()[i]));
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(stored.whole_plane(2)[i], table.whole_plane(2)[i], 5e-6);
  EXPECT_EQ(stored.grids().grid_z[50], 1500.0);
  // What six digits hold comes back to the bit.
  save_table(stored, folder.path("again"));
  EXPECT_EQ(read_table(folder.path("again")), stored);
  EXPECT_EQ(files_in(folder), 2U);
}

TEST(StoredTable, IsTheFileThatTheLibraryWrites) {
  const TemporaryFolder folder;
  const PlaneTable table = odd_table(2);
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  for (std::int32_t p = 0; p < 2; ++p) {
    for (std::int32_t j = 0; j < 15; ++j) {
      for (std::int32_t k = 0; k < 50; ++k)
        group.planes[p].block.lines[j].cells[k] = table.cell(p, {j, k});
    }
    for (int i = 0; i < 3; ++i) group.planes[p].laser_plane_R[i] = table.whole_plane(p)[i];
  }
  ASSERT_EQ(kestrane::save_plane_block_infos(group, folder.path("library")), KESTRANE_OK);
  EXPECT_EQ(table_text(table), bytes_of(folder.path("library")));
}

// x = -1/a with a = -1/120: 0.00833333 gives x = 120.000048000019...
TEST(StoredTable, TellsHowFarSixDigitsMoveX) {
  const TemporaryFolder folder;
  PlaneTable table(2);
  EXPECT_EQ(save_table(table, folder.path("empty")).largest_move, 0.0);
  EXPECT_EQ(save_table(table, folder.path("empty")).plane, -1);
  table.cell(0, {1, 2}) = {{-0.008, 0.0, 0.0}};  // exact
  table.cell(1, {3, 4}) = {{-1.0 / 120.0, 0.0, 0.0}};
  const SavedTable saved = save_table(table, folder.path("table"));
  EXPECT_NEAR(saved.largest_move, 1.0 / 0.00833333 - 120.0, 1e-12);
  EXPECT_EQ(saved.plane, 1);
  EXPECT_EQ(saved.block.line, 3);
  EXPECT_EQ(saved.block.cell, 4);
  // The largest move, whether the block comes first or last.
  table.cell(1, {3, 5}) = {{-0.00833331, 0.0, 0.0}};
  table.cell(1, {14, 49}) = {{-0.008000001, 0.0, 0.0}};
  EXPECT_EQ(save_table(table, folder.path("table")).block.cell, 4);
}

TEST(StoredTable, NamesABlockWhereSixDigitsMoveNothing) {
  const TemporaryFolder folder;
  PlaneTable table(1);
  table.cell(0, {1, 2}) = {{-0.008, 0.0, 0.0}};
  const SavedTable saved = save_table(table, folder.path("table"));
  EXPECT_EQ(saved.largest_move, 0.0);
  EXPECT_EQ(saved.plane, 0);
  EXPECT_EQ(saved.block.line, 1);
  EXPECT_EQ(saved.block.cell, 2);
}

// 2.220446e-16 is below the size under which a cell is empty, its text 2.22045e-16 is not.
TEST(StoredTable, ComparesNoCellThatIsEmptyBeforeItIsRounded) {
  const TemporaryFolder folder;
  PlaneTable table(1);
  table.cell(0, {1, 2}) = {{2.220446e-16, 0.0, 0.0}};
  ASSERT_TRUE(table.is_empty(0, {1, 2}));
  EXPECT_EQ(save_table(table, folder.path("table")).plane, -1);
  EXPECT_FALSE(read_table(folder.path("table")).is_empty(0, {1, 2}));
}

// b alone is rounded, so that x moves most at the block's far corner.
TEST(StoredTable, SeesTheMoveAtTheCornersOfABlock) {
  const TemporaryFolder folder;
  PlaneTable table(1);
  const double b = 0.001234567;
  table.cell(0, {14, 49}) = {{-0.008, b, 0.0}};
  const double y = std::tan(0.5235987755982988) * 1473.0;
  EXPECT_NEAR(save_table(table, folder.path("table")).largest_move,
              std::abs(0.00123457 - b) * y / 0.008, 1e-9);
}

// The number that six digits leave.
double six_digits(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return std::strtod(text, nullptr);
}

double x_of(const double (&abc)[3], double y, double z) {
  return -(abc[1] * y + abc[2] * z + 1.0) / abc[0];
}

// Cells whose x moves most at each of the four corners, and in places between.
TEST(StoredTable, LooksAtTheMiddleAndTheCornersOfEveryBlock) {
  const TemporaryFolder folder;
  const double slope = std::tan(0.5235987755982988);
  for (const double b_sign : {1.0, -1.0}) {
    for (const double c_sign : {1.0, -1.0}) {
      for (const std::int32_t cell : {0, 49}) {
        for (const std::int32_t line : {0, 14}) {
          PlaneTable table(1);
          const double abc[3] = {-1.0 / 119.0, b_sign / 4567.0, c_sign / 678.9};
          const double stored[3] = {six_digits(abc[0]), six_digits(abc[1]), six_digits(abc[2])};
          table.cell(0, {line, cell}) = {{abc[0], abc[1], abc[2]}};
          const double z = 150.0 + 27.0 * cell;
          const double width = 2.0 * slope * z / 15.0;
          const double y = -slope * z + line * width;
          double largest = 0.0;
          for (const auto& [across, along] :
               {std::pair(0.5, 0.5), std::pair(0.0, 0.0), std::pair(1.0, 0.0), std::pair(0.0, 1.0),
                std::pair(1.0, 1.0)}) {
            const double at_y = y + across * width;
            const double at_z = z + along * 27.0;
            largest = std::max(largest, std::abs(x_of(abc, at_y, at_z) - x_of(stored, at_y, at_z)));
          }
          EXPECT_NEAR(save_table(table, folder.path("table")).largest_move, largest, 1e-10)
              << line << ", " << cell;
        }
      }
    }
  }
}

TEST(StoredTable, IsRefusedWhereNoFileCanHoldIt) {
  const TemporaryFolder folder;
  const std::string path = folder.file("table", "old");
  EXPECT_THROW(save_table(PlaneTable(0), path), std::invalid_argument);
  const auto refuses = [&](auto spoil) {
    PlaneTable table = odd_table(2);
    spoil(table);
    EXPECT_THROW(save_table(table, path), std::invalid_argument);
  };
  refuses([](PlaneTable& table) { table.cell(1, {14, 49}).v[2] = kNaN; });
  refuses([](PlaneTable& table) { table.cell(0, {0, 0}).v[0] = -1.0 / 0.0; });
  refuses([](PlaneTable& table) { table.whole_plane(1)[2] = kNaN; });
  refuses([](PlaneTable& table) { table.grids().grid_z[50] = kNaN; });
  refuses([](PlaneTable& table) { table.grids().grid_y_start[0] = kNaN; });
  refuses([](PlaneTable& table) { table.grids().grid_y_step[7] = kNaN; });
  refuses([](PlaneTable& table) { table.grids().z_start = kNaN; });
  refuses([](PlaneTable& table) { table.grids().z_step = kNaN; });
  EXPECT_EQ(bytes_of(path), "old");
  EXPECT_EQ(files_in(folder), 1U);
}

TEST(StoredTable, TakesARowWithoutLinesAsEmpty) {
  std::string text = table_text(PlaneTable(1));
  const std::size_t row = text.find("\n15\n50\n");
  text = text.substr(0, row) + "\n0\n1 2 3\n";
  const MemoryFile file;
  const PlaneTable table = read_table(file.hold(text));
  EXPECT_TRUE(table.row_is_empty(0));
  EXPECT_EQ(table.data()[0], 0.0);
  EXPECT_EQ(table.whole_plane(0)[2], 3.0);
}

TEST(StoredTable, NamesTheLastPlaneAndLineThatAreWhole) {
  const std::string text = table_text(odd_table(4));
  const MemoryFile file;
  const auto cut_at = [&](std::size_t size) {
    const std::string path = file.hold(text.substr(0, size));
    return reason([&] { read_table(path); });
  };
  EXPECT_EQ(cut_at(0), "cut in the bounds of the grid, after number 0");
  std::size_t place = 0;  // of the 156th number's line: the count of planes
  for (int line = 0; line < 155; ++line) place = text.find('\n', place) + 1;
  EXPECT_EQ(cut_at(place), "cut before the number of planes");
  place = text.find('\n', place) + 1;
  EXPECT_EQ(cut_at(place), "cut before plane 0");
  for (std::int32_t p = 0; p < 4; ++p) {
    const std::string plane = std::to_string(p);
    place = text.find('\n', place) + 1;  // 15 lines
    EXPECT_EQ(cut_at(place),
              p == 0 ? "cut before plane 0" : "cut after plane " + std::to_string(p - 1));
    for (std::int32_t j = 0; j < 15; ++j) {
      place = text.find('\n', place) + 1;  // 50 cells
      const std::string before =
          j > 0   ? "cut after plane " + plane + ", line " + std::to_string(j - 1)
          : p > 0 ? "cut after plane " + std::to_string(p - 1)
                  : "cut before plane 0";
      EXPECT_EQ(cut_at(place), before);
      for (int line = 0; line < 49; ++line) place = text.find('\n', place) + 1;
      EXPECT_EQ(cut_at(text.find(' ', place) + 1), before);  // in the last cell
      place = text.find('\n', place) + 1;
      EXPECT_EQ(cut_at(place), "cut after plane " + plane + ", line " + std::to_string(j));
    }
    place = text.find('\n', place) + 1;
  }
  EXPECT_EQ(place, text.size());
  EXPECT_EQ(cut_at(place - 1), "cut: it does not end with a line end");
}

TEST(StoredTable, IsRefusedCutAtEveryByte) {
  PlaneTable table = odd_table(1);
  const std::string text = table_text(table);
  const MemoryFile file;
  for (std::size_t size = 0; size < text.size(); ++size) {
    const std::string path = file.hold(text.substr(0, size));
    ASSERT_NE(reason([&] { read_table(path); }), "") << size;
  }
}

TEST(StoredTable, IsRefusedWhereItGoesOn) {
  const std::string text = table_text(odd_table(1));
  const MemoryFile file;
  EXPECT_EQ(reason([&] { read_table(file.hold(text + "1\n")); }), "goes on after the last plane");
  EXPECT_EQ(reason([&] { read_table(file.hold(text + "\n")); }), "");
  EXPECT_EQ(reason([&] { read_table(file.hold(text + std::string(70000, ' ') + "x\n")); }),
            "goes on after the last plane");
  EXPECT_EQ(reason([&] { read_table(file.hold(text + std::string(70000, ' ') + "\n")); }), "");
}

TEST(StoredTable, IsRefusedWithCountsThatNoTableHas) {
  const std::string text = table_text(odd_table(1));
  const std::size_t row = text.find("\n1\n15\n50\n") + 1;
  const MemoryFile file;
  const auto with = [&](const std::string& counts) {
    const std::string path = file.hold(text.substr(0, row) + counts + text.substr(row + 8));
    return reason([&] { read_table(path); });
  };
  EXPECT_EQ(with("1\n15\n50\n"), "");
  EXPECT_EQ(with("0\n15\n50\n"), "holds 0 planes instead of 1 to 100");
  EXPECT_EQ(with("101\n15\n50\n"), "holds 101 planes instead of 1 to 100");
  EXPECT_EQ(with("1\n14\n50\n"), "plane 0 has 14 lines instead of 15");
  EXPECT_EQ(with("1\n16\n50\n"), "has a count that no table has before plane 0");
  EXPECT_EQ(with("1\n-1\n50\n"), "plane 0 has -1 lines instead of 15");
  EXPECT_EQ(with("1\n15\n-1\n"), "plane 0, line 0 has -1 cells instead of 50");
  EXPECT_EQ(with("1\n15\n49\n"), "plane 0, line 0 has 49 cells instead of 50");
  EXPECT_EQ(with("1\n15\n51\n"), "has a count that no table has before plane 0");
  EXPECT_EQ(with("1\n15\nfifty\n"), "cut before plane 0");
}

// Refused, or the numbers that the file holds then.
void expect_honest(const std::string& path, const std::string& text, std::size_t place) {
  const std::optional<PlaneTable> held = table_in(text);
  try {
    const PlaneTable table = read_table(path);
    ASSERT_TRUE(held) << "byte " << place;
    ASSERT_EQ(table, *held) << "byte " << place;
  } catch (const FileError&) {
    ASSERT_FALSE(held) << "byte " << place;
  }
}

TEST(StoredTable, IsHonestWithEveryBitFlipped) {
  PlaneTable table(1);
  for (int i = 0; i < 3; ++i) table.whole_plane(0)[i] = 1.0 / (3.0 + i);
  std::string text = table_text(table);
  const std::size_t row = text.find("\n15\n50\n");
  const std::size_t whole = text.rfind('\n', text.size() - 2);
  text = text.substr(0, row) + "\n0" + text.substr(whole);  // an empty row: a small file
  const MemoryFile file;
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      const char byte = text[i];
      text[i] = static_cast<char>(text[i] ^ (1 << bit));
      expect_honest(file.hold(text), text, i);
      text[i] = byte;
    }
  }
}

TEST(StoredTable, IsHonestWithABitOfEveryFifthByteFlipped) {
  std::string text = table_text(odd_table(1));
  const MemoryFile file;
  for (std::size_t i = 0; i < text.size(); i += 5) {
    const char byte = text[i];
    text[i] = static_cast<char>(text[i] ^ (1 << (i / 5 % 7)));
    expect_honest(file.hold(text), text, i);
    text[i] = byte;
  }
}

// --- coefficients ----------------------------------------------------------------------------

TEST(StoredCoefficients, ComeBackToTheBit) {
  const TemporaryFolder folder;
  OddCoefficients record(5);
  record->opt_coeffs->planes[2].count = 0;
  save_coefficients(*record, folder.path("coefficients"));
  EXPECT_EQ(bytes_of(folder.path("coefficients")), bytes_of_coefficients(*record));
  const auto stored = read_coefficients(folder.path("coefficients"));
  EXPECT_EQ(stored->plane_count, 5);
  EXPECT_EQ(stored->plane_capacity, 5);
  EXPECT_EQ(bytes_of_coefficients(*stored), bytes_of_coefficients(*record));
  EXPECT_EQ(files_in(folder), 1U);
}

TEST(StoredCoefficients, AreRefusedWhereNoFileCanHoldThem) {
  const TemporaryFolder folder;
  const std::string path = folder.file("coefficients", "old");
  const auto refuses = [&](auto spoil) {
    OddCoefficients owner(2);
    kestrane::_COMPENSATOR_COEFFS record = *owner;
    kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS table = *record.opt_coeffs;
    record.opt_coeffs = &table;
    spoil(record);
    EXPECT_THROW(save_coefficients(record, path), std::invalid_argument);
  };
  refuses([](auto& record) { record.opt_coeffs = nullptr; });
  refuses([](auto& record) { record.opt_coeffs->planes = nullptr; });
  refuses([](auto& record) { record.Mbs_factory_to_user = nullptr; });
  refuses([](auto& record) { record.plane_count = 0; });
  refuses([](auto& record) { record.plane_count = record.opt_coeffs->plane_count = 0; });
  refuses([](auto& record) { record.plane_count = 1; });
  refuses([](auto& record) { record.plane_count = record.opt_coeffs->plane_count = 101; });
  refuses([](auto& record) { record.range_count = 21; });
  refuses([](auto& record) { record.range_count = -1; });
  refuses([](auto& record) { record.opt_coeffs->planes[1].count = 15; });
  refuses([](auto& record) { record.opt_coeffs->planes[1].lines[3].count = 50; });
  refuses([](auto& record) { record.opt_coeffs->planes[1].lines[15].cells[50].v[2] = kNaN; });
  refuses([](auto& record) { record.Mbs_factory_to_user[23] = kNaN; });
  EXPECT_EQ(bytes_of(path), "old");
}

TEST(StoredCoefficients, AreRefusedCutAtEveryByte) {
  OddCoefficients record(2);
  const std::string bytes = bytes_of_coefficients(*record);
  const MemoryFile file;
  for (std::size_t size = 0; size < bytes.size(); size += size < 400 || size > 39000 ? 1 : 7) {
    const std::string path = file.hold(bytes.substr(0, size));
    ASSERT_THAT(reason([&] { read_coefficients(path); }), StartsWith("cut ")) << size;
  }
  EXPECT_EQ(reason([&] { read_coefficients(file.hold(bytes)); }), "");
  EXPECT_EQ(reason([&] { read_coefficients(file.hold(bytes + " ")); }),
            "goes on after the last transform");
  EXPECT_EQ(reason([&] { read_coefficients(file.hold(bytes + std::string(5000, ' '))); }),
            "goes on after the last transform");
}

// 12 + 49 (4 + 96) + 2 * 8 bytes and one full row of 16 (4 + 51 * 24): two windows of a reader.
TEST(StoredCoefficients, AreReadToTheEndWhereThatIsTheEndOfAWindow) {
  OddCoefficients record(49);
  for (std::int32_t p = 1; p < 49; ++p) record->opt_coeffs->planes[p].count = 0;
  const std::string bytes = bytes_of_coefficients(*record);
  ASSERT_EQ(bytes.size(), 2U * 12288);
  const MemoryFile file;
  EXPECT_EQ(bytes_of_coefficients(*read_coefficients(file.hold(bytes))), bytes);
  EXPECT_EQ(reason([&] { read_coefficients(file.hold(bytes + " ")); }),
            "goes on after the last transform");
}

TEST(StoredCoefficients, NameTheLastPlaneAndLineThatAreWhole) {
  OddCoefficients record(4);
  const std::string bytes = bytes_of_coefficients(*record);
  const MemoryFile file;
  const std::size_t line = 4 + 51 * 24;
  const std::size_t row = 4 + 16 * line;
  const auto cut_at = [&](std::size_t size) {
    const std::string path = file.hold(bytes.substr(0, size));
    return reason([&] { read_coefficients(path); });
  };
  EXPECT_EQ(cut_at(3), "cut before the number of planes");
  EXPECT_EQ(cut_at(4), "cut before plane 0");
  EXPECT_EQ(cut_at(4 + 3 * row + 4 + 8 * line), "cut after plane 3, line 7");
  EXPECT_EQ(cut_at(4 + 3 * row + 4 + 8 * line + 100), "cut after plane 3, line 7");
  EXPECT_EQ(cut_at(4 + 3 * row - 1), "cut after plane 2, line 14");
  EXPECT_EQ(cut_at(4 + 3 * row), "cut after plane 2");
  EXPECT_EQ(cut_at(4 + 4 * row), "cut after plane 3");
  EXPECT_EQ(cut_at(4 + 4 * row + 4), "cut in the ranges or transforms");
  EXPECT_EQ(cut_at(bytes.size() - 1), "cut in the ranges or transforms");
}

// A number that is not finite stands before the place where the file ends.
TEST(StoredCoefficients, AreNotFiniteBeforeTheyAreCut) {
  OddCoefficients record(2);
  const std::string bytes = bytes_of_coefficients(*record);
  const MemoryFile file;
  const std::size_t line = 4 + 51 * 24;
  const std::size_t row = 4 + 16 * line;
  const auto reason_with = [&](std::size_t j, std::size_t size) {
    std::string changed = bytes;
    std::memcpy(&changed[8 + j * line + 4], &kNaN, sizeof kNaN);
    const std::string path = file.hold(changed.substr(0, size));
    return reason([&] { read_coefficients(path); });
  };
  EXPECT_EQ(reason_with(3, 8 + 5 * line), "plane 0, line 3 is not finite");
  EXPECT_EQ(reason_with(3, 8 + 4 * line), "cut after plane 0, line 2");  // where both may be
  EXPECT_EQ(reason_with(15, 4 + row + 4 + 3 * line), "plane 0, line 15 is not finite");
  EXPECT_EQ(reason_with(15, 4 + row), "cut after plane 0, line 14");
}

// Every number of the format, one at a time.
TEST(StoredCoefficients, AreRefusedWithNumbersThatNoRecordHas) {
  OddCoefficients record(2);
  const std::string bytes = bytes_of_coefficients(*record);
  const MemoryFile file;
  const auto with = [&](std::size_t place, auto value) {
    std::string changed = bytes;
    std::memcpy(&changed[place], &value, sizeof value);
    const std::string path = file.hold(changed);
    return reason([&] { read_coefficients(path); });
  };
  const std::size_t ranges = 4 + 2 * (4 + 16 * (4 + 51 * 24));
  const std::size_t transforms = ranges + 4 + 16;
  EXPECT_EQ(with(0, 0), "holds 0 planes instead of 1 to 100");
  EXPECT_EQ(with(0, 101), "holds 101 planes instead of 1 to 100");
  EXPECT_EQ(with(4, 15), "plane 0 has 15 lines instead of 16");
  EXPECT_EQ(with(4, 17), "has a count that no record has before plane 0");
  EXPECT_EQ(with(8, 50), "plane 0, line 0 has 50 cells instead of 51");
  EXPECT_EQ(with(12, kNaN), "plane 0, line 0 is not finite");
  EXPECT_EQ(with(ranges - 8, kNaN), "plane 1, line 15 is not finite");
  EXPECT_EQ(with(ranges, -2), "has a negative number of ranges");
  EXPECT_EQ(with(ranges, 21), "has a count that no record has after plane 1");
  EXPECT_EQ(with(ranges, 1), "has 3 transforms for 2 planes");
  EXPECT_EQ(with(transforms, 1), "has 1 transforms for 2 planes");
  EXPECT_EQ(with(transforms, 3), "has 3 transforms for 2 planes");
  EXPECT_EQ(with(transforms + 4, kNaN), "has a transform that is not finite");
}

TEST(StoredCoefficients, AreHonestWithEveryBitFlipped) {
  OddCoefficients record(2);
  for (const std::int32_t p : {0, 1}) record->opt_coeffs->planes[p].count = 0;
  std::string bytes = bytes_of_coefficients(*record);
  const MemoryFile file;
  int read = 0;
  for (std::size_t i = 0; i < 8 * bytes.size(); ++i) {
    const char byte = bytes[i / 8];
    bytes[i / 8] = static_cast<char>(byte ^ (1 << (i % 8)));
    const std::string path = file.hold(bytes);
    try {
      const auto stored = read_coefficients(path);
      ASSERT_EQ(bytes_of_coefficients(*stored), bytes) << "byte " << i / 8;
      ++read;
    } catch (const FileError&) {
    }
    bytes[i / 8] = byte;
  }
  EXPECT_GT(read, 1000);  // flipped transforms stay transforms
}

// --- files -----------------------------------------------------------------------------------

TEST(Storage, NamesPathAndReason) {
  const TemporaryFolder folder;
  const std::string missing = folder.path("missing/file");
  const PlaneTable table = odd_table(1);
  OddCoefficients record(1);
  for (const auto& step : {std::function<void()>([&] { read_table(missing); }),
                           std::function<void()>([&] { read_coefficients(missing); })}) {
    EXPECT_EQ(reason(step), "cannot be opened: No such file or directory");
  }
  EXPECT_EQ(reason([&] { save_table(table, missing); }),
            "its folder cannot be opened: No such file or directory");
  EXPECT_EQ(reason([&] { save_coefficients(*record, missing); }),
            "its folder cannot be opened: No such file or directory");
  try {
    read_table(missing);
  } catch (const FileError& error) {
    EXPECT_EQ(error.path(), missing);
    EXPECT_EQ(std::string(error.what()), missing + ": " + error.reason());
    EXPECT_EQ(error.error_number(), ENOENT);
  }
}

// No device is written to here: where the library errs, its file would take the device's place.
TEST(Storage, TakesNoFolderNoPipeAndNoDeviceForAFile) {
  const TemporaryFolder folder;
  EXPECT_EQ(reason([&] { read_table(folder.path()); }), "cannot be opened: Is a directory");
  EXPECT_EQ(reason([&] { read_coefficients(folder.path()); }), "cannot be opened: Is a directory");
  EXPECT_EQ(reason([&] { save_table(odd_table(1), folder.path()); }),
            "cannot be written: Is a directory");
  const std::string pipe = folder.path() + "/pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(reason([&] { save_table(odd_table(1), pipe); }), "is not a file");
  EXPECT_THAT(reason([&] { read_table("/dev/null"); }), StartsWith("cut "));
}

TEST(Storage, KeepsThePermissionsOfTheOldFile) {
  const TemporaryFolder folder;
  const std::string path = folder.file("table", "old");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  save_table(odd_table(1), path);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  const mode_t mask = ::umask(027);
  save_table(odd_table(1), folder.path("fresh"));
  ::umask(mask);
  ASSERT_EQ(::stat(folder.path("fresh").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST(Storage, FollowsALink) {
  const TemporaryFolder folder;
  ASSERT_TRUE(std::filesystem::create_directory(folder.path("far")));
  const std::string target = folder.file("far/table", "old");
  std::filesystem::create_symlink(target, folder.path("link"));
  save_table(odd_table(1), folder.path("link"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
  EXPECT_EQ(bytes_of(target), table_text(odd_table(1)));
}

TEST(Storage, TakesAPathWithoutAFolder) {
  const TemporaryFolder folder;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  save_table(odd_table(1), "table");
  EXPECT_EQ(read_table("table").planes(), 1);
  std::filesystem::current_path(before);
}

// No file of this name can be made anywhere, but its folder is there.
TEST(Storage, OpensTheRootAsTheFolderOfAFileInIt) {
  const std::string path = "/" + std::string(300, 'n');
  EXPECT_EQ(reason([&] { save_table(odd_table(1), path); }),
            "cannot write beside it: File name too long");
}

TEST(Storage, DoesNotTouchWhatLiesBesideTheTarget) {
  const TemporaryFolder folder;
  const std::string beside = "table.new-" + std::to_string(::getpid()) + "-0";
  folder.file(beside, "mine");
  save_table(odd_table(1), folder.path("table"));
  EXPECT_EQ(bytes_of(folder.path(beside)), "mine");
  EXPECT_EQ(files_in(folder), 2U);
}

TEST(Storage, LeavesTheOldFileWhereTheDiskIsFull) {
  const TemporaryFolder folder;
  const std::string path = folder.file("table", "old");
  OddCoefficients record(1);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  std::vector<std::string> reasons;
  for (const rlim_t room : {rlim_t{0}, rlim_t{1000}, rlim_t{15000}}) {
    rlimit limit = before;
    limit.rlim_cur = room;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    reasons.push_back(reason([&] { save_table(odd_table(1), path); }));
    reasons.push_back(reason([&] { save_coefficients(*record, path); }));
  }
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  for (const std::string& text : reasons) EXPECT_EQ(text, "cannot be written: File too large");
  EXPECT_EQ(bytes_of(path), "old");
  EXPECT_EQ(files_in(folder), 1U);
}

}  // namespace
