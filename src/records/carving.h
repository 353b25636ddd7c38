// Division of one flat block into sections, each rounded up to 128 bytes.
//
// in    a block, or null to measure
// out   pointers into the block, and the number of bytes that the sections take
//
// One description of a layout serves both passes: run with null it only adds up sizes, run with a
// block of that size it hands out the addresses. What a section holds is set by the caller.
#pragma once

#include <cstdint>

#include "kestrane/records.h"
#include "records/shapes.h"

namespace kestrane {

class Carver {
 public:
  explicit Carver(void* block) : block_(static_cast<unsigned char*>(block)) {}

  // True where there is a block to carve, false where sections are only measured.
  bool carves() const { return block_ != nullptr; }

  // Bytes taken so far. A negative count takes away: its rounded size is negative or zero.
  std::int64_t size() const { return size_; }

  // The next section, room for `count` objects of type T; null when measuring.
  template <class T>
  T* take(std::int64_t count) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): where bytes become records
    T* section = carves() ? reinterpret_cast<T*>(block_ + size_) : nullptr;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): sections of pointers are meant too
    const std::int64_t bytes = count * static_cast<std::int64_t>(sizeof(T));
    size_ += (bytes + kGrain - 1) & -kGrain;
    return section;
  }

  // Leaves out `bytes`, the measured size of sections that are not to be walked.
  void skip(std::int64_t bytes) { size_ += bytes; }

 private:
  static constexpr std::int64_t kGrain = 128;

  unsigned char* block_;
  std::int64_t size_ = 0;
};

// Whether carving a table also sets its counts to the full shape, or leaves them to the first copy.
enum class Counts { kFull, kLeft };

// The line table of `table`: one section. `table` is not looked at when measuring.
void carve_lines(Carver& carver, TableShape shape, Counts counts, _LASER_LINES_INFOS* table);

// The cells of a table whose lines are carved: one section per line.
void carve_cells(Carver& carver, TableShape shape, Counts counts, _LASER_LINES_INFOS* table);

// Line table and cells, one after the other.
void carve_table(Carver& carver, TableShape shape, Counts counts, _LASER_LINES_INFOS* table);

// The same for a table of row `row`. `rows` is not looked at when measuring.
template <class Row>
void carve_table(Carver& carver, TableShape shape, Counts counts, Row* rows, std::int32_t row,
                 _LASER_LINES_INFOS Row::*table) {
  carve_table(carver, shape, counts, carver.carves() ? &(rows[row].*table) : nullptr);
}

// A zeroed block of `size` bytes from the heap, to be freed with std::free. Null when the heap has
// none, when `size` does not fit the 32 bits in which the library counts bytes, or when it lies
// below `least`, the sections that every block of this layout has.
void* allocate_block(std::int64_t size, std::int64_t least);

// `size` as the 32-bit number that the owner classes report; -1 where it does not fit.
std::int32_t reported_size(std::int64_t size);

}  // namespace kestrane
