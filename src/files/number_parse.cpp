#include "files/number_parse.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <optional>

#include "files/decimal_collector.h"
#include "files/powers_of_ten.h"

namespace kestrane {
namespace {

// Numbers in real files are shorter, with the blanks before them.
constexpr std::size_t kUsualLength = 64;

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

// Any number, of any length, and any text that is not one: character by character.
bool read_any_number(InputFile& in, double& value) {
  skip_space(in);
  DecimalCollector collector;
  while (collector.add(peek(in))) in.consume(1);
  const std::optional<double> result = collector.value();
  if (!result) return false;
  value = *result;
  return true;
}

// Reads digits, not more than `most`, after those that `digits` holds already.
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
