// Buffered files: bytes in, bytes out, through one window of fixed size inside the object.
//
// in    a path
// out   the file's bytes in pieces, or a file with the bytes that were handed over
//
// Nothing is allocated, whatever a file claims to hold, and a descriptor lives exactly as long as
// its object. Objects are meant for the stack, and small enough for that of a thread with little.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace kestrane {

inline constexpr std::size_t kFileWindow = 12288;
inline constexpr std::size_t kLargestView = 1280;  // the most a reader may ask for in one piece

class InputFile {
 public:
  // Opens for reading. A folder counts as a failure to open. At most `window` bytes, no more than
  // kFileWindow, are held at a time; less than that only serves to see the seams between windows.
  explicit InputFile(const std::string& path, std::size_t window = kFileWindow);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  bool is_open() const { return descriptor_ >= 0; }

  // The error number of a failed read, which looks like the end of the file; 0 without one.
  int error() const { return error_; }

  // The bytes at hand, from the present position on: at least `wanted` of them, which is no more
  // than kLargestView, or a window, unless the file ends or fails before. Empty only at its end.
  std::string_view view(std::size_t wanted) {
    if (static_cast<std::size_t>(end_ - at_) < wanted) refill(wanted);
    return {at_, static_cast<std::size_t>(end_ - at_)};
  }

  // Moves on by `size` bytes of the latest view.
  void consume(std::size_t size) { at_ += size; }

  // Copies the next number from its bytes; false, with nothing stored, when the file holds less.
  template <class Number>
  bool take(Number& to) {
    const std::string_view bytes = view(sizeof to);
    if (bytes.size() < sizeof to) return false;
    std::memcpy(&to, bytes.data(), sizeof to);
    consume(sizeof to);
    return true;
  }

 private:
  void refill(std::size_t wanted);

  int descriptor_;
  std::size_t window_;
  bool ended_ = false;
  int error_ = 0;
  const char* at_;
  const char* end_;
  // What is left of a window moves in front of the next one, so that each window begins at the same
  // aligned place.
  alignas(64) char buffer_[kLargestView + kFileWindow];
};

class OutputFile {
 public:
  // Opens for writing and truncates; a file that does not exist is made.
  explicit OutputFile(const std::string& path);

  // Finishes; a failure is not reported.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool is_open() const { return descriptor_ >= 0; }

  void put(const void* from, std::size_t size);

  // Writes what is left and closes the file; nothing may be put afterwards. Gives 0, or the error
  // number of the first failure, that to open included, after which all bytes were dropped.
  int finish();

  // Room for `size` bytes, far less than the window; `fill_to` says where they ended.
  char* room(std::size_t size) {
    if (kFileWindow - filled_ < size) flush();
    return buffer_ + filled_;
  }
  void fill_to(const char* end) { filled_ = static_cast<std::size_t>(end - buffer_); }

 private:
  void flush();

  int descriptor_;
  int error_ = 0;  // of the first failure
  std::size_t filled_ = 0;
  char buffer_[kFileWindow];
};

}  // namespace kestrane
