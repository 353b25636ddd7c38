// Measured clouds from a CSV file.
//
// First line   plane,frame,x,y,z
// Other lines  two whole numbers of 32 bits and three decimal numbers, nothing around them; lines
//              in any order, ended by LF or CRLF. An x of nan is a dropped point; all else is
//              finite.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kestrane/records.h"

namespace examples {

inline constexpr std::size_t kMostPlanes = 100;

// The points of one plane, in the order of the file. The frame number is the point's id.
struct PlaneCloud {
  std::int32_t plane;  // the number that the file gives it
  std::vector<_KESTRANE_ID_POINT3D> points;
};

struct Clouds {
  std::vector<PlaneCloud> planes;  // ascending by number; empty when something is wrong
  std::string error;               // why the file was refused; empty when it was not
  std::int64_t error_line = 0;     // the line at fault, from 1; 0 when it is the file as a whole
};

// Refuses at the first bad line, at the 101st plane, and when there are no points.
Clouds parse_clouds(std::string_view text);

// The same for a file; one that cannot be read is refused as a whole.
Clouds read_clouds(const std::string& path);

}  // namespace examples
