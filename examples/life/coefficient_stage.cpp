// The coefficient record: per corner a line that ties its x to the condition of the device. The
// device leaves an earlier calibration with models that are a little off; the corners that the
// factory run measured pull them closer. Record and table then go into files and come back.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "examples/life/life.h"
#include "kestrane/fast_calib.h"
#include "kestrane/quality/storage.h"
#include "simulation/random.h"

namespace device_life {
namespace {

using kestrane::_LASER_TRIPLE;

constexpr double kCondition = 30.0;     // at which the factory measured its corners
constexpr double kModelSlope = 0.003;   // of the old models, mm per unit of the condition
constexpr double kModelError = 0.02;    // most that an old model is off, mm
constexpr double kReadingLimit = 0.01;  // how far a reading may pull, mm
constexpr double kFirstSample = 22.0;   // the old model counts with ten samples, 22 to 40
constexpr double kMiddleSample = 31.0;
constexpr int kSamples = 10;

// Tables of the job's record over a copy of cells that stand in one piece, plane after plane: the
// record knows no constant cells.
class TripleRows {
 public:
  TripleRows(std::vector<_LASER_TRIPLE> cells, int planes, int lines, int line_cells)
      : cells_(std::move(cells)) {
    for (int j = 0; j < planes * lines; ++j) {
      lines_.push_back({cells_.data() + std::ptrdiff_t{j} * line_cells, line_cells});
    }
    for (int p = 0; p < planes; ++p)
      rows_.push_back({&lines_[static_cast<std::size_t>(p * lines)], lines});
  }
  kestrane::_LASER_LINES_INFOS* rows() { return rows_.data(); }

