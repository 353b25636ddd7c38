// Every `init` without one of its allocations: the status, and what is as it was. Objects stay
// destructible, and a later `init` works.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "factory/engine.h"
#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "tests/faults/every_cut.h"

namespace {

using namespace kestrane;
using fault_heap::holding;
using faults::Ending;
using faults::Place;

constexpr std::int32_t kPlanes = 3;

template <class Object>
std::vector<unsigned char> bytes_of(const Object& object) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&object);
  return {bytes, bytes + sizeof(Object)};
}

// Calls `init` without its n-th allocation; an exception is a failure of the test.
template <class Init>
_KESTRANE_STATUS status_without(long n, Init&& init) {
  _KESTRANE_STATUS status = KESTRANE_OK;
  const Ending ending = faults::run_cut(Place::kOwn, n, [&] { status = init(); });
  EXPECT_NE(ending, Ending::kThrew) << "allocation " << n;
  if (ending == Ending::kWentThrough) {
    EXPECT_EQ(status, KESTRANE_OK);
  }
  return status;
}

// Constructs, fails at each allocation in turn, looks at the object, calls `init` again and
// destroys. Returns how many allocations an `init` makes.
//
// lost  blocks that the later `init` leaves behind after n allocations had succeeded
template <class Object, class Init, class Lost>
long expect_every_init_fails(_KESTRANE_STATUS expected, Init&& init, Lost&& lost) {
  long n = 0;
  for (bool failed = true; failed && !testing::Test::HasFailure();) {
    ++n;
    const long before = holding().blocks;
    {
      Object object;
      const auto fresh = bytes_of(object);
      const _KESTRANE_STATUS status = status_without(n, [&] { return init(object); });
      failed = status != KESTRANE_OK;
      if (failed) {
        EXPECT_EQ(status, expected) << "allocation " << n;
        if (n == 1) {
          EXPECT_EQ(bytes_of(object), fresh);
        }
        EXPECT_EQ(init(object), KESTRANE_OK) << "after allocation " << n;
      }
    }
    EXPECT_EQ(holding().blocks - before, lost(n - 1)) << "allocation " << n;
  }
  return n - 1;
}

long nothing(long) { return 0; }

TEST(InitFaults, LeavePlaneTablesUntouched) {
  const auto init = [](auto& owner) { return owner.init(kPlanes); };
  EXPECT_EQ(
      expect_every_init_fails<LASER_PLANE_BLOCK_INFOS_GROUP>(KESTRANE_ERR_NO_MEMORY, init, nothing),
      1);
  EXPECT_EQ(
      expect_every_init_fails<LASER_PLANE_INDICATOR_MANAGER>(KESTRANE_ERR_NO_MEMORY, init, nothing),
      1);
  EXPECT_EQ(expect_every_init_fails<LASER_PLANE_GRID_CORNERS_MANAGER>(KESTRANE_ERR_NO_MEMORY, init,
                                                                      nothing),
            1);
  EXPECT_EQ(expect_every_init_fails<LASER_PLANE_GRID_OPT_COEFFS_MANAGER>(KESTRANE_ERR_NO_MEMORY,
                                                                         init, nothing),
            1);
}

// A second `init` loses the first block by design; where it fails, the object still has it.
TEST(InitFaults, LeaveACarvedTableAsItIs) {
  const auto check = [](auto& owner) {
    ASSERT_EQ(owner.init(kPlanes), KESTRANE_OK);
    const auto carved = bytes_of(owner);
    EXPECT_EQ(status_without(1, [&] { return owner.init(kPlanes + 1); }), KESTRANE_ERR_NO_MEMORY);
    EXPECT_EQ(bytes_of(owner), carved);
  };
  const long before = holding().blocks;
  {
    LASER_PLANE_BLOCK_INFOS_GROUP blocks;
    LASER_PLANE_INDICATOR_MANAGER indicators;
    LASER_PLANE_GRID_CORNERS_MANAGER corners;
    LASER_PLANE_GRID_OPT_COEFFS_MANAGER coefficients;
    LASER_GRID_PLANE_GROUPS_MANAGER groups;
    check(blocks);
    check(indicators);
    check(corners);
    check(coefficients);
    ASSERT_EQ(groups.init(2, kPlanes), KESTRANE_OK);
    const auto carved = bytes_of(groups);
    EXPECT_EQ(status_without(1, [&] { return groups.init(2, 1); }), KESTRANE_ERR_NO_MEMORY);
    EXPECT_EQ(bytes_of(groups), carved);
  }
  EXPECT_EQ(holding().blocks, before);
}

