// Command lines of the example programs: flags, and options with a whole number.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>

namespace examples {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// The whole of `text` as a number; empty for anything else, also for a number out of range.
template <class Number>
std::optional<Number> whole_number(std::string_view text) {
  Number number = {};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// Walks a command line from the first argument on.
class Arguments {
 public:
  Arguments(int count, char** values) : count_(count), values_(values) {}

  // The next argument; empty at the end.
  std::optional<std::string_view> next() {
    if (position_ >= count_) return std::nullopt;
    return std::string_view(values_[position_++]);
  }

  // The next argument as a whole number from `least` to `most`. Otherwise names the option and
  // what it takes on standard error.
  template <class Number>
  bool read_number(std::string_view option, Number least, Number most, Number& number) {
    const std::optional<std::string_view> text = next();
    const std::optional<Number> read = text ? whole_number<Number>(*text) : std::nullopt;
    if (read && *read >= least && *read <= most) {
      number = *read;
      return true;
    }
    std::fprintf(stderr, "%.*s takes a whole number from %lld to %lld\n",
                 static_cast<int>(option.size()), option.data(), static_cast<long long>(least),
                 static_cast<long long>(most));
    return false;
  }

 private:
  int count_;
  char** values_;
  int position_ = 1;
};

}  // namespace examples
