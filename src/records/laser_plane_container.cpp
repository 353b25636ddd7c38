#include <algorithm>

#include "kestrane/records.h"

namespace morvia {

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): words copied onto themselves
MORVIA_LASER_PLANE_CONTAINER& MORVIA_LASER_PLANE_CONTAINER::operator=(
    const MORVIA_LASER_PLANE_CONTAINER& other) {
  std::copy_n(other.words, 4, words);
  return *this;
}

}  // namespace morvia
