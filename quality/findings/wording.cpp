#include "quality/findings/wording.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>

namespace kestrane::quality {
namespace {

constexpr std::size_t kMostNamed = 6;
constexpr char kUnknown[] = "not determined";

std::string formatted(const char* format, double value) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, value);
  return text.data();
}

std::string joined(const std::vector<std::string>& parts, const char* between) {
  std::string text;
  const std::size_t named = std::min(parts.size(), kMostNamed);
  for (std::size_t i = 0; i < named; ++i) {
    if (i > 0) text += between;
    text += parts[i];
  }
  if (parts.size() > named) text += " and " + std::to_string(parts.size() - named) + " more";
  return text;
}

}  // namespace

std::string length_text(double value) {
  if (std::isnan(value)) return kUnknown;
  const double size = std::abs(value);
  const bool small = size > 0.0 && size < 0.01;
  return formatted(small || size >= 1e6 ? "%.2g" : "%.3f", value);
}

std::string share_text(double share) {
  if (std::isnan(share)) return kUnknown;
  const double percent = 100.0 * share;
  if (percent >= 0.0 && percent < 0.1) return formatted("%.2g %%", percent);
  return formatted(percent >= 10.0 ? "%.0f %%" : "%.1f %%", percent);
}

std::string count_text(std::int64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string list_text(const std::vector<std::int32_t>& numbers) {
  std::vector<std::string> parts;
  parts.reserve(numbers.size());
  for (const std::int32_t number : numbers) parts.push_back(std::to_string(number));
  return joined(parts, ", ");
}

std::string planes_text(const std::vector<std::int32_t>& planes) {
  return (planes.size() == 1 ? "plane " : "planes ") + list_text(planes);
}

std::string frames_text(std::int32_t plane, const std::vector<std::int32_t>& frames) {
  return "plane " + std::to_string(plane) + (frames.size() == 1 ? " frame " : " frames ") +
         list_text(frames);
}

std::string phrases_text(const std::vector<std::string>& phrases) { return joined(phrases, "; "); }

}  // namespace kestrane::quality
