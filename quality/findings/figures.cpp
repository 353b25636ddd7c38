#include "quality/findings/figures.h"

namespace kestrane::quality {

std::vector<Figure> figures_of(std::initializer_list<Number> numbers) {
  std::vector<Figure> figures;
  figures.reserve(numbers.size());
  for (const Number& number : numbers) figures.push_back({number.name, number.value});
  return figures;
}

}  // namespace kestrane::quality
