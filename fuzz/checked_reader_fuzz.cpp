// Any bytes as either file for the checked readers: memory stays whole, and what is not refused
// with a reason is exactly what the plain readers take from the same bytes.
//
// An input is a file as it is, or changes to a whole file of either format, which is longer than
// inputs are: the first byte tells.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/memory_file.h"
#include "kestrane/files.h"
#include "kestrane/quality/storage.h"

namespace {

using namespace kestrane;
using namespace kestrane::quality;

void require(bool holds) {
  if (!holds) std::abort();
}

// A table that was taken is whole and finite, and the plain reader has the same numbers.
void check_table(const std::string& path) {
  const PlaneTable table = read_table(path);
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  require(group.init(table.planes()) == KESTRANE_OK);
  require(read_plane_block_infos(path, group) == KESTRANE_OK);
  require(PlaneTable::copy_of(group) == table);
  for (std::size_t i = 0; i < table.size(); ++i) require(std::isfinite(table.data()[i]));
}

void check_coefficients(const std::string& path) {
  const auto record = read_coefficients(path);
  LASER_COMPENSATOR_COEFFS_MANAGER plain;
  _COMPENSATOR_COEFFS* out = nullptr;
  require(plain.init(record->plane_count) == KESTRANE_OK);
  require(plain.get_compensator_coeffs(record->plane_count, out) == KESTRANE_OK);
  require(read_compensator_coeffs(path, *out) == KESTRANE_OK);
  require(record->range_count == out->range_count);
  for (std::int32_t p = 0; p < record->plane_count; ++p) {
    const _LASER_LINES_INFOS& row = record->opt_coeffs->planes[p];
    require(row.count == out->opt_coeffs->planes[p].count);
    for (std::int32_t j = 0; j < row.count; ++j) {
      for (std::int32_t k = 0; k < row.lines[j].count; ++k) {
        for (int i = 0; i < 3; ++i)
          require(row.lines[j].cells[k].v[i] == out->opt_coeffs->planes[p].lines[j].cells[k].v[i]);
      }
    }
  }
  for (std::int32_t i = 0; i < 12 * record->plane_count; ++i)
    require(record->Mbs_factory_to_user[i] == out->Mbs_factory_to_user[i]);
}

// FileError is the only way out.
template <class Check>
void check(const std::string& path, Check reader) {
  try {
    reader(path);
  } catch (const FileError& error) {
    require(error.path() == path && !error.reason().empty());
  }
}

// A whole table of one plane, or a whole coefficient record of one.
std::string whole_file(bool table) {
  fuzz::MemoryFile file;
  const std::string path = file.hold(nullptr, 0);
  if (table) {
    LASER_PLANE_BLOCK_INFOS_GROUP group;
    require(group.init(1) == KESTRANE_OK);
    for (std::int32_t j = 0; j < 15; ++j) {
      for (std::int32_t k = 0; k < 50; ++k)
        group.planes[0].block.lines[j].cells[k] = {{-1.0 / (119.0 + k), 1e-7 * j, 0.25}};
    }
    save_plane_block_infos(group, path);
  } else {
    LASER_COMPENSATOR_COEFFS_MANAGER manager;
    _COMPENSATOR_COEFFS* record = nullptr;
    require(manager.init(1) == KESTRANE_OK);
    require(manager.get_compensator_coeffs(1, record) == KESTRANE_OK);
    save_compensator_coeffs(*record, path);
  }
  return file.bytes();
}

// Changes of three bytes each: where, in two bytes, and the new byte. A place beyond the file cuts
// it there or lets it go on.
std::string changed(std::string bytes, const std::uint8_t* changes, std::size_t size) {
  for (std::size_t i = 0; i + 2 < size; i += 3) {
    const std::size_t place = changes[i] + 256U * changes[i + 1];
    if (place < bytes.size()) {
      bytes[place] = static_cast<char>(changes[i + 2]);
    } else {
      bytes.resize(place % (bytes.size() + 16));
    }
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::MemoryFile file;
  static const std::string whole[2] = {whole_file(true), whole_file(false)};
  std::string bytes(reinterpret_cast<const char*>(data), size);
  if (size > 0 && (data[0] == 'T' || data[0] == 'C'))
    bytes = changed(whole[data[0] == 'T' ? 0 : 1], data + 1, size - 1);
  const std::string path =
      file.hold(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  check(path, check_table);
  check(path, check_coefficients);
  return 0;
}