// The small block, the array, then a table per group. Whatever was made before the failure goes
// with the object, unless another `init` takes its place: that one is for a fresh object.
TEST(InitFaults, LeaveTheGroupsMadeSoFarToTheDestructor) {
  for (long n = 1; n <= 4; ++n) {
    const long before = holding().blocks;
    {
      LASER_GRID_PLANE_GROUPS_MANAGER groups;
      EXPECT_EQ(status_without(n, [&] { return groups.init(2, kPlanes); }), KESTRANE_ERR_NO_MEMORY);
      EXPECT_EQ(groups.group_capacity, n == 1 ? 0 : 2);
      EXPECT_EQ(groups.group_count, n == 1 ? 0 : 2);
      EXPECT_EQ(groups.groups == nullptr, n == 1);
      EXPECT_EQ(holding().blocks - before, n - 1);
      for (long made = 0; n > 1 && made < 2; ++made) {
        EXPECT_EQ(groups.groups[made] != nullptr, made < n - 3) << n;
      }
    }
    EXPECT_EQ(holding().blocks, before) << n;
  }
}

TEST(InitFaults, LeaveGroupsThatALaterInitReplaces) {
  const fault_heap::LostByDesign lost_by_design;
  const auto init = [](auto& groups) { return groups.init(2, kPlanes); };
  const auto lost = [](long made) { return made < 4 ? made : 0; };
  EXPECT_EQ(
      expect_every_init_fails<LASER_GRID_PLANE_GROUPS_MANAGER>(KESTRANE_ERR_NO_MEMORY, init, lost),
      4);
}

TEST(InitFaults, LeaveTheTransformStoreToTheDestructor) {
  const long before = holding().blocks;
  for (long n = 1; n <= 2; ++n) {
    LASER_COMPENSATOR_COEFFS_MANAGER coeffs;
    coeffs.plane_count = -7;
    EXPECT_EQ(status_without(n, [&] { return coeffs.init(kPlanes); }), KESTRANE_ERR_NO_MEMORY);
    EXPECT_EQ(coeffs.opt_coeffs, nullptr);
    EXPECT_EQ(coeffs.plane_count, -7);
    EXPECT_EQ(coeffs.Mbs_factory_to_user == nullptr, n == 1);
    EXPECT_EQ(coeffs.plane_capacity, n == 1 ? 0 : kPlanes);
    EXPECT_EQ(holding().blocks - before, n - 1);
  }
  EXPECT_EQ(holding().blocks, before);
}

TEST(InitFaults, LeaveATransformStoreThatALaterInitReplaces) {
  const fault_heap::LostByDesign lost_by_design;
  const auto init = [](auto& coeffs) { return coeffs.init(kPlanes); };
  const auto lost = [](long made) { return made < 2 ? made : 0; };
  EXPECT_EQ(
      expect_every_init_fails<LASER_COMPENSATOR_COEFFS_MANAGER>(KESTRANE_ERR_NO_MEMORY, init, lost),
      2);
}

TEST(InitFaults, LeaveTheCompensatorWithoutAStore) {
  const auto init = [](auto& compensator) { return compensator.init(); };
  EXPECT_EQ(
      expect_every_init_fails<KESTRANE_LASER_COMPENSATOR>(KESTRANE_ERR_NO_MEMORY, init, nothing),
      1);
  // The store of an earlier init is dropped before a new one is asked for.
  const long before = holding().blocks;
  {
    KESTRANE_LASER_COMPENSATOR compensator;
    const long with_object = holding().blocks;
    ASSERT_EQ(compensator.init(), KESTRANE_OK);
    EXPECT_EQ(status_without(1, [&] { return compensator.init(); }), KESTRANE_ERR_NO_MEMORY);
    EXPECT_EQ(holding().blocks, with_object);
  }
  EXPECT_EQ(holding().blocks, before);
}

