// The four file functions: two devices' files in two threads.
#include <gtest/gtest.h>

#include <string>

#include "kestrane/files.h"
#include "tests/files/records_under_test.h"
#include "tests/files/temporary_folder.h"
#include "tests/threads/beside.h"

namespace {

using threads::Figures;

constexpr int kRounds = 10;
constexpr std::int32_t kPlanes = 4;

std::uint64_t seed_of(int device) { return 21 + static_cast<std::uint64_t>(device); }

Figures figures_of(const std::string& bytes) { return {bytes.begin(), bytes.end()}; }

// Saved and read back into a record that held other numbers.
Figures keep_coefficients(int device) {
  const kestrane::TemporaryFolder folder;
  const std::string path = folder.path("coefficients");
  kestrane::Coefficients saved(kPlanes, kPlanes, seed_of(device));
  kestrane::Coefficients loaded(kPlanes, kPlanes, 31);
  EXPECT_EQ(kestrane::save_compensator_coeffs(*saved, path), KESTRANE_OK);
  EXPECT_EQ(kestrane::read_compensator_coeffs(path, *loaded), KESTRANE_OK);
  return figures_of(loaded.all_bytes());
}

Figures keep_plane_table(int device) {
  const kestrane::TemporaryFolder folder;
  const std::string path = folder.path("planes");
  kestrane::PlaneTable saved(kPlanes, kPlanes, seed_of(device));
  kestrane::PlaneTable loaded(kPlanes, kPlanes, 32);
  EXPECT_EQ(kestrane::save_plane_block_infos(*saved, path), KESTRANE_OK);
  EXPECT_EQ(kestrane::read_plane_block_infos(path, *loaded), KESTRANE_OK);
  return figures_of(loaded.all_bytes());
}

TEST(TwoThreads, KeepCoefficientFilesAsOneThreadDoes) {
  threads::expect_equal_bits(keep_coefficients, kRounds);
}

TEST(TwoThreads, KeepPlaneFilesAsOneThreadDoes) {
  threads::expect_equal_bits(keep_plane_table, kRounds);
}

// Both threads read what one of them has written before.
TEST(TwoThreads, ReadOneFileAtTheSameTime) {
  const kestrane::TemporaryFolder folder;
  const std::string paths[2] = {folder.path("planes0"), folder.path("planes1")};
  for (int i = 0; i < 2; ++i) {
    kestrane::PlaneTable saved(kPlanes, kPlanes, seed_of(i));
    ASSERT_EQ(kestrane::save_plane_block_infos(*saved, paths[i]), KESTRANE_OK);
  }
  threads::expect_equal_bits(
      [&](int device) {
        kestrane::PlaneTable shared(kPlanes, kPlanes, 33);
        kestrane::PlaneTable own(kPlanes, kPlanes, 34);
        EXPECT_EQ(kestrane::read_plane_block_infos(paths[0], *shared), KESTRANE_OK);
        EXPECT_EQ(kestrane::read_plane_block_infos(paths[device], *own), KESTRANE_OK);
        return figures_of(shared.all_bytes() + own.all_bytes());
      },
      kRounds);
}

}  // namespace
