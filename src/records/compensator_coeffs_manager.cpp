#include <cstdlib>

#include "kestrane/buffers.h"
#include "records/carving.h"
#include "records/coefficient_record.h"

namespace kestrane {
namespace {

// 9600 bytes, a multiple of 128: the store is one section.
constexpr std::int32_t kTransformStoreSize =
    kTransformSlots * kSlotSize * static_cast<std::int32_t>(sizeof(double));

}  // namespace

LASER_COMPENSATOR_COEFFS_MANAGER::LASER_COMPENSATOR_COEFFS_MANAGER()
    : _COMPENSATOR_COEFFS{}, block_(nullptr) {}

LASER_COMPENSATOR_COEFFS_MANAGER::~LASER_COMPENSATOR_COEFFS_MANAGER() { std::free(block_); }

LASER_COMPENSATOR_COEFFS_MANAGER& LASER_COMPENSATOR_COEFFS_MANAGER::operator=(
    const LASER_COMPENSATOR_COEFFS_MANAGER& other) = default;

_KESTRANE_STATUS LASER_COMPENSATOR_COEFFS_MANAGER::init(std::int32_t capacity) {
  if (capacity == 0) return KESTRANE_ERR_INVALID_PARAM;
  void* fresh = allocate_block(alloc_buf_size(nullptr, capacity, false), kTransformStoreSize);
  if (fresh == nullptr) return KESTRANE_ERR_NO_MEMORY;
  block_ = fresh;
  alloc_buf_size(block_, capacity, true);
  plane_capacity = capacity;
  range_count = 0;
  std::fill_n(range_first, kMaxRanges, 0);
  std::fill_n(range_last, kMaxRanges, 0);
  const _KESTRANE_STATUS made = init_grid_opt_coeffs(capacity, opt_coeffs_manager_, *this);
  if (made != KESTRANE_OK) return made;
  init_Mbs_factory_to_user(Mbs_factory_to_user);
  return KESTRANE_OK;
}

_KESTRANE_STATUS LASER_COMPENSATOR_COEFFS_MANAGER::get_compensator_coeffs(
    std::int32_t count, _COMPENSATOR_COEFFS*& out) {
  if (count > plane_capacity) return KESTRANE_ERR_INVALID_PARAM;
  plane_count = count;
  // An object whose `init` never succeeded has no table; only its own count can be set.
  if (opt_coeffs != nullptr) opt_coeffs->plane_count = count;
  out = this;
  return KESTRANE_OK;
}

std::int32_t LASER_COMPENSATOR_COEFFS_MANAGER::alloc_buf_size(void* buffer, std::int32_t /*count*/,
                                                              bool commit) {
  if (commit) Mbs_factory_to_user = static_cast<double*>(buffer);
  return kTransformStoreSize;
}

void LASER_COMPENSATOR_COEFFS_MANAGER::init_Mbs_factory_to_user(double* store) {
  for (std::int32_t i = 0; i < kTransformSlots; ++i) set_unit_diagonal(transform_slot(store, i));
}

_KESTRANE_STATUS LASER_COMPENSATOR_COEFFS_MANAGER::init_grid_opt_coeffs(
    std::int32_t count, LASER_PLANE_GRID_OPT_COEFFS_MANAGER& manager, _COMPENSATOR_COEFFS& record) {
  const _KESTRANE_STATUS made = manager.init(count);
  if (made != KESTRANE_OK) return made;
  return manager.get_laser_plane_grid_opt_coeffs(count, record.opt_coeffs);
}

}  // namespace kestrane
