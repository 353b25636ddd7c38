// Run-time compensation of 100 full planes, 75,000 cells: the library's form, with the processor's
// best vector instructions and with each lesser set, beside the literal form.
//
// Each pass starts from the same table, loaded outside the clock, so that no cell drifts away over
// the passes. `vs_literal` is the literal form's fastest pass over this one's, from the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <vector>

#include "compensation/cell_kernel.h"
#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "records/table_copy.h"
#include "simulation/random.h"
#include "tests/literal/compensation.h"

namespace {

using kestrane::_LASER_PLANE_BLOCK_INFOS;
using kestrane::KESTRANE_LASER_COMPENSATOR;
using kestrane::LASER_PLANE_BLOCK_INFOS_GROUP;
using kestrane::PlaneMotion;
using kestrane::VectorSet;

constexpr std::int32_t kPlanes = 100;
constexpr std::int32_t kLines = 15;
constexpr std::int32_t kCells = 50;
constexpr double kCellsPerPass = kPlanes * kLines * kCells;

constexpr _MRV_EXTRINSIC_PARAM kExtrinsic{{1, 0, 0, 0, 1, 0, 0, 0, 1}, {110.0, 3.0, -7.0}};
constexpr literal::Vec3 kTranslation{110.0, 3.0, -7.0};
constexpr _KESTRANE_COMPENSATE_PARAM kWarm{35.5, 21.25, 0.75, 0.5, 1.5, 1e-6, 2e-5, 1e-4};

// Full tables of sheets at x of about 100, each block a little off its plane.
class Table {
 public:
  Table() {
    group_.init(kPlanes);
    rows_.resize(kPlanes);
    simulation::Random random(1);
    for (std::int32_t p = 0; p < kPlanes; ++p) {
      kestrane::_LASER_PLANE_BLOCK_INFO& row = group_.planes[p];
      row.laser_plane_R[0] = random.uniform(-0.012, -0.008);
      row.laser_plane_R[1] = random.uniform(-1e-5, 1e-5);
      row.laser_plane_R[2] = random.uniform(-1e-3, 1e-3);
      for (std::int32_t j = 0; j < kLines; ++j) {
        for (std::int32_t k = 0; k < kCells; ++k) {
          for (int i = 0; i < 3; ++i) {
            row.block.lines[j].cells[k].v[i] = row.laser_plane_R[i] * random.uniform(0.98, 1.02);
          }
        }
      }
      rows_[static_cast<std::size_t>(p)].block = row.block;
      std::copy_n(row.laser_plane_R, 3, rows_[static_cast<std::size_t>(p)].laser_plane_R);
    }
  }

  kestrane::_LASER_PLANE_BLOCK_INFO* planes() { return group_.planes; }
  _MRV_LASER_PLANE_BLOCK_INFOS record() { return {rows_.data(), group_.grids, kPlanes}; }

  void load(const Table& from) {
    for (std::int32_t p = 0; p < kPlanes; ++p) {
      kestrane::copy_table(from.group_.planes[p].block, group_.planes[p].block);
    }
  }

  bool same_cells(const Table& other) const {
    for (std::int32_t p = 0; p < kPlanes; ++p) {
      for (std::int32_t j = 0; j < kLines; ++j) {
        const void* mine = group_.planes[p].block.lines[j].cells;
        const void* theirs = other.group_.planes[p].block.lines[j].cells;
        if (std::memcmp(mine, theirs, kCells * sizeof(kestrane::_LASER_TRIPLE)) != 0) return false;
      }
    }
    return true;
  }

 private:
  LASER_PLANE_BLOCK_INFOS_GROUP group_;
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows_;
};

// The three ways to the same table; `load` starts a pass, `run` is what the clock sees.

class LiteralForm {
 public:
  void load(const Table& source) { table_.load(source); }
  void run() { literal::compensate(table_.planes(), kTranslation, kWarm, 0, kPlanes); }
  Table& result() { return table_; }

