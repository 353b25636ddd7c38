// Any bytes as a coefficient file: memory stays whole, and the record ends up as plain streams
// would leave it.
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include "files/coefficient_file.h"
#include "fuzz/memory_file.h"
#include "kestrane/buffers.h"
#include "tests/literal/files.h"

namespace {

using namespace kestrane;

constexpr std::int32_t kPlanes = 2;
constexpr std::size_t kTableBytes = 128 + kPlanes * 20736;  // rows and slabs of the table's block

// One record, put back to its first state before each reading, with its pointers as they are.
class Record {
 public:
  Record() {
    if (manager_.init(kPlanes) != KESTRANE_OK) std::abort();
    manager_.get_compensator_coeffs(kPlanes, record_);
    for (int i = 0; i < 1200; ++i) record_->Mbs_factory_to_user[i] = i;
    record_->range_count = 3;
    first_ = bytes();
  }

  _COMPENSATOR_COEFFS& fresh() {
    std::memcpy(record_->opt_coeffs->planes, first_.data(), kTableBytes);
    std::memcpy(record_->Mbs_factory_to_user, first_.data() + kTableBytes, 9600);
    *record_ = head_of(first_);
    record_->opt_coeffs->plane_count = kPlanes;
    return *record_;
  }

  std::string bytes() const {
    std::string all(reinterpret_cast<const char*>(record_->opt_coeffs->planes), kTableBytes);
    all.append(reinterpret_cast<const char*>(record_->Mbs_factory_to_user), 9600);
    all.append(reinterpret_cast<const char*>(record_), sizeof *record_);
    all.append(reinterpret_cast<const char*>(&record_->opt_coeffs->plane_count), 4);
    return all;
  }

 private:
  static _COMPENSATOR_COEFFS head_of(const std::string& all) {
    _COMPENSATOR_COEFFS head;
    std::memcpy(&head, all.data() + kTableBytes + 9600, sizeof head);
    return head;
  }

  LASER_COMPENSATOR_COEFFS_MANAGER manager_;
  _COMPENSATOR_COEFFS* record_ = nullptr;
  std::string first_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Record record;
  static fuzz::MemoryFile file;
  constexpr std::size_t kTransform = 96;  // the largest piece that is asked for number by number
  InputFile in(file.hold(data, size), fuzz::window_for(size, kTransform));
  const _KESTRANE_STATUS status = read_coefficients(in, record.fresh());
  const std::string got = record.bytes();
  std::istringstream plain(std::string(reinterpret_cast<const char*>(data), size));
  if (literal::read_coefficients(plain, record.fresh()) != status) std::abort();
  if (record.bytes() != got) std::abort();
  return 0;
}
