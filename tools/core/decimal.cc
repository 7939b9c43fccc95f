#include "tools/core/decimal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

namespace kelda::tools {
namespace {

constexpr std::size_t kMaxCharacters = 64;

// What stands at the front of `text` and may be a number without its exponent.
std::string_view Mantissa(std::string_view text) {
  std::size_t end = text.substr(0, 1) == "+" || text.substr(0, 1) == "-" ? 1 : 0;
  end = std::min(text.find_first_not_of("0123456789.,", end), text.size());
  // A comma that ends it separates, as in a list.
  while (end > 0 && text[end - 1] == ',') --end;
  return text.substr(0, end);
}

// The length of an exponent at the front of `text`, or 0.
std::size_t ExponentLength(std::string_view text) {
  if (text.empty() || (text[0] != 'e' && text[0] != 'E')) return 0;
  const std::size_t digits = text.size() > 1 && (text[1] == '+' || text[1] == '-') ? 2 : 1;
  const std::size_t end = std::min(text.find_first_not_of("0123456789", digits), text.size());
  return end > digits ? end : 0;
}

}  // namespace

std::optional<double> TakeDecimal(std::string_view* text) {
  const std::string_view mantissa = Mantissa(*text);
  const std::size_t length = mantissa.size() + ExponentLength(text->substr(mantissa.size()));
  if (mantissa.empty() || length > kMaxCharacters) return std::nullopt;
  std::string number(text->substr(0, length));
  if (number.find('.') != std::string::npos) {
    if (number.find_last_of(',') > number.find('.') && number.find(',') != std::string::npos) {
      return std::nullopt;
    }
    std::erase(number, ',');
  } else if (const std::size_t comma = number.find(','); comma != std::string::npos) {
    number[comma] = '.';
  }
  if (number[0] == '+') number.erase(0, 1);
  double value = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
  if (error != std::errc() || end != number.data() + number.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  text->remove_prefix(length);
  return value;
}

}  // namespace kelda::tools
