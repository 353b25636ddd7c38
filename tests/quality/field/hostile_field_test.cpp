// What a field calibration makes of bad input: the right displacement, or a refusal with the
// reason.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "kestrane/quality/field.h"
#include "tests/quality/field/field_scene.h"
#include "tests/support/bits.h"
#include "tests/support/sanitized.h"

namespace {

using field_scene::Scene;
using kestrane::quality::calibrate_field;
using kestrane::quality::FieldResult;
using kestrane::quality::FieldSettings;
using kestrane::quality::PointList;

constexpr int kSeeds = kestrane_test::seeds_to_draw(20);
constexpr int kFewestRight = kSeeds - 1;

using Fault = std::function<void(Scene&)>;
using kestrane_test::kNaN;

Scene clean_scene(std::uint64_t seed) {
  field_scene::Settings settings;
  settings.points = 600;
  settings.seed = seed;
  return field_scene::make(settings);
}

void for_frame(PointList& list, std::int32_t frame,
               const std::function<void(_KESTRANE_ID_POINT3D&)>& change) {
  for (auto& point : list) {
    if (point.id == frame) change(point);
  }
}

// Both displacements are of the same blocks, that of the truth without any fault.
bool is_right(const Scene& scene, const FieldResult& result) {
  const auto places = field_scene::places(scene.table, result.first_plane, result.last_plane);
  const double error = field_scene::apart(places, result.motion, scene.motion);
  return error <= 3.0 * result.displacement.sigma;
}

// In how many seeds the displacement is within 3 of its own sigma.
int count_right(const Fault& fault, const FieldSettings& settings = {}) {
  int right = 0;
  for (int seed = 1; seed <= kSeeds; ++seed) {
    Scene scene = clean_scene(static_cast<std::uint64_t>(seed));
    fault(scene);
    const FieldResult result = calibrate_field(scene.table, scene.frames, settings);
    EXPECT_TRUE(result.refused.empty()) << result.refused;
    if (is_right(scene, result)) ++right;
  }
  return right;
}

// Every seed is refused with a reason that holds `word`.
void expect_refusals(const Fault& fault, const std::string& word,
                     const FieldSettings& settings = {}) {
  for (int seed = 1; seed <= kSeeds; ++seed) {
    Scene scene = clean_scene(static_cast<std::uint64_t>(seed));
    fault(scene);
    const FieldResult result = calibrate_field(scene.table, scene.frames, settings);
    const std::string told = result.refused + " " + result.used.unit_hint;
    EXPECT_FALSE(result.refused.empty());
    EXPECT_NE(told.find(word), std::string::npos) << told;
    EXPECT_TRUE(result.directions.empty());
  }
}

TEST(HostileField, ACleanRunIsRight) {
  EXPECT_GE(count_right([](Scene&) {}), kFewestRight);
}

TEST(HostileField, AFrameWithoutNumbersOnAnyPlaneDoesNoHarm) {
  for (const std::size_t plane : {0u, 1u, 7u}) {
    const auto fault = [plane](Scene& scene) {
      for_frame(scene.frames[plane], 9, [](auto& point) { point.x = kNaN; });
    };
    EXPECT_GE(count_right(fault), kFewestRight);
  }
}

TEST(HostileField, NotFiniteCoordinatesDoNoHarm) {
  const auto fault = [](Scene& scene) {
    const double infinity = std::numeric_limits<double>::infinity();
    scene.frames[0][3].y = infinity;
    scene.frames[0][4].z = -infinity;
    scene.frames[1][5].x = infinity;
    scene.frames[2][6].y = kNaN;
    scene.frames[3][7].z = kNaN;
  };
  EXPECT_GE(count_right(fault), kFewestRight);
}

TEST(HostileField, AFrameOutsideTheVolumeOnAnyPlaneDoesNoHarm) {
  for (const std::size_t plane : {0u, 1u, 7u}) {
    const auto fault = [plane](Scene& scene) {
      for_frame(scene.frames[plane], 4, [](auto& point) { point.z = 20.0; });
    };
    EXPECT_GE(count_right(fault), kFewestRight);
  }
}

TEST(HostileField, OnePointFarOffDoesNoHarm) {
  for (const double off : {50.0, 281.0, 1e300}) {
    EXPECT_GE(count_right([off](Scene& scene) { scene.frames[3][77].x += off; }), kFewestRight);
  }
}

TEST(HostileField, AFifthOfThePointsScatteredWideDoesNoHarm) {
  const auto fault = [](Scene& scene) {
    simulation::Random random(5);
    for (PointList& list : scene.frames) {
      for (auto& point : list) {
        if (random.uniform() < 0.2) point.x += random.uniform(-200.0, 200.0);
      }
    }
  };
  EXPECT_GE(count_right(fault), kFewestRight);
}

TEST(HostileField, AFrameThatIsGivenTwiceDoesNoHarm) {
  const auto fault = [](Scene& scene) {
    for (PointList& list : scene.frames) {
      const PointList again(list.begin(), list.begin() + 90);
      list.insert(list.end(), again.begin(), again.end());
    }
  };
  EXPECT_GE(count_right(fault), kFewestRight);
}

TEST(HostileField, FramesThatAreNumberedOnFromPlaneToPlaneDoNoHarm) {
  const auto fault = [](Scene& scene) {
    std::int32_t first = 0;
    for (PointList& list : scene.frames) {
      for (auto& point : list) point.id += first;
      first += 20;
    }
  };
  EXPECT_GE(count_right(fault), kFewestRight);
}

TEST(HostileField, AListWithOtherFramesThanTheFirstDoesNoHarm) {
  const auto fault = [](Scene& scene) {
    std::erase_if(scene.frames[0], [](const auto& point) { return point.id >= 12; });
    std::erase_if(scene.frames[5], [](const auto& point) { return point.id < 6; });
    for (auto& point : scene.frames[3]) point.id = -2147483647 + 1000 * point.id;
    for (auto& point : scene.frames[4]) point.id = 2147483647 - 7 * point.id;
  };
  EXPECT_GE(count_right(fault), kFewestRight);
}

TEST(HostileField, AnEmptyListIsRefusedWhereverItStands) {
  for (const std::size_t plane : {0u, 4u, 7u}) {
    const std::string name = "plane " + std::to_string(plane);
    expect_refusals([plane](Scene& scene) { scene.frames[plane].clear(); }, name);
  }
}

TEST(HostileField, AnEmptyListAtAnEndMayBeLeftOut) {
  FieldSettings settings;
  settings.leave_out_ends = true;
  for (const std::size_t plane : {0u, 7u}) {
    EXPECT_GE(count_right([plane](Scene& scene) { scene.frames[plane].clear(); }, settings),
              kFewestRight);
  }
  expect_refusals([](Scene& scene) { scene.frames[4].clear(); }, "plane 4", settings);
}

TEST(HostileField, NoPointAtAllIsRefused) {
  const auto fault = [](Scene& scene) {
    for (PointList& list : scene.frames) list.clear();
  };
  expect_refusals(fault, "plane 0");
  FieldSettings settings;
  settings.leave_out_ends = true;
  expect_refusals(fault, "plane", settings);
}

TEST(HostileField, MetresAreRefusedWithAWordAboutTheUnit) {
  const auto fault = [](Scene& scene) {
    for (PointList& list : scene.frames) {
      for (auto& point : list) point = {point.x / 1e3, point.y / 1e3, point.z / 1e3, point.id};
    }
  };
  expect_refusals(fault, "metres");
}

TEST(HostileField, InchesAreRefusedWithAWordAboutTheUnit) {
  const auto fault = [](Scene& scene) {
    for (PointList& list : scene.frames) {
      for (auto& point : list) {
        point = {point.x / 25.4, point.y / 25.4, point.z / 25.4, point.id};
      }
    }
  };
  expect_refusals(fault, "inch");
}

void fill_row(Scene& scene, std::int32_t plane, double value) {
  for (std::int32_t j = 0; j < 15; ++j) {
    for (std::int32_t k = 0; k < 50; ++k) {
      scene.table.cell(plane, {j, k}) = {{value, value, value}};
    }
  }
}

TEST(HostileField, ARowOfTheTableThatIsEmptyOrNotNumbersIsRefused) {
  for (const double value : {0.0, kNaN, std::numeric_limits<double>::infinity()}) {
    for (const std::int32_t plane : {0, 4, 7}) {
      expect_refusals([&](Scene& scene) { fill_row(scene, plane, value); },
                      "plane " + std::to_string(plane));
    }
  }
}

TEST(HostileField, CellsThatAreNotNumbersDoNoHarm) {
  const auto fault = [](Scene& scene) {
    for (std::int32_t k = 0; k < 50; ++k) {
      scene.table.cell(0, {2, k}) = {{kNaN, 0, 0}};
      scene.table.cell(1, {7, k}) = {{-0.01, kNaN, kNaN}};
      scene.table.cell(3, {k % 15, 4}) = {{0, 0, 0}};
      scene.table.cell(5, {9, k}) = {{0, 0.01, 0.01}};
    }
  };
  EXPECT_GE(count_right(fault), kFewestRight);
}

TEST(HostileField, ADeviceWithoutATableIsRefused) {
  expect_refusals([](Scene& scene) { scene.table = kestrane::quality::PlaneTable(8); }, "plane 0");
}

}  // namespace
