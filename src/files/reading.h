// How the reading of a part of a file ended.
#pragma once

namespace kestrane {

enum class Reading {
  kWhole,    // the part is in the record
  kCut,      // the file ended or was malformed; nothing more can be read from it
  kTooLarge  // a count in the file goes beyond the record
};

}  // namespace kestrane
