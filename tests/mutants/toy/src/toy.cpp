#include "toy.h"

#include <cstring>

double quotient(double a, double b) { return a / b; }

double untested_sum(double a, double b) { return a + b; }

void clear(char* to, std::size_t size) {
  if (size != 0) std::memset(to, 0, size);
}