 private:
  Table table_;
};

class LibraryForm {
 public:
  LibraryForm() {
    compensator_.init();
    compensator_.set_extrinsic_matrix(kExtrinsic);
    compensator_.set_compensate_param(kWarm, 0, kPlanes);
  }
  void load(Table& source) { compensator_.set_laser_plane_param(source.record()); }
  void run() { compensator_.compensate(0, kPlanes); }
  Table& result() {
    _MRV_LASER_PLANE_BLOCK_INFOS record = table_.record();
    compensator_.get_compensate_result(record);
    return table_;
  }

 private:
  Table table_;
  KESTRANE_LASER_COMPENSATOR compensator_;
};

// The line kernel over the whole table with one vector set. It takes the planes' motions from the
// literal form, so that what is done once per plane, hardly more than one cell, is left out.
class KernelForm {
 public:
  explicit KernelForm(VectorSet set) : set_(set) {
    for (std::int32_t p = 0; p < kPlanes; ++p) {
      const double* whole = table_.planes()[p].laser_plane_R;
      const literal::PlaneTurn turn =
          literal::plane_turn(kTranslation, kWarm, p, 0, kPlanes, {whole[0], whole[1], whole[2]});
      PlaneMotion motion;
      std::copy_n(kExtrinsic.T, 3, motion.translation);
      motion.scale = literal::temperature_scale(kWarm);
      for (std::size_t i = 0; i < 3; ++i) std::copy_n(turn.R[i].data(), 3, motion.rotation + 3 * i);
      std::copy_n(turn.pivot.data(), 3, motion.pivot);
      motions_.push_back(motion);
    }
  }
  void load(const Table& source) { table_.load(source); }
  void run() {
    for (std::int32_t p = 0; p < kPlanes; ++p) {
      const kestrane::_LASER_LINES_INFOS& block = table_.planes()[p].block;
      for (std::int32_t j = 0; j < block.count; ++j) {
        kestrane::compensate_line(motions_[static_cast<std::size_t>(p)],
                                  reinterpret_cast<double*>(block.lines[j].cells),
                                  block.lines[j].count, set_);
      }
    }
  }
  Table& result() { return table_; }

 private:
  VectorSet set_;
  Table table_;
  std::vector<PlaneMotion> motions_;
};

double fastest_literal_pass = 0.0;  // seconds; 0 where that benchmark was filtered out

template <class Form>
bool equals_literal(Form& form, Table& source) {
  LiteralForm expected;
  expected.load(source);
  expected.run();
  form.load(source);
  form.run();
  return form.result().same_cells(expected.result());
}

// Of this thread, in seconds: whatever else the machine does, it is the pass that is timed.
double processor_now() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

template <class Form>
double time_passes(benchmark::State& state, Form& form) {
  Table source;
  if (!equals_literal(form, source)) {
    state.SkipWithError("differs from the literal form");
    return 0.0;
  }
  double fastest = std::numeric_limits<double>::infinity();
  for (auto _ : state) {
    form.load(source);
    const double start = processor_now();
    form.run();
    benchmark::ClobberMemory();
    const double seconds = processor_now() - start;
    state.SetIterationTime(seconds);
    fastest = std::min(fastest, seconds);
  }
  state.counters["cells/s"] = benchmark::Counter(
      kCellsPerPass * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  if (fastest_literal_pass > 0.0) state.counters["vs_literal"] = fastest_literal_pass / fastest;
  return fastest;
}

void CompensateLiteral(benchmark::State& state) {
  LiteralForm form;
  fastest_literal_pass = 0.0;
  fastest_literal_pass = time_passes(state, form);
}

void Compensate(benchmark::State& state) {
  LibraryForm form;
  time_passes(state, form);
}

void CompensateWith(benchmark::State& state, VectorSet set) {
  if (set > kestrane::best_vector_set()) {
    state.SkipWithError("this processor has no such vectors");
    return;
  }
  KernelForm form(set);
  time_passes(state, form);
}

BENCHMARK(CompensateLiteral)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(Compensate)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(CompensateWith, Baseline, VectorSet::kBaseline)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(CompensateWith, Avx2, VectorSet::kAvx2)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(CompensateWith, Avx512, VectorSet::kAvx512)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