// The block and the lists of the grid: a status for each of them, and the object as it was. A block
// that was had stays for the life of the process.
TEST(InitFaults, LeaveTheFactoryCalibratorUntouched) {
  const auto stays = [](long) { return 1L; };
  const auto init = [](auto& calib) { return calib.init(); };
  EXPECT_GT(expect_every_init_fails<KESTRANE_LASER_FAC_CALIB>(KESTRANE_ERR_FAILED, init, stays),
            16);
}

void expect_engine_untouched_by_failures(KestraneLaserFactoryCalibrator& engine) {
  const auto as_it_was = bytes_of(engine);
  const NominalRays rays = engine.nominal_rays();
  bool made = false;
  for (long n = 1; !made; ++n) {
    const long before = holding().blocks;
    const Ending ending = faults::run_cut(Place::kOwn, n, [&] { made = engine.init(); });
    ASSERT_NE(ending, Ending::kThrew) << n;
    ASSERT_EQ(made, ending == Ending::kWentThrough) << n;
    if (made) break;
    EXPECT_EQ(holding().blocks, before) << n;
    EXPECT_EQ(bytes_of(engine), as_it_was) << n;
    for (std::size_t i = 0; i < rays.size(); ++i) {
      EXPECT_EQ(std::memcmp(engine.nominal_rays()[i].data(), rays[i].data(),
                            rays[i].size() * sizeof(NominalPosition)),
                0);
    }
  }
}

TEST(InitFaults, LeaveTheFactoryEngineUntouched) {
  KestraneLaserFactoryCalibrator engine;
  expect_engine_untouched_by_failures(engine);
  engine.set_laser_type(LASER_TYPE_FAR);
  expect_engine_untouched_by_failures(engine);
}

// The object of the engine is left behind with the block that it could not get.
TEST(InitFaults, LeaveTheFastCalibratorWithoutAnEngine) {
  const fault_heap::LostByDesign lost_by_design;
  for (long n = 1; n <= 2; ++n) {
    const long before = holding().blocks;
    {
      KESTRANE_LASER_FAST_CALIB calib;
      EXPECT_EQ(status_without(n, [&] { return calib.init(); }), KESTRANE_ERR_NO_MEMORY) << n;
      EXPECT_EQ(calib.fast_calib(std::vector<std::vector<_KESTRANE_ID_POINT3D>>(1), 0, 0),
                KESTRANE_ERR_NOT_READY);
      EXPECT_EQ(holding().blocks - before, n == 1 ? 0 : 1) << n;
      EXPECT_EQ(calib.init(), KESTRANE_OK);
    }
    // The block of the init that worked stays, too.
    EXPECT_EQ(holding().blocks - before, n == 1 ? 1 : 2) << n;
  }
}

TEST(InitFaults, LeaveTheFastEngineUntouched) {
  const auto init = [](auto& engine) { return engine.init(); };
  const auto stays = [](long) { return 1L; };
  EXPECT_EQ(
      expect_every_init_fails<KestraneLaserFastCalibrator>(KESTRANE_ERR_NO_MEMORY, init, stays), 1);
}

template <class Object>
void expect_constructor_throws() {
  const long before = holding().blocks;
  long n = 0;
  for (Ending ending = Ending::kThrew; ending == Ending::kThrew;) {
    ending = faults::run_cut(Place::kOwn, ++n, [] { Object object; });
    EXPECT_NE(ending, Ending::kSwallowed);
  }
  EXPECT_EQ(n, 2);
  EXPECT_EQ(holding().blocks, before);
}

TEST(ConstructorFaults, LoseNothing) {
  expect_constructor_throws<KESTRANE_LASER_COMPENSATOR>();
  expect_constructor_throws<KESTRANE_LASER_FAC_CALIB>();
}

}  // namespace
