// The numbers of a finding as a row lists them.
//
// in    names with counts, plane numbers and lengths
// out   figures
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "kestrane/quality/findings.h"

namespace kestrane::quality {

// A size as a number, by way of a signed one: that conversion is a single instruction.
inline double real_of(std::size_t size) {
  return static_cast<double>(static_cast<std::int64_t>(size));
}

// A figure before it owns its name.
struct Number {
  Number(const char* its_name, double its_value) : name(its_name), value(its_value) {}
  Number(const char* its_name, std::int32_t its_value) : name(its_name), value(its_value) {}
  Number(const char* its_name, std::int64_t its_value)
      : name(its_name), value(static_cast<double>(its_value)) {}
  Number(const char* its_name, std::size_t its_value) : name(its_name), value(real_of(its_value)) {}

  const char* name;
  double value;
};

std::vector<Figure> figures_of(std::initializer_list<Number> numbers);

}  // namespace kestrane::quality
