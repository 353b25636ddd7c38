// What the host owes: a checked build names the violated precondition before memory is touched.
#include <gtest/gtest.h>

#include "kestrane/files.h"
#include "tests/files/records_under_test.h"
#include "tests/files/temporary_folder.h"

namespace kestrane {
namespace {

class FilePreconditionsDeathTest : public testing::Test {
 protected:
  FilePreconditionsDeathTest() { EXPECT_EQ(blocks.init(2), KESTRANE_OK); }

  const TemporaryFolder folder;
  const std::string path = folder.file("record", "");
  Coefficients coefficients{2, 2, 1};
  LASER_PLANE_BLOCK_INFOS_GROUP blocks;
};

TEST_F(FilePreconditionsDeathTest, NamesACoefficientTableBeyondItsCarving) {
  coefficients->opt_coeffs->planes[1].count = 17;
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path),
               "a coefficient table has at most 16 lines");
  coefficients->opt_coeffs->planes[0].lines[15].count = 52;
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path),
               "a coefficient line has at most 51 cells");
}

TEST_F(FilePreconditionsDeathTest, NamesMoreRangesThanARecordHolds) {
  coefficients->range_count = 21;
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path),
               "a coefficient record has at most 20 ranges");
}

TEST_F(FilePreconditionsDeathTest, NamesMoreTransformsThanARecordHolds) {
  coefficients->plane_count = coefficients->plane_capacity = 101;
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path), "a device has at most 100 planes");
}

TEST_F(FilePreconditionsDeathTest, NamesARecordWithoutTransforms) {
  ASSERT_EQ(save_compensator_coeffs(*coefficients, path), KESTRANE_OK);
  coefficients->Mbs_factory_to_user = nullptr;
  EXPECT_DEATH(read_compensator_coeffs(path, *coefficients),
               "a coefficient record has its transforms");
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path),
               "a coefficient record has its transforms");
}

TEST_F(FilePreconditionsDeathTest, NamesATableOfBlocksBeyondItsCarving) {
  blocks.planes[1].block.count = 16;
  EXPECT_DEATH(save_plane_block_infos(blocks, path), "a block table has at most 15 lines");
  blocks.planes[0].block.lines[14].count = 51;
  EXPECT_DEATH(save_plane_block_infos(blocks, path), "a block line has at most 50 cells");
}

TEST_F(FilePreconditionsDeathTest, NamesMoreRowsOfBlocksThanTheRecordHolds) {
  blocks.plane_count = 3;
  EXPECT_DEATH(save_plane_block_infos(blocks, path),
               "a plane table's count stays within its capacity");
  EXPECT_DEATH(read_plane_block_infos(path, blocks),
               "a plane table's count stays within its capacity");
}

}  // namespace
}  // namespace kestrane
