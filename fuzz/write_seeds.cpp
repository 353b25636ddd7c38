// write_seeds <coefficient|plane_block|changes> <folder>: small real files to start a fuzz run
// from.
#include <cstdio>
#include <string>

#include "kestrane/buffers.h"
#include "kestrane/files.h"

namespace {

using namespace kestrane;

// Files of `planes` planes with `lines` lines of `cells` cells and `ranges` ranges.
void write_coefficients(const std::string& path, std::int32_t planes, std::int32_t lines,
                        std::int32_t cells, std::int32_t ranges) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  _COMPENSATOR_COEFFS* record = nullptr;
  if (manager.init(planes) != KESTRANE_OK) return;
  manager.get_compensator_coeffs(planes, record);
  for (int p = 0; p < planes; ++p) {
    record->opt_coeffs->planes[p].count = lines;
    for (int j = 0; j < lines; ++j) record->opt_coeffs->planes[p].lines[j].count = cells;
  }
  record->range_count = ranges;
  save_compensator_coeffs(*record, path);
}

void write_plane_blocks(const std::string& path, std::int32_t planes, std::int32_t lines,
                        std::int32_t cells) {
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  _LASER_PLANE_BLOCK_INFOS* record = nullptr;
  if (group.init(planes) != KESTRANE_OK) return;
  group.get_laser_plane_info(planes, record);
  for (int p = 0; p < planes; ++p) {
    record->planes[p].block.count = lines;
    for (int j = 0; j < lines; ++j) {
      record->planes[p].block.lines[j].count = cells;
      for (int k = 0; k < cells; ++k)
        record->planes[p].block.lines[j].cells[k] = {{-1.25e-3 * (k + 1), 12.5, 1e-7 * j}};
    }
  }
  save_plane_block_infos(*record, path);
}

void write_text(const std::string& path, const std::string& text) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return;
  std::fwrite(text.data(), 1, text.size(), file);
  std::fclose(file);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: write_seeds <coefficient|plane_block|changes> <folder>\n");
    return 1;
  }
  const std::string folder = std::string(argv[2]) + "/";
  if (std::string(argv[1]) == "coefficient") {
    write_coefficients(folder + "small", 2, 2, 2, 1);
    write_coefficients(folder + "bare", 2, 0, 0, 0);
    write_coefficients(folder + "lines", 2, 16, 1, 20);
    write_coefficients(folder + "other_count", 1, 1, 1, 1);
  } else if (std::string(argv[1]) == "changes") {
    write_text(folder + "whole_table", "T");
    write_text(folder + "whole_coefficients", "C");
    write_text(folder + "changed_table", std::string("T\x10\x20"
                                                     "7\x00\x30"
                                                     " ",
                                                     7));
    write_text(folder + "changed_coefficients", std::string("C\x10\x20"
                                                            "7\x00\x30"
                                                            "\0",
                                                            7));
  } else {
    write_plane_blocks(folder + "small", 1, 2, 2);
    write_plane_blocks(folder + "bare", 1, 0, 0);
    write_plane_blocks(folder + "lines", 1, 15, 1);
    write_plane_blocks(folder + "other_count", 2, 0, 0);
  }
  return 0;
}
