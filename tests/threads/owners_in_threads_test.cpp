// The owner classes, and the neighbour's container: two objects of each in two threads.
#include <gtest/gtest.h>

#include <cstdint>

#include "kestrane/buffers.h"
#include "tests/records/owner_checks.h"
#include "tests/threads/beside.h"

namespace {

using namespace kestrane;
using threads::Figures;

constexpr int kRounds = 50;

std::int32_t planes_of(int device) { return 2 + device; }

void append(Figures& figures, const _LASER_LINES_INFOS& table) {
  for (std::int32_t j = 0; j < table.count; ++j) {
    for (std::int32_t k = 0; k < table.lines[j].count; ++k) {
      const double* cell = table.lines[j].cells[k].v;
      figures.insert(figures.end(), cell, cell + 3);
    }
  }
}

// Numbers every cell, so that a cell that two tables shared would show.
void fill(const _LASER_LINES_INFOS& table, double from) {
  for (std::int32_t j = 0; j < table.count; ++j) {
    for (std::int32_t k = 0; k < table.lines[j].count; ++k) {
      for (double& value : table.lines[j].cells[k].v) value = from++;
    }
  }
}

// Makes, fills and reads one object of a class whose record is a table of planes, and assigns it
// to an object that owns nothing.
template <class Manager, class Record>
Figures own_planes(int device, _KESTRANE_STATUS (Manager::*get)(std::int32_t, Record*&)) {
  Manager manager;
  EXPECT_EQ(manager.init(planes_of(device)), KESTRANE_OK);
  Record* record = nullptr;
  EXPECT_EQ((manager.*get)(planes_of(device) + 1, record), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ((manager.*get)(planes_of(device), record), KESTRANE_OK);
  for (std::int32_t p = 0; p < record->plane_count; ++p) fill(record->planes[p], 1e4 * p + device);
  Figures figures;
  for (std::int32_t p = 0; p < record->plane_count; ++p) append(figures, record->planes[p]);
  return figures;
}

TEST(TwoThreads, OwnIndicatorsAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        return own_planes(device, &LASER_PLANE_INDICATOR_MANAGER::get_laser_plane_indicator);
      },
      kRounds);
}

TEST(TwoThreads, OwnCornersAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        return own_planes(device, &LASER_PLANE_GRID_CORNERS_MANAGER::get_laser_plane_grid_corners);
      },
      kRounds);
}

TEST(TwoThreads, OwnCoefficientTablesAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        return own_planes(device,
                          &LASER_PLANE_GRID_OPT_COEFFS_MANAGER::get_laser_plane_grid_opt_coeffs);
      },
      kRounds);
}

TEST(TwoThreads, OwnPlaneTablesAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        LASER_PLANE_BLOCK_INFOS_GROUP group;
        EXPECT_EQ(group.init(planes_of(device)), KESTRANE_OK);
        _LASER_PLANE_BLOCK_INFOS* record = nullptr;
        EXPECT_EQ(group.get_laser_plane_info(planes_of(device), record), KESTRANE_OK);
        Figures figures(record->grids->grid_z, record->grids->grid_z + 51);
        for (std::int32_t p = 0; p < record->plane_count; ++p) {
          fill(record->planes[p].block, 1e4 * p + device);
          fill(record->planes[p].block_aux, 1e6 + device);
          append(figures, record->planes[p].block);
          append(figures, record->planes[p].block_aux);
        }
        return figures;
      },
      kRounds);
}

TEST(TwoThreads, OwnGroupsOfCornersAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        LASER_GRID_PLANE_GROUPS_MANAGER groups;
        EXPECT_EQ(groups.init(3, planes_of(device)), KESTRANE_OK);
        _LASER_GRID_PLANE_GROUPS* record = nullptr;
        EXPECT_EQ(groups.get_laser_grid_plane_groups(3, planes_of(device), record), KESTRANE_OK);
        Figures figures;
        for (std::int32_t g = 0; g < record->group_count; ++g) {
          for (std::int32_t p = 0; p < record->groups[g]->plane_count; ++p) {
            fill(record->groups[g]->planes[p], 1e5 * g + 1e4 * p + device);
          }
        }
        for (std::int32_t g = 0; g < record->group_count; ++g) {
          for (std::int32_t p = 0; p < record->groups[g]->plane_count; ++p) {
            append(figures, record->groups[g]->planes[p]);
          }
        }
        return figures;
      },
      kRounds);
}

TEST(TwoThreads, OwnCoefficientsAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        LASER_COMPENSATOR_COEFFS_MANAGER coefficients;
        EXPECT_EQ(coefficients.init(planes_of(device)), KESTRANE_OK);
        _COMPENSATOR_COEFFS* record = nullptr;
        EXPECT_EQ(coefficients.get_compensator_coeffs(planes_of(device), record), KESTRANE_OK);
        Figures figures(record->Mbs_factory_to_user, record->Mbs_factory_to_user + 1200);
        for (std::int32_t p = 0; p < record->plane_count; ++p) {
          fill(record->opt_coeffs->planes[p], 1e4 * p + device);
          append(figures, record->opt_coeffs->planes[p]);
        }
        return figures;
      },
      kRounds);
}

// A flat assignment hands pointers on: only one of the two objects may be destroyed.
TEST(TwoThreads, PassTablesAroundAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        LASER_PLANE_INDICATOR_MANAGER owner;
        EXPECT_EQ(owner.init(planes_of(device)), KESTRANE_OK);
        fill(owner.planes[1], 5.0 + device);
        Undestroyed<LASER_PLANE_INDICATOR_MANAGER> borrower;
        *borrower = owner;
        Figures figures;
        append(figures, borrower->planes[1]);
        return figures;
      },
      kRounds);
}

TEST(TwoThreads, AssignTheNeighboursContainerAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        const auto word = static_cast<std::uint64_t>(device);
        const morvia::MORVIA_LASER_PLANE_CONTAINER from = {{word, 2, 3, word + 4}};
        morvia::MORVIA_LASER_PLANE_CONTAINER to = {};
        to = from;
        return Figures(to.words, to.words + 4);
      },
      kRounds);
}

}  // namespace
