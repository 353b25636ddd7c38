// The measured clouds of a real device that the tests look at where they are there.
#pragma once

#include <cstdio>
#include <memory>
#include <vector>

#include "kestrane/quality/screening.h"

namespace quality_tests {

// Lines "plane,frame,x,y,z" of planes 0 and 1 after a line of names.
inline std::vector<kestrane::quality::PointList> read_clouds(const char* path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "r"), &std::fclose);
  std::vector<kestrane::quality::PointList> clouds(2);
  char line[256];
  while (file && std::fgets(line, sizeof line, file.get()) != nullptr) {
    unsigned plane;
    _KESTRANE_ID_POINT3D point;
    if (std::sscanf(line, "%u,%d,%lf,%lf,%lf", &plane, &point.id, &point.x, &point.y, &point.z) ==
        5) {
      clouds.at(plane).push_back(point);
    }
  }
  return clouds;
}

}  // namespace quality_tests