 private:
  std::vector<_LASER_TRIPLE> cells_;
  std::vector<kestrane::_LASER_LINE_INFOS> lines_;
  std::vector<kestrane::_LASER_LINES_INFOS> rows_;
};

// x of a corner as the factory found it.
double measured_corner(const Life& life, int plane, int line, int cell) {
  const int index = (plane * 16 + line) * 51 + cell;
  return life.factory.corners[static_cast<std::size_t>(index)].v[0];
}

double model_x(const _LASER_TRIPLE& model, double condition) {
  return -(model.v[0] * condition + model.v[2]) / model.v[1];
}

// How far a reading `off` from the old model moves it at the condition of the reading: one sample
// among eleven, on a line whose slope is too small to matter.
double expected_move(double off) {
  const double held = std::clamp(off, -kReadingLimit, kReadingLimit);
  double spread = 0.0;
  for (int i = 0; i < kSamples; ++i) {
    const double t = kFirstSample + 2.0 * i - kMiddleSample;
    spread += t * t;
  }
  const double away = kCondition - kMiddleSample;
  const double middle = away / (kSamples + 1);  // of all eleven, as seen from the ten
  const double all = spread + away * away * kSamples / (kSamples + 1);
  const double from_middle = away - middle;
  return held * (1.0 / (kSamples + 1) + from_middle * from_middle / all);
}

// Models of an earlier calibration: off by up to kModelError, the same line for all conditions.
void fill_old_models(const Life& life, kestrane::_COMPENSATOR_COEFFS& record) {
  simulation::Random random(life.options.seed);
  for (int p = 0; p < life.options.planes; ++p) {
    for (int i = 0; i < 16; ++i) {
      for (int k = 0; k < 51; ++k) {
        const double x = measured_corner(life, p, i, k) + random.uniform(-kModelError, kModelError);
        record.opt_coeffs->planes[p].lines[i].cells[k] = {
            {-kModelSlope, 1.0, kModelSlope * kCondition - x}};
      }
    }
  }
  record.range_count = 1;
  record.range_first[0] = 0;
  record.range_last[0] = life.options.planes - 1;
}

struct ModelMoves {
  Spread before;      // reading minus old model
  Spread moved;       // new model minus old model, at the condition of the reading
  Spread difference;  // from the expected move
  int untouched = 0;  // models of corners that nothing measured
  int changed = 0;    // of those, models that changed all the same
};

// Numbers that nothing has worked on keep every bit.
template <class T>
bool same_bits(const T* a, const T* b, std::size_t count) {
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): the bits are meant
  return std::memcmp(a, b, count * sizeof(T)) == 0;
}

ModelMoves compare_models(const Life& life, const kestrane::_COMPENSATOR_COEFFS& old_record,
                          const kestrane::_COMPENSATOR_COEFFS& new_record) {
  ModelMoves moves;
  for (int p = 0; p < life.options.planes; ++p) {
    for (int i = 0; i < 16; ++i) {
      for (int k = 0; k < 51; ++k) {
        const _LASER_TRIPLE& old_model = old_record.opt_coeffs->planes[p].lines[i].cells[k];
        const _LASER_TRIPLE& new_model = new_record.opt_coeffs->planes[p].lines[i].cells[k];
        if (i == 15 || k == 50 || !had_points(life, p, i, k)) {
          ++moves.untouched;
          moves.changed += same_bits(&old_model, &new_model, 1) ? 0 : 1;
          continue;
        }
        const double reading = measured_corner(life, p, i, k);
        const double off = reading - model_x(old_model, kCondition);
        const double moved = model_x(new_model, kCondition) - model_x(old_model, kCondition);
        moves.before.add(off);
        moves.moved.add(moved);
        moves.difference.add(moved - expected_move(off));
      }
    }
  }
  return moves;
}

bool update_models(Life& life) {
  const int planes = life.options.planes;
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER old_owner;
  kestrane::_COMPENSATOR_COEFFS* old_record = nullptr;
  kestrane::_COMPENSATOR_COEFFS* new_record = nullptr;
  if (!succeeded(life, "coefficients init", old_owner.init(planes)) ||
      !succeeded(life, "get_compensator_coeffs",
                 old_owner.get_compensator_coeffs(planes, old_record)) ||
      !succeeded(life, "coefficients init", life.coeffs.init(planes)) ||
      !succeeded(life, "get_compensator_coeffs",
                 life.coeffs.get_compensator_coeffs(planes, new_record))) {
    return false;
  }
  fill_old_models(life, *old_record);
  TripleRows indicators(life.factory.indicators, planes, 15, 50);
  TripleRows corners(life.factory.corners, planes, 16, 51);
  kestrane::KestraneLaserFastCalibrator engine;
  if (!succeeded(life, "calib",
                 engine.calib({indicators.rows(), planes, planes}, {corners.rows(), planes, planes},
                              kCondition, *old_record, *new_record))) {
    return false;
  }
  const ModelMoves moves = compare_models(life, *old_record, *new_record);
  // Slopes of a few micrometres per unit turn the line's normal by as much: a part in 100,000.
  constexpr double kRounding = 1e-6;
  std::printf(
      "\nCoefficients: line models of %d corners follow one reading at condition %.0f, mm\n",
      moves.moved.count, kCondition);
  std::printf("  readings off the old models by rms %.5f, largest %.5f\n", moves.before.rms(),
              moves.before.largest);
  std::printf("  models moved by                rms %.5f, largest %.5f\n", moves.moved.rms(),
              moves.moved.largest);
  std::printf(
      "  A model follows slowly: a reading counts as one sample in %d, and as no more than\n"
      "  %.2f mm off. From the move that this gives: largest %.1e, bound %.0e%s\n",
      kSamples + 1, kReadingLimit, moves.difference.largest, kRounding,
      judged(life, moves.difference.largest <= kRounding));
  std::printf("  models of corners without a reading: %d, changed: %d%s\n", moves.untouched,
              moves.changed, judged(life, moves.changed == 0));
  life.seen.models = moves.moved.count;
  return true;
}

// --- Files --------------------------------------------------------------------------------------

bool store_table(Life& life, const std::string& path) {
  const kestrane::quality::SavedTable saved = kestrane::quality::save_table(life.table, path);
  // Half a unit of the sixth digit of each coefficient, at the far corners of the fan.
  constexpr double kSixDigits = 0.01;
  std::printf(
      "  %s: %ju bytes of text with six digits, which move x by %.4f at most, bound %.2f%s\n",
      path.c_str(), static_cast<std::uintmax_t>(std::filesystem::file_size(path)),
      saved.largest_move, kSixDigits, judged(life, saved.largest_move <= kSixDigits));
  life.table = kestrane::quality::read_table(path);
  return true;
}

// Cells and transforms that differ in any bit.
int differing(const kestrane::_COMPENSATOR_COEFFS& a, const kestrane::_COMPENSATOR_COEFFS& b) {
  int count = 0;
  for (int p = 0; p < a.plane_count; ++p) {
    for (int i = 0; i < 16; ++i) {
      const _LASER_TRIPLE* cells = a.opt_coeffs->planes[p].lines[i].cells;
      count += same_bits(cells, b.opt_coeffs->planes[p].lines[i].cells, 51) ? 0 : 1;
    }
    const int slot = 12 * p;
    count += same_bits(a.Mbs_factory_to_user + slot, b.Mbs_factory_to_user + slot, 12) ? 0 : 1;
  }
  return count + (a.range_count != b.range_count || a.range_first[0] != b.range_first[0] ||
                          a.range_last[0] != b.range_last[0]
                      ? 1
                      : 0);
}

bool store_coefficients(Life& life, const std::string& path) {
  kestrane::quality::save_coefficients(life.coeffs, path);
  const auto read_back = kestrane::quality::read_coefficients(path);
  const int lines = differing(life.coeffs, *read_back);
  std::printf("  %s: %ju bytes, lines and transforms that differ in any bit: %d%s\n", path.c_str(),
              static_cast<std::uintmax_t>(std::filesystem::file_size(path)), lines,
              judged(life, lines == 0));
  return true;
}

}  // namespace

bool coefficient_stage(Life& life) {
  if (!update_models(life)) return false;
  std::error_code trouble;
  std::filesystem::create_directories(life.options.out, trouble);
  std::printf("\nFiles: written, read back, and used from here on\n");
  const std::filesystem::path folder(life.options.out);
  return store_coefficients(life, (folder / "coefficients.bin").string()) &&
         store_table(life, (folder / "planes.txt").string());
}

}  // namespace device_life
