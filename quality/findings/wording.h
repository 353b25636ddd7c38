// How findings speak.
//
// in    numbers and plane numbers
// out   words
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrane::quality {

// A length: three decimals, or two digits where that would leave nothing; "not determined".
std::string length_text(double value);

// A share as percent: "33 %", with one decimal below 10 %; "not determined".
std::string share_text(double share);

// "1 frame", "3 frames".
std::string count_text(std::int64_t count, const std::string& what);

// Numbers with commas, at most six of them: "0, 1, 4", "0, 1, 2, 3, 4, 5 and 94 more".
std::string list_text(const std::vector<std::int32_t>& numbers);

// "plane 3", "planes 0, 1, 4".
std::string planes_text(const std::vector<std::int32_t>& planes);

// "plane 3 frame 7", "plane 3 frames 0, 7".
std::string frames_text(std::int32_t plane, const std::vector<std::int32_t>& frames);

// Phrases joined by "; ", at most six of them.
std::string phrases_text(const std::vector<std::string>& phrases);

}  // namespace kestrane::quality
