#include "examples/life/life.h"

#include <unistd.h>

#include <cstdio>

namespace device_life {

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
