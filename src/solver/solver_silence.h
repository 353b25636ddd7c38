// Keeps the nonlinear solver's log off standard error.
#pragma once

namespace kestrane {

// While one of these lives, the log that the solver writes through holds back everything but fatal
// lines.
//
// The solver reports a degenerate problem to its log even where its options ask for silence: one
// sheet alone, whose translation along itself nothing fixes, is enough. A log that no one has set
// up goes to standard error, where nothing of this library may write. A host that has set it up
// itself keeps it as it is.
//
// The log's level belongs to the process, so objects count their lives under a lock: the first one
// raises it, the last one puts it back.
class SolverSilence {
 public:
  SolverSilence();
  ~SolverSilence();
  SolverSilence(const SolverSilence&) = delete;
  SolverSilence& operator=(const SolverSilence&) = delete;
};

}  // namespace kestrane
