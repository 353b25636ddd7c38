#include "fast/range_transforms.h"

#include <algorithm>

#include "fast/point_sets.h"
#include "records/coefficient_record.h"
#include "records/expects.h"

namespace kestrane {
namespace {

bool holds_range(const _COMPENSATOR_COEFFS& coeffs, std::int32_t first_plane,
                 std::int32_t last_plane) {
  for (std::int32_t r = 0; r < coeffs.range_count; ++r) {
    if (coeffs.range_first[r] == first_plane && coeffs.range_last[r] == last_plane) return true;
  }
  return false;
}

void write_slot(const _MRV_EXTRINSIC_PARAM& transform, std::int64_t plane,
                _COMPENSATOR_COEFFS& coeffs) {
  KESTRANE_EXPECTS_OF("calib_Rt", plane >= 0 && plane < kTransformSlots,
                      "a plane number is 0 to 99", plane);
  if (plane < 0 || plane >= kTransformSlots) return;
  KESTRANE_EXPECTS_OF("calib_Rt", coeffs.Mbs_factory_to_user != nullptr,
                      "a coefficient record has its transforms");
  double* slot = transform_slot(coeffs.Mbs_factory_to_user, static_cast<std::int32_t>(plane));
  std::copy_n(transform.T, 3, std::copy_n(transform.R, 9, slot));
}

}  // namespace

_KESTRANE_STATUS check_range(std::size_t lists, std::int32_t first_plane, std::int32_t last_plane,
                             const _COMPENSATOR_COEFFS& in, const _COMPENSATOR_COEFFS& out) {
  if (!is_list_per_plane(lists, first_plane, last_plane)) return KESTRANE_ERR_COUNT_MISMATCH;
  if (last_plane == first_plane) return KESTRANE_ERR_EMPTY_RANGE;
  if (in.plane_count < 1) return KESTRANE_ERR_INVALID_PARAM;
  if (in.opt_coeffs == nullptr) return KESTRANE_ERR_NULL_POINTER;
  if (out.plane_count < 1) return KESTRANE_ERR_INVALID_PARAM;
  if (out.opt_coeffs == nullptr) return KESTRANE_ERR_NULL_POINTER;
  if (in.range_count >= kMaxRanges) return KESTRANE_ERR_INVALID_PARAM;
  if (in.range_count < 1) return KESTRANE_ERR_RANGE_UNKNOWN;
  if (!holds_range(in, first_plane, last_plane)) return KESTRANE_ERR_RANGE_UNKNOWN;
  return KESTRANE_OK;
}

void write_range(const _MRV_EXTRINSIC_PARAM& transform, std::int32_t first_plane,
                 std::int32_t last_plane, _COMPENSATOR_COEFFS& coeffs) {
  for (std::int64_t plane = first_plane; plane <= last_plane; ++plane) {
    write_slot(transform, plane, coeffs);
  }
}

}  // namespace kestrane
