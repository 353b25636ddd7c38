#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <optional>

#include "files/number_text.h"
#include "files/powers_of_ten.h"

namespace kestrane {
namespace {

// Numbers in real files are shorter, with the blanks in front of them.
constexpr std::size_t kUsualLength = 64;

// A double lies on one side of the middle between two neighbours or the other by its first 768
// digits and by whether any digit follows that is not 0.
constexpr std::size_t kDecisiveDigits = 800;
constexpr std::int64_t kExponentCap = std::int64_t{1} << 56;  // beyond what any file could undo

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The character at hand; a null character, which no number holds, at the end of the file.
char peek(InputFile& in) {
  const std::string_view text = in.view(1);
  return text.empty() ? '\0' : text.front();
}

void skip_space(InputFile& in) {
  while (is_space(peek(in))) in.consume(1);
}

// What a number consists of: sign, digits with one point among them, and behind at least one digit
// an exponent. A part names the latest character, and with it all that may follow.
enum class Part : unsigned char {
  kStart,
  kSign,
  kBarePoint,  // no digit in front of it
  kWhole,
  kPoint,
  kFraction,
  kExponentMark,
  kExponentSign,
  kExponent,
  kEnd,  // the character does not belong to the number
};

enum class Kind { kDigit, kPoint, kMark, kSign, kOther };

Kind kind_of(char c) {
  if (is_digit(c)) return Kind::kDigit;
  if (c == '.') return Kind::kPoint;
  if (c == 'e' || c == 'E') return Kind::kMark;
  return c == '+' || c == '-' ? Kind::kSign : Kind::kOther;
}

// The part that a character of some kind is behind some part. It takes what could become a number,
// which is more than what is one.
Part next_part(Part part, Kind kind) {
  using enum Part;
  constexpr Part kNext[][5] = {
      // digit, point, mark, sign, other
      {kWhole, kBarePoint, kEnd, kSign, kEnd},       // kStart
      {kWhole, kBarePoint, kEnd, kEnd, kEnd},        // kSign
      {kFraction, kEnd, kEnd, kEnd, kEnd},           // kBarePoint
      {kWhole, kPoint, kExponentMark, kEnd, kEnd},   // kWhole
      {kFraction, kEnd, kExponentMark, kEnd, kEnd},  // kPoint
      {kFraction, kEnd, kExponentMark, kEnd, kEnd},  // kFraction
      {kExponent, kEnd, kEnd, kExponentSign, kEnd},  // kExponentMark
      {kExponent, kEnd, kEnd, kEnd, kEnd},           // kExponentSign
      {kExponent, kEnd, kEnd, kEnd, kEnd},           // kExponent
  };
  return kNext[static_cast<std::size_t>(part)][static_cast<std::size_t>(kind)];
}

// Whether a number may end with this part.
bool completes(Part part) {
  return part == Part::kWhole || part == Part::kPoint || part == Part::kFraction ||
         part == Part::kExponent;
}

// A number of any length in bounded memory: its decisive digits as an integer, times a power of
// ten.
class DecimalCollector {
 public:
  void add(Part part, char c) {
    if (part == Part::kSign) negative_ = c == '-';
    if (part == Part::kWhole || part == Part::kFraction) add_digit(c, part == Part::kFraction);
    if (part == Part::kExponentSign) negative_exponent_ = c == '-';
    if (part == Part::kExponent) exponent_ = std::min(exponent_ * 10 + (c - '0'), kExponentCap);
  }

  // The nearest double; none when it is beyond the largest.
  std::optional<double> value() const {
    const double zero = negative_ ? -0.0 : 0.0;
    if (count_ == 0) return zero;
    const std::int64_t power = shift_ + (negative_exponent_ ? -exponent_ : exponent_);
    const std::int64_t first = power + static_cast<std::int64_t>(count_) - 1;
    return convert(power, first < 0, zero);
  }

 private:
  void add_digit(char c, bool fraction) {
    if (count_ == 0 && c == '0') {
      if (fraction) --shift_;
    } else if (count_ < kDecisiveDigits) {
      digits_[count_++] = c;
      if (fraction) --shift_;
    } else {
      more_ = more_ || c != '0';
      if (!fraction) ++shift_;
    }
  }

