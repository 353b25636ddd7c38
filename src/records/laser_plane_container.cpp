#include <algorithm>

#include "kestrane/records.h"

namespace morvia {

MORVIA_LASER_PLANE_CONTAINER& MORVIA_LASER_PLANE_CONTAINER::operator=(
    const MORVIA_LASER_PLANE_CONTAINER& other) {
  std::copy_n(other.words, 4, words);
  return *this;
}

}  // namespace morvia
