// Puts a new file in the place of an old one, or leaves the old one as it was.
//
// in    the path of the target, a step that writes a file, a step that looks at what was written
// out   the target with the new bytes, synced
#pragma once

#include <functional>
#include <string>

namespace kestrane::quality {

// A folder, a device or a pipe is refused: no file can take its place.
//
// write  writes all bytes to the path that it is given; 0 or an error number
// check  reads them back; throws FileError where they are not what they should be
//
// Throws FileError with the target's path. Whatever is thrown, no other file is left.
void replace_file(const std::string& path, const std::function<int(const std::string&)>& write,
                  const std::function<void(const std::string&)>& check);

// The text of an error number.
std::string reason_of(int error);

}  // namespace kestrane::quality
