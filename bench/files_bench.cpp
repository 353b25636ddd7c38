// Both calibration files at full size, 100 planes: each function beside a plain form. The text file
// against formatted streams, the binary file against one write or read of the same bytes. Files lie
// in memory, so that no disk takes part.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/files.h"
#include "simulation/random.h"
#include "tests/literal/files.h"

namespace {

using namespace kestrane;

constexpr std::int32_t kPlanes = 100;

// A path of a file in memory, for the life of the program.
std::string memory_path(const char* name) {
  return "/proc/self/fd/" + std::to_string(::memfd_create(name, 0));
}

std::string bytes_of(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void check(bool holds, benchmark::State& state, const char* what) {
  if (!holds) state.SkipWithError(what);
}

struct Planes {
  explicit Planes(std::uint64_t seed) {
    group.init(kPlanes);
    group.get_laser_plane_info(kPlanes, record);
    simulation::Random random(seed);
    for (int p = 0; p < kPlanes; ++p) {
      for (int j = 0; j < 15; ++j)
        for (int k = 0; k < 50; ++k)
          for (double& v : record->planes[p].block.lines[j].cells[k].v)
            v = random.uniform(-0.01, 0.01);
      for (double& r : record->planes[p].laser_plane_R) r = random.uniform(-0.01, 0.01);
    }
  }
  bool equals(const Planes& other) const {
    for (int p = 0; p < kPlanes; ++p)
      for (int j = 0; j < 15; ++j)
        for (int v = 0; v < 150; ++v)
          if (record->planes[p].block.lines[j].cells[v / 3].v[v % 3] !=
              other.record->planes[p].block.lines[j].cells[v / 3].v[v % 3])
            return false;
    return true;
  }
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  _LASER_PLANE_BLOCK_INFOS* record = nullptr;
};

struct Coefficients {
  explicit Coefficients(std::uint64_t seed) {
    manager.init(kPlanes);
    manager.get_compensator_coeffs(kPlanes, record);
    simulation::Random random(seed);
    for (int p = 0; p < kPlanes; ++p)
      for (int j = 0; j < 16; ++j)
        for (int k = 0; k < 51; ++k)
          for (double& v : record->opt_coeffs->planes[p].lines[j].cells[k].v) v = random.uniform();
    record->range_count = 4;
  }
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  _COMPENSATOR_COEFFS* record = nullptr;
};

void SavePlaneBlocks(benchmark::State& state) {
  const Planes planes(1);
  const std::string path = memory_path("fast"), plain = memory_path("plain");
  save_plane_block_infos(*planes.record, path);
  {
    std::ofstream out(plain);
    literal::save_plane_blocks(out, *planes.record);
  }
  check(bytes_of(path) == bytes_of(plain), state, "the two files differ");
  for (auto _ : state) save_plane_block_infos(*planes.record, path);
  state.SetItemsProcessed(state.iterations() * kPlanes);
}
BENCHMARK(SavePlaneBlocks)->Unit(benchmark::kMillisecond);

void SavePlaneBlocksByStream(benchmark::State& state) {
  const Planes planes(1);
  const std::string path = memory_path("plain");
  for (auto _ : state) {
    std::ofstream out(path);
    literal::save_plane_blocks(out, *planes.record);
  }
  state.SetItemsProcessed(state.iterations() * kPlanes);
}
BENCHMARK(SavePlaneBlocksByStream)->Unit(benchmark::kMillisecond);

void ReadPlaneBlocks(benchmark::State& state) {
  const Planes planes(1);
  Planes fast(2), plain(3);
  const std::string path = memory_path("table");
  save_plane_block_infos(*planes.record, path);
  std::ifstream in(path);
  literal::read_plane_blocks(in, *plain.record);
  read_plane_block_infos(path, *fast.record);
  check(fast.equals(plain), state, "the two tables differ");
  for (auto _ : state) read_plane_block_infos(path, *fast.record);
  state.SetItemsProcessed(state.iterations() * kPlanes);
}
BENCHMARK(ReadPlaneBlocks)->Unit(benchmark::kMillisecond);

void ReadPlaneBlocksByStream(benchmark::State& state) {
  Planes planes(1);
  const std::string path = memory_path("table");
  save_plane_block_infos(*planes.record, path);
  for (auto _ : state) {
    std::ifstream in(path);
    literal::read_plane_blocks(in, *planes.record);
  }
  state.SetItemsProcessed(state.iterations() * kPlanes);
}
BENCHMARK(ReadPlaneBlocksByStream)->Unit(benchmark::kMillisecond);

void SaveCoefficients(benchmark::State& state) {
  const Coefficients coefficients(1);
  const std::string path = memory_path("coefficients");
  for (auto _ : state) save_compensator_coeffs(*coefficients.record, path);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes_of(path).size()));
}
BENCHMARK(SaveCoefficients)->Unit(benchmark::kMicrosecond);

void WriteTheSameBytesAtOnce(benchmark::State& state) {
  const Coefficients coefficients(1);
  const std::string path = memory_path("coefficients");
  save_compensator_coeffs(*coefficients.record, path);
  const std::string bytes = bytes_of(path);
  for (auto _ : state) {
    const int file = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CREAT, 0666);
    if (::write(file, bytes.data(), bytes.size()) < 0) state.SkipWithError("write");
    ::close(file);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(WriteTheSameBytesAtOnce)->Unit(benchmark::kMicrosecond);

void ReadCoefficients(benchmark::State& state) {
  const Coefficients coefficients(1);
  Coefficients target(2);
  const std::string path = memory_path("coefficients"), again = memory_path("again");
  save_compensator_coeffs(*coefficients.record, path);
  for (auto _ : state) read_compensator_coeffs(path, *target.record);
  save_compensator_coeffs(*target.record, again);
  const std::string bytes = bytes_of(path);
  check(bytes == bytes_of(again), state, "the record that was read differs");
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(ReadCoefficients)->Unit(benchmark::kMicrosecond);

void ReadTheSameBytesAtOnce(benchmark::State& state) {
  const Coefficients coefficients(1);
  const std::string path = memory_path("coefficients");
  save_compensator_coeffs(*coefficients.record, path);
  std::vector<char> bytes(bytes_of(path).size());
  for (auto _ : state) {
    const int file = ::open(path.c_str(), O_RDONLY);
    if (::read(file, bytes.data(), bytes.size()) < 0) state.SkipWithError("read");
    ::close(file);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(ReadTheSameBytesAtOnce)->Unit(benchmark::kMicrosecond);

}  // namespace
