// A decimal number of any length, character by character, in bounded memory: the way for every
// number that the fast one leaves out.
//
// in    the characters of a text
// out   where the number ends, and the nearest double
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kestrane {

class DecimalCollector {
 public:
  // Takes the next character; false, with nothing taken, if it cannot belong to the number. Accepts
  // every prefix of a number: sign, digits with one point among them, and after at least one digit
  // an exponent.
  bool add(char c);

  // The nearest double to what has been taken; a number too small for a double is 0. None if that
  // is not a whole number's text or lies beyond the largest double. Nothing can be added after
  // this.
  std::optional<double> value();

 private:
  // What a number consists of. A part names the latest character, and with it all that may follow.
  enum class Part : unsigned char {
    kStart,
    kSign,
    kBarePoint,  // no digit before it
    kWhole,
    kPoint,
    kFraction,
    kExponentMark,
    kExponentSign,
    kExponent,
    kEnd,  // the character does not belong to the number
  };

  // A double lies on one side of the middle between two neighbours or the other by its first 768
  // digits and by whether any digit follows that is not 0.
  static constexpr std::size_t kDecisiveDigits = 800;

  static Part next_part(Part part, char c);
  void add_digit(char c, bool fraction);
  std::optional<double> convert(std::int64_t power, bool small, double zero);

  Part part_ = Part::kStart;
  char text_[1 + kDecisiveDigits + 31];  // digits, with room for what stands before and after them
  std::size_t count_ = 0;
  bool more_ = false;  // a digit that is not 0 follows the collected ones
  bool negative_ = false;
  bool negative_exponent_ = false;
  std::int64_t shift_ = 0;
  std::int64_t exponent_ = 0;
};

}  // namespace kestrane
