#include "files/coefficient_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "kestrane/files.h"
#include "tests/files/records_under_test.h"
#include "tests/files/temporary_folder.h"
#include "tests/literal/files.h"

namespace kestrane {
namespace {

// Two planes of a few cells, two ranges: 384 bytes.
void make_small(Coefficients& record) {
  const auto shape = [&](int plane, int lines, int first, int second) {
    record->opt_coeffs->planes[plane].count = lines;
    record->opt_coeffs->planes[plane].lines[0].count = first;
    record->opt_coeffs->planes[plane].lines[1].count = second;
  };
  shape(0, 2, 2, 1);
  shape(1, 1, 3, 0);
  record->range_count = 2;
}

std::string saved_bytes(Coefficients& record, const TemporaryFolder& folder) {
  EXPECT_EQ(save_compensator_coeffs(*record, folder.path("saved.bin")), KESTRANE_OK);
  return bytes_of(folder.path("saved.bin"));
}

// Bytes of a file, number by number.
class Bytes {
 public:
  Bytes& i(std::int32_t value) {
    append_bytes(text_, value);
    return *this;
  }
  Bytes& d(double value) {
    append_bytes(text_, value);
    return *this;
  }
  operator const std::string&() const { return text_; }  // NOLINT: stands in for the string

 private:
  std::string text_;
};

constexpr std::uint64_t kOld = 77;  // what a target holds before it is read into

// Reads `bytes` into a target of two planes, as the library does, with two windows, and as plain
// streams do; all must agree in status and in every byte of the record.
_KESTRANE_STATUS expect_read_as_literal(const MemoryFile& file, const std::string& bytes,
                                        Coefficients& target, Coefficients& reference) {
  reference.fill(kOld);
  std::istringstream stream(bytes);
  const _KESTRANE_STATUS expected = literal::read_coefficients(stream, *reference);
  const std::string wanted = reference.all_bytes();
  const std::string path = file.hold(bytes);
  target.fill(kOld);
  EXPECT_EQ(read_compensator_coeffs(path, *target), expected);
  EXPECT_TRUE(target.all_bytes() == wanted);
  target.fill(kOld);
  InputFile narrow(path, 96);
  EXPECT_EQ(read_coefficients(narrow, *target), expected);
  EXPECT_TRUE(target.all_bytes() == wanted);
  return expected;
}

TEST(CoefficientFile, RefusesAPlaneCountOutsideTheRecordBeforeAnythingElse) {
  const TemporaryFolder folder;
  Coefficients record(3, 3, 1);
  record->opt_coeffs = nullptr;
  const std::string nowhere = folder.path("no/such/folder");
  for (const std::int32_t count : {0, -1, 4, std::numeric_limits<std::int32_t>::max()}) {
    record->plane_count = count;
    EXPECT_EQ(read_compensator_coeffs(nowhere, *record), KESTRANE_ERR_INVALID_PARAM);
    EXPECT_EQ(save_compensator_coeffs(*record, nowhere), KESTRANE_ERR_INVALID_PARAM);
  }
}

TEST(CoefficientFile, RefusesARecordWithoutTableBeforeTheFileIsTouched) {
  const TemporaryFolder folder;
  Coefficients record(3, 3, 1);
  const std::string path = folder.file("kept.bin", "kept");
  auto* table = record->opt_coeffs;
  auto* planes = table->planes;
  record->opt_coeffs = nullptr;
  EXPECT_EQ(read_compensator_coeffs(folder.path("none"), *record), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(save_compensator_coeffs(*record, path), KESTRANE_ERR_NULL_POINTER);
  record->opt_coeffs = table;
  table->planes = nullptr;
  EXPECT_EQ(read_compensator_coeffs(folder.path("none"), *record), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(save_compensator_coeffs(*record, path), KESTRANE_ERR_NULL_POINTER);
  table->planes = planes;
  EXPECT_EQ(bytes_of(path), "kept");
}

TEST(CoefficientFile, RefusesAnotherPlaneCountAndKeepsItInTheTableOnly) {
  const TemporaryFolder folder;
  Coefficients three(3, 3, 1), target(3, 2, kOld), expected(3, 2, kOld);
  const std::string path = folder.file("three.bin", saved_bytes(three, folder));
  EXPECT_EQ(read_compensator_coeffs(path, *target), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(target->opt_coeffs->plane_count, 3);
  expected->opt_coeffs->plane_count = 3;
  EXPECT_TRUE(target.all_bytes() == expected.all_bytes());
}

// The count of a refused file is the table's now; a host that saves all the same violates a
// precondition.
TEST(CoefficientFile, TouchesNoRowBeyondTheRecordAfterARefusedFile) {
  const TemporaryFolder folder;
  Coefficients target(3, 2, kOld);
  const std::string path = folder.file("huge.bin", std::string(4, '9'));
  EXPECT_EQ(read_compensator_coeffs(path, *target), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(target->opt_coeffs->plane_count, 0x39393939);
#ifdef KESTRANE_CHECKED
  EXPECT_DEATH(save_compensator_coeffs(*target, path),
               "a coefficient table's count stays within its capacity");
#else
  EXPECT_EQ(saved_bytes(target, folder).size(), 4U + 3 * (19748 - 96) + 4 + 8 * 4 + 4 + 2 * 96);
#endif
}

TEST(CoefficientFile, WritesItsFieldsInTheirOrderWithoutPadding) {
  const TemporaryFolder folder;
  Coefficients record(1, 1, 1);
  record->opt_coeffs->planes[0].count = 1;
  record->opt_coeffs->planes[0].lines[0].count = 2;
  auto* cells = record->opt_coeffs->planes[0].lines[0].cells;
  cells[0] = {{0.25, -1.0, 2.0}};
  cells[1] = {{3.0, 4.0, 5.0}};
  record->range_count = 2;
  record->range_first[0] = 0, record->range_last[0] = 9;
  record->range_first[1] = 10, record->range_last[1] = 99;
  for (int i = 0; i < 12; ++i) record->Mbs_factory_to_user[i] = i;
  const Bytes expected = Bytes()
                             .i(1)
                             .i(1)
                             .i(2)
                             .d(0.25)
                             .d(-1.0)
                             .d(2.0)
                             .d(3.0)
                             .d(4.0)
                             .d(5.0)
                             .i(2)
                             .i(0)
                             .i(9)
                             .i(10)
                             .i(99)
                             .i(1)
                             .d(0)
                             .d(1)
                             .d(2)
                             .d(9)
                             .d(3)
                             .d(4)
                             .d(5)
                             .d(10)
                             .d(6)
                             .d(7)
                             .d(8)
                             .d(11);
  EXPECT_EQ(saved_bytes(record, folder), static_cast<const std::string&>(expected));
}

TEST(CoefficientFile, HasTwelveBytesAndEightARangeAndAFixedNumberAPlane) {
  const TemporaryFolder folder;
  for (const std::int32_t planes : {1, 7, 100}) {
    Coefficients record(100, planes, 2);
    record->range_count = planes % 20;
    EXPECT_EQ(saved_bytes(record, folder).size(),
              static_cast<std::size_t>(12 + 8 * (planes % 20) + 19748 * planes));
  }
}

TEST(CoefficientFile, WritesWhatPlainStreamsWrite) {
  const TemporaryFolder folder;
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    Coefficients record(20, 17, seed);
    if (seed % 2 == 0) make_small(record);
    std::ostringstream expected;
    literal::save_coefficients(expected, *record);
    EXPECT_TRUE(saved_bytes(record, folder) == expected.str());
  }
}

TEST(CoefficientFile, WritesTheCountsOfTheRecordAsTheyStand) {
  const TemporaryFolder folder;
  Coefficients record(3, 3, 3);
  record->opt_coeffs->plane_count =
      2;  // the table's count leads the file, the record's its matrices
  record->opt_coeffs->planes[0].count = -5;
  record->opt_coeffs->planes[1].count = 1;
  record->opt_coeffs->planes[1].lines[0].count = -1;
  record->range_count = -2;
  std::ostringstream expected;
  literal::save_coefficients(expected, *record);
  EXPECT_EQ(expected.str().size(), 4U * 6 + 3 * 96);
  EXPECT_TRUE(saved_bytes(record, folder) == expected.str());
}

TEST(CoefficientFile, WritesTheWholeOfALargerTableThatAHostHungBelowTheRecord) {
  const TemporaryFolder folder;
  Coefficients record(2, 2, 5), larger(4, 3, 6);
  _LASER_PLANE_GRID_OPT_COEFFS_INFOS* own = record->opt_coeffs;
  record->opt_coeffs = larger->opt_coeffs;
  std::ostringstream expected;
  literal::save_coefficients(expected, *record);
  EXPECT_EQ(expected.str().size(), 4U + 3 * 19748 + 4 + 4 * 8 + 4 + 2 * 96 - 3 * 96);
  EXPECT_TRUE(saved_bytes(record, folder) == expected.str());
  record->opt_coeffs = own;
}

TEST(CoefficientFile, WritesNoPlaneForATableThatCountsNone) {
  const TemporaryFolder folder;
  for (const std::int32_t count : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    Coefficients record(2, 2, 6);
    record->opt_coeffs->plane_count = count;
    record->range_count = 0;
    std::ostringstream expected;
    literal::save_coefficients(expected, *record);
    EXPECT_EQ(expected.str().size(), 4U * 3 + 2 * 96);
    EXPECT_TRUE(saved_bytes(record, folder) == expected.str());
  }
}

TEST(CoefficientFile, ReadsBackWhatItWroteBitForBit) {
  const TemporaryFolder folder;
  Coefficients saved(100, 100, 4), target(100, 100, kOld);
  saved->range_count = 20;
  saved_bytes(saved, folder);
  EXPECT_EQ(read_compensator_coeffs(folder.path("saved.bin"), *target), KESTRANE_OK);
  EXPECT_TRUE(target.all_bytes() == saved.all_bytes());
}

TEST(CoefficientFile, ReadsShorterLinesAndKeepsWhatLiesBeyondThem) {
  const TemporaryFolder folder;
  const MemoryFile file;
  Coefficients saved(2, 2, 5), target(2, 2, kOld), reference(2, 2, kOld);
  make_small(saved);
  expect_read_as_literal(file, saved_bytes(saved, folder), target, reference);
  EXPECT_EQ(target->opt_coeffs->planes[1].lines[0].count, 3);
  EXPECT_EQ(target->range_count, 2);
}

TEST(CoefficientFile, TakesAnEmptyFileAsOneThatChangesNothing) {
  const TemporaryFolder folder;
  Coefficients target(2, 2, kOld), same(2, 2, kOld);
  const std::string path = folder.file("empty.bin", "");
  EXPECT_EQ(read_compensator_coeffs(path, *target), KESTRANE_OK);
  EXPECT_TRUE(target.all_bytes() == same.all_bytes());
}

TEST(CoefficientFile, RefusesAnEmptyFileWhenTheTwoCountsOfTheRecordDiffer) {
  const TemporaryFolder folder;
  Coefficients target(2, 2, kOld);
  target->opt_coeffs->plane_count = 1;
  const std::string path = folder.file("empty.bin", "");
  EXPECT_EQ(read_compensator_coeffs(path, *target), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(target->opt_coeffs->plane_count, 1);
}

TEST(CoefficientFile, KeepsEveryFieldAfterTheEndOfACutFile) {
  const TemporaryFolder folder;
  const MemoryFile file;
  Coefficients saved(2, 2, 6), target(2, 2, kOld), reference(2, 2, kOld);
  make_small(saved);
  const std::string bytes = saved_bytes(saved, folder);
  ASSERT_EQ(bytes.size(), 384U);
  for (std::size_t size = 0; size <= bytes.size() && !HasFailure(); ++size)
    EXPECT_EQ(expect_read_as_literal(file, bytes.substr(0, size), target, reference), KESTRANE_OK);
}

TEST(CoefficientFile, NeverStoresAPartOfACell) {
  const TemporaryFolder folder;
  Coefficients target(1, 1, kOld), same(1, 1, kOld);
  const Bytes bytes = Bytes().i(1).i(1).i(1).d(1.0).d(2.0);
  const std::string path = folder.file("cut.bin", bytes);
  EXPECT_EQ(read_compensator_coeffs(path, *target), KESTRANE_OK);
  EXPECT_EQ(std::memcmp(target->opt_coeffs->planes[0].lines[0].cells,
                        same->opt_coeffs->planes[0].lines[0].cells, 51 * 24),
            0);
}

TEST(CoefficientFile, ReadsAnyFlippedBitAsPlainStreamsDo) {
  const TemporaryFolder folder;
  const MemoryFile file;
  Coefficients saved(2, 2, 7), target(2, 2, kOld), reference(2, 2, kOld);
  make_small(saved);
  std::string bytes = saved_bytes(saved, folder);
  int refused = 0;
  for (std::size_t bit = 0; bit < 8 * bytes.size() && !HasFailure(); ++bit) {
    const char mask = static_cast<char>(1 << (bit % 8));
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ mask);
    if (expect_read_as_literal(file, bytes, target, reference) != KESTRANE_OK) ++refused;
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ mask);
  }
  EXPECT_GT(refused, 32);  // at least every bit of the plane count
}

TEST(CoefficientFile, StoresNegativeCountsAndReadsNothingForThem) {
  const MemoryFile file;
  Coefficients target(2, 2, kOld), reference(2, 2, kOld);
  const Bytes bytes = Bytes().i(2).i(-3).i(1).i(-2147483647 - 1).i(-4).i(-5);
  EXPECT_EQ(expect_read_as_literal(file, bytes, target, reference), KESTRANE_OK);
  EXPECT_EQ(target->opt_coeffs->planes[0].count, -3);
  EXPECT_EQ(target->opt_coeffs->planes[1].lines[0].count, std::numeric_limits<int>::min());
  EXPECT_EQ(target->range_count, -4);
}

// A file with these counts, and as many numbers after each as a record has room for.
std::string with_counts(std::int32_t lines, std::int32_t cells, std::int32_t ranges,
                        std::int32_t matrices) {
  Bytes bytes;
  bytes.i(1).i(lines);
  for (int j = 0; j < lines && j < 16; ++j) {
    bytes.i(cells);
    for (int v = 0; v < 3 * std::min(cells, 51); ++v) bytes.d(v);
  }
  bytes.i(ranges);
  for (int r = 0; r < 2 * std::min(ranges, 20); ++r) bytes.i(r);
  bytes.i(matrices);
  for (int v = 0; v < 12 * std::min(matrices, 100); ++v) bytes.d(v);
  return bytes;
}

TEST(CoefficientFile, TakesEveryCountUpToTheRoomOfTheRecord) {
  const MemoryFile file;
  Coefficients target(1, 1, kOld), reference(1, 1, kOld);
  for (const std::string& bytes : {with_counts(0, 0, 0, 0), with_counts(16, 51, 20, 100)})
    EXPECT_EQ(expect_read_as_literal(file, bytes, target, reference), KESTRANE_OK);
  EXPECT_EQ(target->range_count, 20);
  EXPECT_EQ(target->Mbs_factory_to_user[1199 - 3], 1198.0);  // R[2][2] of the last slot
}

TEST(CoefficientFile, EndsAtACountBeyondTheRoomOfTheRecordWithoutStoringIt) {
  const TemporaryFolder folder;
  const MemoryFile file;
  Coefficients target(1, 1, kOld), reference(1, 1, kOld);
  constexpr std::int32_t kHuge = std::numeric_limits<std::int32_t>::max();
  for (const std::string& bytes :
       {with_counts(17, 1, 1, 1), with_counts(kHuge, 1, 1, 1), with_counts(1, 52, 1, 1),
        with_counts(1, kHuge, 1, 1), with_counts(1, 1, 21, 1), with_counts(1, 1, 500000000, 1),
        with_counts(1, 1, 1, 101), with_counts(1, 1, 1, 100000000)})
    EXPECT_EQ(expect_read_as_literal(file, bytes, target, reference), KESTRANE_ERR_COUNT_MISMATCH);
  target.fill(kOld);
  const Bytes lines = Bytes().i(1).i(kHuge);
  EXPECT_EQ(read_compensator_coeffs(folder.file("lines.bin", lines), *target),
            KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(target->opt_coeffs->planes[0].count, 16);
}

TEST(CoefficientFile, ReadsAsManyMatricesAsItHoldsWhateverThePlaneCount) {
  const MemoryFile file;
  Coefficients target(1, 1, kOld), reference(1, 1, kOld);
  const std::string bytes = with_counts(0, 0, 0, 100).substr(0, 16 + 96 * 3 + 8 * 5 + 4);
  EXPECT_EQ(expect_read_as_literal(file, bytes, target, reference), KESTRANE_OK);
  EXPECT_EQ(target->Mbs_factory_to_user[36 + 9], 39.0);  // T[0] of the slot that was cut
  EXPECT_EQ(target->Mbs_factory_to_user[36 + 3], 40.0);
}

// Each number of the file lies across or after the end of some window.
TEST(CoefficientFile, ReadsAlikeThroughWindowsOfAnySize) {
  const TemporaryFolder folder;
  Coefficients record(2, 2, 5), target(2, 2, kOld);
  make_small(record);
  record->range_count = 20;
  saved_bytes(record, folder);
  const std::string path = folder.path("saved.bin");
  target.fill(kOld);
  ASSERT_EQ(read_compensator_coeffs(path, *target), KESTRANE_OK);
  const std::string expected = target.all_bytes();
  for (std::size_t window = 96; window < 400; window += 4) {
    target.fill(kOld);
    InputFile narrow(path, window);
    EXPECT_EQ(read_coefficients(narrow, *target), KESTRANE_OK) << window;
    EXPECT_TRUE(target.all_bytes() == expected) << window;
  }
}

TEST(CoefficientFile, TakesWhatIsAtHandAlready) {
  Coefficients source(2, 2, 32), target(2, 2, 33);
  const TemporaryFolder folder;
  const std::string path = folder.path("file");
  ASSERT_EQ(save_compensator_coeffs(*source, path), KESTRANE_OK);
  Coefficients expected(2, 2, 33);
  ASSERT_EQ(read_compensator_coeffs(path, *expected), KESTRANE_OK);
  InputFile in(path);
  ASSERT_EQ(in.view(1).size(), kFileWindow);
  EXPECT_EQ(read_coefficients(in, *target), KESTRANE_OK);
  EXPECT_TRUE(target.all_bytes() == expected.all_bytes());
}

TEST(CoefficientFile, IgnoresBytesAfterItsEnd) {
  const TemporaryFolder folder;
  const MemoryFile file;
  Coefficients saved(2, 2, 8), target(2, 2, kOld), reference(2, 2, kOld);
  make_small(saved);
  const std::string bytes = saved_bytes(saved, folder) + "tail";
  EXPECT_EQ(expect_read_as_literal(file, bytes, target, reference), KESTRANE_OK);
}

}  // namespace
}  // namespace kestrane
