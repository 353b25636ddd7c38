#include "quality/screening/unit_check.h"

#include "records/shapes.h"

namespace kestrane::quality {
namespace {

constexpr double kMetre = 1000.0;
constexpr double kInch = 25.4;

bool hits(double z) { return z >= kDepthFirst && z <= kDepthLast; }

std::string sentence(const char* unit, const char* factor) {
  return std::string("most points miss the depths 150 to 1500 but would hit them times ") + factor +
         ": they seem to be in " + unit;
}

}  // namespace

void UnitCheck::add(const _KESTRANE_ID_POINT3D* points, std::size_t count) {
  points_ += static_cast<std::int64_t>(count);
  for (std::size_t i = 0; i < count; ++i) {
    from_metres_ += hits(points[i].z * kMetre) ? 1 : 0;
    from_inches_ += hits(points[i].z * kInch) ? 1 : 0;
  }
}

// No depth hits in two units: where most hit in another one, most miss as they are.
std::string UnitCheck::hint() const {
  if (2 * from_metres_ > points_) return sentence("metres", "1000");
  if (2 * from_inches_ > points_) return sentence("inches", "25.4");
  return {};
}

}  // namespace kestrane::quality
