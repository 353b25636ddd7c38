#include "examples/cloud_csv.h"

#include <array>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

namespace examples {
namespace {

constexpr std::string_view kHeader = "plane,frame,x,y,z";
constexpr std::size_t kFields = 5;
using Fields = std::array<std::string_view, kFields>;

// Takes the next line off the front of `text`, without its end.
std::string_view take_line(std::string_view& text) {
  const std::size_t end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

std::string quoted(std::string_view text) {
  std::string result(1, '\'');
  result.append(text).push_back('\'');
  return result;
}

std::string fault(std::string_view name, std::string_view field, std::string_view what) {
  return std::string(name).append(1, ' ').append(quoted(field)).append(what);
}

// Why the line does not have five fields; empty when it has.
std::string split(std::string_view line, Fields& fields) {
  if (line.empty()) return "empty line";
  std::size_t count = 0;
  for (std::string_view rest = line;;) {
    const std::size_t comma = rest.find(',');
    if (count < kFields) fields[count] = rest.substr(0, comma);
    ++count;
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  if (count == kFields) return {};
  return std::string("5 fields expected, ").append(std::to_string(count)).append(" found");
}

// Why the field is not a number of this kind; empty when it is.
template <class Number>
std::string read_number(std::string_view name, std::string_view field, const char* kind,
                        Number& number) {
  const char* const last = field.data() + field.size();
  const auto [end, error] = std::from_chars(field.data(), last, number);
  const bool out_of_range = error == std::errc::result_out_of_range && end == last;
  if (out_of_range) return fault(name, field, " is out of range");
  if (error != std::errc{} || end != last) return fault(name, field, " is not ").append(kind);
  return {};
}

std::string read_whole(std::string_view name, std::string_view field, std::int32_t& number) {
  return read_number(name, field, "a whole number", number);
}

// Only x may be nan, and nothing infinite.
std::string read_coordinate(std::string_view name, std::string_view field, double& number) {
  std::string reason = read_number(name, field, "a number", number);
  if (!reason.empty()) return reason;
  if (std::isfinite(number) || (name == "x" && std::isnan(number))) return {};
  return fault(name, field, " is not finite");
}

std::string read_row(std::string_view line, std::int32_t& plane, _KESTRANE_ID_POINT3D& point) {
  Fields fields;
  std::string reason = split(line, fields);
  if (reason.empty()) reason = read_whole("plane", fields[0], plane);
  if (reason.empty()) reason = read_whole("frame", fields[1], point.id);
  if (reason.empty()) reason = read_coordinate("x", fields[2], point.x);
  if (reason.empty()) reason = read_coordinate("y", fields[3], point.y);
  if (reason.empty()) reason = read_coordinate("z", fields[4], point.z);
  return reason;
}

Clouds refused(std::int64_t line, std::string reason) { return {{}, std::move(reason), line}; }

using PointsByPlane = std::map<std::int32_t, std::vector<_KESTRANE_ID_POINT3D>>;

Clouds gathered(PointsByPlane& points) {
  Clouds clouds;
  for (auto& [plane, cloud] : points) clouds.planes.push_back({plane, std::move(cloud)});
  return clouds;
}

}  // namespace

Clouds parse_clouds(std::string_view text) {
  if (text.empty()) return refused(0, "the file is empty");
  if (take_line(text) != kHeader) return refused(1, fault("header", kHeader, " expected"));
  PointsByPlane points;
  for (std::int64_t line = 2; !text.empty(); ++line) {
    std::int32_t plane = 0;
    _KESTRANE_ID_POINT3D point = {};
    const std::string reason = read_row(take_line(text), plane, point);
    if (!reason.empty()) return refused(line, reason);
    points[plane].push_back(point);
    if (points.size() > kMostPlanes) return refused(line, "more than 100 planes");
  }
  if (points.empty()) return refused(0, "no points after the header");
  return gathered(points);
}

Clouds read_clouds(const std::string& path) {
  std::error_code ignored;
  std::ifstream file(path, std::ios::binary);
  if (!file || std::filesystem::is_directory(path, ignored)) {
    return refused(0, "the file cannot be opened");
  }
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) return refused(0, "the file cannot be read");
  return parse_clouds(text);
}

}  // namespace examples
