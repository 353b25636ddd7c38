#include "files/decimal_collector.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace kestrane {
namespace {

constexpr std::int64_t kExponentCap = std::int64_t{1} << 56;  // beyond what any file could undo

enum class Kind { kDigit, kPoint, kMark, kSign, kOther };

Kind kind_of(char c) {
  switch (c) {
    case '.':
      return Kind::kPoint;
    case 'e':
    case 'E':
      return Kind::kMark;
    case '+':
    case '-':
      return Kind::kSign;
    default:
      return c >= '0' && c <= '9' ? Kind::kDigit : Kind::kOther;
  }
}

}  // namespace

DecimalCollector::Part DecimalCollector::next_part(Part part, char c) {
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
  return kNext[static_cast<std::size_t>(part)][static_cast<std::size_t>(kind_of(c))];
}

bool DecimalCollector::add(char c) {
  const Part part = next_part(part_, c);
  if (part == Part::kEnd) return false;
  part_ = part;
  if (part == Part::kSign) negative_ = c == '-';
  if (part == Part::kWhole || part == Part::kFraction) add_digit(c, part == Part::kFraction);
  if (part == Part::kExponentSign) negative_exponent_ = c == '-';
  if (part == Part::kExponent) exponent_ = std::min(exponent_ * 10 + (c - '0'), kExponentCap);
  return true;
}

std::optional<double> DecimalCollector::value() {
  const bool whole = part_ == Part::kWhole || part_ == Part::kPoint || part_ == Part::kFraction ||
                     part_ == Part::kExponent;
  if (!whole) return std::nullopt;
  const double zero = negative_ ? -0.0 : 0.0;
  if (count_ == 0) return zero;
  const std::int64_t power = shift_ + (negative_exponent_ ? -exponent_ : exponent_);
  const std::int64_t first = power + static_cast<std::int64_t>(count_) - 1;
  return convert(power, first < 0, zero);
}

void DecimalCollector::add_digit(char c, bool fraction) {
  if (count_ == 0 && c == '0') {
    if (fraction) --shift_;
  } else if (count_ < kDecisiveDigits) {
    text_[1 + count_++] = c;
    if (fraction) --shift_;
  } else {
    more_ = more_ || c != '0';
    if (!fraction) ++shift_;
  }
}

std::optional<double> DecimalCollector::convert(std::int64_t power, bool small, double zero) {
  text_[0] = '-';
  const char* const begin = text_ + (negative_ ? 0 : 1);
  char* end = text_ + 1 + count_;
  if (more_) end = std::copy_n(".1", 2, end);
  *end++ = 'e';
  end = std::to_chars(end, text_ + sizeof text_, power).ptr;
  double result = 0.0;
  if (std::from_chars(begin, end, result).ec == std::errc{}) return result;
  if (small) return zero;
  return std::nullopt;
}

}  // namespace kestrane
