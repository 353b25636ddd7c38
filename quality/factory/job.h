// One run of the factory job.
//
// in    an engine, the cloud of one plane
// out   its status and, where it succeeded, everything that it left
#pragma once

#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/records.h"
#include "quality/factory/plane_points.h"

namespace kestrane::quality {

struct JobRun {
  _KESTRANE_STATUS status = KESTRANE_ERR_FAILED;
  double whole_plane[3] = {};             // a, b, c
  std::vector<_LASER_TRIPLE> cells;       // 15 x 50, as are
  std::vector<_LASER_TRIPLE> indicators;  // these
  std::vector<_LASER_TRIPLE> corners;     // 16 x 51

  // Whether a plane came out: a success with a finite whole plane and at least one block.
  bool has_table() const;
};

// Always works in the engine's first row, which keeps what an earlier run left there: nothing is
// read from it but after a success.
JobRun run_job(KESTRANE_LASER_FAC_CALIB& engine, Cloud cloud, bool optimise);

}  // namespace kestrane::quality
