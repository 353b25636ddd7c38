/// @file
/// What the functions of kestrane::quality throw.
///
/// - A host's mistake (a plane outside the table, a null array, a setting out of its range) is
///   `std::invalid_argument`, thrown before anything is worked on.
/// - A file that cannot be read or written is `FileError`.
/// - Memory that cannot be had is `std::bad_alloc`.
/// - Bad measurements are none of these: they are a refusal or a finding in the result.

#pragma once

#include <stdexcept>
#include <string>

#include "kestrane/export.h"

namespace kestrane::quality {

/// A file that could not be read or written. `what()` reads "<path>: <reason>".
class KESTRANE_API FileError : public std::runtime_error {
 public:
  /// @param path    the file, as the caller named it
  /// @param reason  what went wrong, without the path: "cut after plane 3, line 7"
  FileError(const std::string& path, const std::string& reason);
  /// The same for what the operating system refused, with its error number.
  FileError(const std::string& path, const std::string& reason, int error_number);
  FileError(const FileError&) = default;             ///< a copy
  FileError& operator=(const FileError&) = default;  ///< a copy
  ~FileError() override;                             ///< nothing special

  const std::string& path() const { return path_; }      ///< the file, as the caller named it
  const std::string& reason() const { return reason_; }  ///< what went wrong
  /// The `errno` of the call that failed: the file could not be opened, read or written. 0 where
  /// that went well and what it holds is wrong.
  int error_number() const { return error_number_; }

 private:
  std::string path_;
  std::string reason_;
  int error_number_ = 0;
};

}  // namespace kestrane::quality
