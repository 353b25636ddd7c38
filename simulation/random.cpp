#include "simulation/random.h"

namespace simulation {

double Random::uniform() { return static_cast<double>(bits() >> 11) * 0x1p-53; }

double Random::uniform(double low, double high) { return low + (high - low) * uniform(); }

int Random::index(int count) { return static_cast<int>(uniform() * count); }

double Random::gaussian() {
  double sum = -6.0;
  for (int i = 0; i < 12; ++i) sum += uniform();
  return sum;
}

}  // namespace simulation
