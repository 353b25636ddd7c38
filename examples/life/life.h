// What the stages of a simulated device's life share: the device, what it has been given so far,
// and how calls and errors are judged.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/findings.h"
#include "kestrane/quality/plane_table.h"
#include "simulation/scanner.h"

namespace device_life {

using kestrane::quality::PlaneTable;
using simulation::Sheet;

inline constexpr double kNoise = 0.05;  // standard deviation of a measured x, mm
inline constexpr double kBow = 0.4;     // most that a sheet bows, within the measured depths, mm

struct Options {
  int planes = 8;
  int points = 20000;
  bool optimise = false;
  std::uint32_t seed = 1;
  std::string out;  // folder of the files that the device keeps
};

// What the stages leave for the summary; RMS values in mm.
struct Seen {
  double table_error = 0.0;  // of the table that the device keeps, over all planes
  int models = 0;            // of corners that were brought up to date
  double knock = 0.0;        // true move of the sheets in the field
  double knock_error = 0.0;
  double warm_move = 0.0;  // true move of the sheets on the warmer day
  double warm_error = 0.0;
};

// What the device has been through so far.
struct Life {
  explicit Life(Options chosen) : options(std::move(chosen)) {}

  Options options;
  std::vector<Sheet> sheets;
  kestrane::quality::FactoryResult factory;           // the calibration whose table goes on
  PlaneTable table;                                   // the one that the device keeps
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER coeffs;  // the coefficients that the device keeps
  std::vector<kestrane::quality::Finding> findings;   // of all calibrations
  Seen seen;
  int troubles = 0;  // failed calls and errors beyond their bounds
};

// What this device is asked for.
kestrane::quality::Limits limits();

// Keeps the findings of a judgement for the end of the life.
void keep_findings(Life& life, const kestrane::quality::Judgement& judgement);

// Whether a block of a calibrated plane had points: its indicator is not three zeros.
bool had_points(const Life& life, int plane, int line, int cell);

// Notes a call that failed; true when it succeeded.
bool succeeded(Life& life, const char* call, _KESTRANE_STATUS status);

// Notes an error beyond its bound; the mark stands at the end of the line.
const char* judged(Life& life, bool within);

// One line on standard error that overwrites itself on a terminal.
void show_progress(const char* what, int done, int all);

// Root mean square and largest size of a series.
struct Spread {
  double squares = 0.0;
  double largest = 0.0;
  int count = 0;

  void add(double value) {
    squares += value * value;
    largest = std::max(largest, std::abs(value));
    ++count;
  }
  void add(const Spread& other) {
    squares += other.squares;
    largest = std::max(largest, other.largest);
    count += other.count;
  }
  double rms() const { return count > 0 ? std::sqrt(squares / count) : 0.0; }
};

// The stages, in the order of a life. Each prints what went in, what came out and how far from the
// known truth it is; false when a call failed that the following stages build on.

// Measured clouds become the table that the device keeps.
bool factory_stage(Life& life);

// Line models of the corners follow one measurement; record and table go into files, and the device
// lives on with what is read back.
bool coefficient_stage(Life& life);

// The device is shaken, and recalibrated against its stored table in both ways.
bool field_stage(Life& life);

// The table follows a warmer device.
bool run_time_stage(Life& life);

}  // namespace device_life
