// What the host owes: a checked build names the violated precondition before memory is touched.
#include <gtest/gtest.h>

#include "kestrane/files.h"
#include "tests/files/records_under_test.h"
#include "tests/files/temporary_folder.h"
#include "tests/support/violation.h"

namespace kestrane {
namespace {

using kestrane_test::violation;

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
               violation("save_compensator_coeffs", "a table has at most its shape's lines",
                         "table.count is 17, shape.lines is 16"));
  coefficients->opt_coeffs->planes[0].lines[15].count = 52;
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path),
               violation("save_compensator_coeffs", "a line has at most its shape's cells",
                         "count is 52, shape.cells is 51"));
}

TEST_F(FilePreconditionsDeathTest, NamesMoreRangesThanARecordHolds) {
  coefficients->range_count = 21;
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path),
               violation("save_compensator_coeffs", "a coefficient record has at most 20 ranges",
                         "record.range_count is 21"));
}

TEST_F(FilePreconditionsDeathTest, NamesMoreTransformsThanARecordHolds) {
  coefficients->plane_count = coefficients->plane_capacity = 101;
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path),
               violation("save_compensator_coeffs", "a device has at most 100 planes",
                         "record.plane_count is 101"));
}

TEST_F(FilePreconditionsDeathTest, NamesARecordWithoutTransforms) {
  ASSERT_EQ(save_compensator_coeffs(*coefficients, path), KESTRANE_OK);
  coefficients->Mbs_factory_to_user = nullptr;
  EXPECT_DEATH(read_compensator_coeffs(path, *coefficients),
               violation("read_compensator_coeffs", "a coefficient record has its transforms"));
  EXPECT_DEATH(save_compensator_coeffs(*coefficients, path),
               violation("save_compensator_coeffs", "a coefficient record has its transforms"));
}

TEST_F(FilePreconditionsDeathTest, NamesATableOfBlocksBeyondItsCarving) {
  blocks.planes[1].block.count = 16;
  EXPECT_DEATH(save_plane_block_infos(blocks, path),
               violation("save_plane_block_infos", "a table has at most its shape's lines",
                         "table.count is 16, shape.lines is 15"));
  blocks.planes[0].block.lines[14].count = 51;
  EXPECT_DEATH(save_plane_block_infos(blocks, path),
               violation("save_plane_block_infos", "a line has at most its shape's cells",
                         "count is 51, shape.cells is 50"));
}

TEST_F(FilePreconditionsDeathTest, NamesMoreRowsOfBlocksThanTheRecordHolds) {
  blocks.plane_count = 3;
  EXPECT_DEATH(
      save_plane_block_infos(blocks, path),
      violation("save_plane_block_infos", "a plane table's count stays within its capacity",
                "record.plane_count is 3, record.plane_capacity is 2"));
  EXPECT_DEATH(
      read_plane_block_infos(path, blocks),
      violation("read_plane_block_infos", "a plane table's count stays within its capacity",
                "record.plane_count is 3, record.plane_capacity is 2"));
}

}  // namespace
}  // namespace kestrane
