#include "examples/life/life.h"

#include <unistd.h>

#include <cstdio>

namespace device_life {

kestrane::quality::Limits limits() {
  kestrane::quality::Limits asked;
  asked.rms = 0.2;
  asked.coverage = 0.8;
  asked.repeatability = 0.05;
  asked.field_motion = 1.0;
  return asked;
}

void keep_findings(Life& life, const kestrane::quality::Judgement& judgement) {
  life.findings.insert(life.findings.end(), judgement.findings.begin(), judgement.findings.end());
}

bool had_points(const Life& life, int plane, int line, int cell) {
  constexpr int kBlocks = PlaneTable::kLines * PlaneTable::kCells;
  const int index = plane * kBlocks + line * PlaneTable::kCells + cell;
  const double* v = life.factory.indicators[static_cast<std::size_t>(index)].v;
  return v[0] != 0.0 || v[1] != 0.0 || v[2] != 0.0;
}

bool succeeded(Life& life, const char* call, _KESTRANE_STATUS status) {
  if (status == KESTRANE_OK) return true;
  std::printf("%s failed with status %d\n", call, static_cast<int>(status));
  ++life.troubles;
  return false;
}

const char* judged(Life& life, bool within) {
  if (within) return "";
  ++life.troubles;
  return "  <- beyond the bound";
}

void show_progress(const char* what, int done, int all) {
  const bool terminal = isatty(STDERR_FILENO) != 0;
  std::fprintf(stderr, "%s%s %d of %d%s", terminal ? "\r" : "", what, done, all,
               terminal && done < all ? "" : "\n");
}

}  // namespace device_life