  std::optional<double> convert(std::int64_t power, bool small, double zero) const {
    char text[kDecisiveDigits + 32];
    char* end = text;
    if (negative_) *end++ = '-';
    end = std::copy_n(digits_, count_, end);
    if (more_) end = std::copy_n(".1", 2, end);
    *end++ = 'e';
    end = std::to_chars(end, text + sizeof text, power).ptr;
    double result = 0.0;
    if (std::from_chars(text, end, result).ec == std::errc{}) return result;
    if (small) return zero;
    return std::nullopt;
  }

  char digits_[kDecisiveDigits];
  std::size_t count_ = 0;
  bool more_ = false;  // a digit that is not 0 follows the collected ones
  bool negative_ = false;
  bool negative_exponent_ = false;
  std::int64_t shift_ = 0;
  std::int64_t exponent_ = 0;
};

// Any number, of any length, and any text that is none: character by character.
bool read_any_number(InputFile& in, double& value) {
  skip_space(in);
  DecimalCollector collector;
  Part part = Part::kStart;
  for (;;) {
    const char c = peek(in);
    const Part next = next_part(part, kind_of(c));
    if (next == Part::kEnd) break;
    collector.add(next, c);
    part = next;
    in.consume(1);
  }
  if (!completes(part)) return false;
  const std::optional<double> result = collector.value();
  if (!result) return false;
  value = *result;
  return true;
}

// Reads digits, not more than `most`, behind those that `digits` holds already.
const char* take_digits(const char* at, std::ptrdiff_t most, std::uint64_t& digits) {
  const char* const stop = at + most;
  while (at < stop && is_digit(*at)) digits = digits * 10 + static_cast<std::uint64_t>(*at++ - '0');
  return at;
}

// e+XX with a two-digit exponent, which is added to `power`. Null for any other form.
const char* take_short_exponent(const char* at, int& power) {
  const bool negative = at[1] == '-';
  if ((!negative && at[1] != '+') || !is_digit(at[2]) || !is_digit(at[3])) return nullptr;
  const int size = (at[2] - '0') * 10 + (at[3] - '0');
  power += negative ? -size : size;
  return at + 4;
}

}  // namespace

// Where digits and power of ten are exact doubles, one operation gives the nearest double.
const char* take_plain_decimal(std::string_view text, double& value) {
  constexpr std::size_t kEnough = 32;   // longer than all that is taken here
  constexpr std::ptrdiff_t kMost = 18;  // digits that cannot overflow 64 bits
  constexpr std::uint64_t kExact = std::uint64_t{1} << 53;
  if (text.size() < kEnough) return nullptr;
  const bool negative = text.front() == '-';
  const char* const begin = text.data() + (negative ? 1 : 0);
  std::uint64_t digits = 0;
  const char* at = take_digits(begin, kMost, digits);
  std::ptrdiff_t count = at - begin;
  int power = 0;
  if (*at == '.') {
    const char* const fraction = ++at;
    at = take_digits(at, kMost - count, digits);
    power = static_cast<int>(fraction - at);
    count -= power;
  }
  if (*at == 'e') at = take_short_exponent(at, power);
  if (at == nullptr || count == 0 || !is_space(*at) || digits > kExact) return nullptr;
  if (std::abs(power) > kLargestExactPower) return nullptr;
  const double size =
      times_power_of_ten(static_cast<double>(static_cast<std::int64_t>(digits)), power);
  value = negative ? -size : size;
  return at;
}

bool read_number(InputFile& in, double& value) {
  const std::string_view text = in.view(kUsualLength);
  const auto first = std::find_if_not(text.begin(), text.end(), is_space);
  const std::string_view number = text.substr(static_cast<std::size_t>(first - text.begin()));
  const char* end = take_plain_decimal(number, value);
  if (end == nullptr) return read_any_number(in, value);
  in.consume(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool read_number(InputFile& in, std::int32_t& value) {
  constexpr std::int64_t kBeyond = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 2;
  skip_space(in);
  const char sign = peek(in);
  if (sign == '+' || sign == '-') in.consume(1);
  std::int64_t size = 0;
  bool has_digits = false;
  for (char c = peek(in); is_digit(c); c = peek(in)) {
    size = std::min(size * 10 + (c - '0'), kBeyond);
    has_digits = true;
    in.consume(1);
  }
  const std::int64_t result = sign == '-' ? -size : size;
  if (!has_digits || result < std::numeric_limits<std::int32_t>::min() ||
      result > std::numeric_limits<std::int32_t>::max())
    return false;
  value = static_cast<std::int32_t>(result);
  return true;
}

}  // namespace kestrane
