// Any bytes as a plane-block file: memory stays whole, and the table ends up as formatted streams
// would leave it.
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include "files/plane_block_file.h"
#include "fuzz/memory_file.h"
#include "kestrane/buffers.h"
#include "tests/literal/files.h"

namespace {

using namespace kestrane;

constexpr std::int32_t kPlanes = 1;
constexpr std::size_t kBlockBytes = 128 + kPlanes * 38912 + 1280;  // rows, slabs, grid bounds

// One table, put back to its first state before each reading, with its pointers as they are.
class Table {
 public:
  Table() {
    if (group_.init(kPlanes) != KESTRANE_OK) std::abort();
    group_.get_laser_plane_info(kPlanes, record_);
    first_ = bytes();
  }

  _LASER_PLANE_BLOCK_INFOS& fresh() {
    std::memcpy(record_->planes, first_.data(), kBlockBytes);
    return *record_;
  }

  std::string bytes() const { return {reinterpret_cast<char*>(record_->planes), kBlockBytes}; }

 private:
  LASER_PLANE_BLOCK_INFOS_GROUP group_;
  _LASER_PLANE_BLOCK_INFOS* record_ = nullptr;
  std::string first_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Table table;
  static fuzz::MemoryFile file;
  InputFile in(file.hold(data, size), fuzz::window_for(size, 1));
  const _KESTRANE_STATUS status = read_plane_blocks(in, table.fresh());
  const std::string got = table.bytes();
  std::istringstream plain(std::string(reinterpret_cast<const char*>(data), size));
  if (literal::read_plane_blocks(plain, table.fresh()) != status) std::abort();
  if (table.bytes() != got) std::abort();
  return 0;
}
