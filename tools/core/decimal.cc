#include "tools/core/decimal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>

#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kMaxCharacters = 64;
constexpr const char* kDigits = "0123456789";

// The part of a number before its exponent, if `text` begins with one; else empty.
std::string_view Mantissa(std::string_view text) {
  std::size_t end = text.substr(0, 1) == "+" || text.substr(0, 1) == "-" ? 1 : 0;
  end = std::min(text.find_first_not_of("0123456789.,", end), text.size());
  // A comma at the end separates the numbers of a list.
  while (end > 0 && text[end - 1] == ',') {
    --end;
  }
  return text.substr(0, end);
}

// The length of an exponent at the front of `text`, or 0.
std::size_t ExponentLength(std::string_view text) {
  if (text.empty() || (text[0] != 'e' && text[0] != 'E')) {
    return 0;
  }
  const std::size_t digits = text.size() > 1 && (text[1] == '+' || text[1] == '-') ? 2 : 1;
  const std::size_t end = std::min(text.find_first_not_of(kDigits, digits), text.size());
  return end > digits ? end : 0;
}

// Whether `separator` groups the digits of `whole` in threes, as in "1,050,000".
bool GroupsInThrees(std::string_view whole, char separator) {
  const std::size_t first = whole.find(separator);
  if (first == 0 || first > 3 || (whole.size() - first) % 4 != 0) {
    return false;
  }
  for (std::size_t i = first; i < whole.size(); ++i) {
    if ((whole[i] == separator) != ((i - first) % 4 == 0)) {
      return false;
    }
  }
  return true;
}

// Whether the number after `before` may be a frequency: it follows "Fc", or is the first number of
// a point of a GraphicEQ.
bool MayBeFrequency(std::string_view before) {
  before = before.substr(0, before.find_last_not_of(" \t") + 1);
  if (before.ends_with(':') || before.ends_with(';')) {
    return true;
  }
  return before.ends_with("Fc") || before.ends_with("fc") || before.ends_with("FC") ||
         before.ends_with("fC");
}

template <typename Value>
std::string Shortest(Value value) {
  char text[64];
  const auto [end, error] = std::to_chars(text, text + sizeof(text), value);
  return {text, end};
}

}  // namespace

std::optional<Decimal> TakeDecimal(std::string_view* text) {
  const std::string_view mantissa = Mantissa(*text);
  const std::size_t length = mantissa.size() + ExponentLength(text->substr(mantissa.size()));
  if (mantissa.empty() || length > kMaxCharacters) {
    return std::nullopt;
  }
  Decimal decimal{0, text->substr(0, length), '\0', false};
  std::string number(decimal.written);
  if (const std::size_t mark = mantissa.find_last_of(".,"); mark != std::string_view::npos) {
    decimal.mark = mantissa[mark];
    const char separator = decimal.mark == '.' ? ',' : '.';
    const bool sign = mantissa[0] == '+' || mantissa[0] == '-';
    const std::string_view whole = mantissa.substr(sign, mark - sign);
    if (whole.find(decimal.mark) != std::string_view::npos) {
      return std::nullopt;
    }
    const bool grouped = whole.find(separator) != std::string_view::npos;
    if (grouped && !GroupsInThrees(whole, separator)) {
      return std::nullopt;
    }
    decimal.may_group = !grouped && !sign && !whole.empty() && whole[0] != '0' &&
                        whole.size() <= 3 && length == mark + 4;
    std::erase(number, separator);
    std::replace(number.begin(), number.end(), ',', '.');
  }
  if (number[0] == '+') {
    number.erase(0, 1);
  }
  const auto [end, error] =
      std::from_chars(number.data(), number.data() + number.size(), decimal.value);
  if (error != std::errc() || end != number.data() + number.size() ||
      !std::isfinite(decimal.value)) {
    return std::nullopt;
  }
  text->remove_prefix(length);
  return decimal;
}

bool HasDecimalMark(std::string_view line, char mark) {
  for (std::size_t at = 0; (at = line.find_first_of(kDigits, at)) != std::string_view::npos;) {
    if (at > 0 && (line[at - 1] == '-' || line[at - 1] == '+')) {
      --at;
    }
    std::string_view rest = line.substr(at);
    const auto number = TakeDecimal(&rest);
    if (number && number->mark == mark &&
        !(number->may_group && MayBeFrequency(line.substr(0, at)))) {
      return true;
    }
    at = number ? line.size() - rest.size() : at + std::max<std::size_t>(1, Mantissa(rest).size());
  }
  return false;
}

double FrequencyHz(const Decimal& number, bool decimal_commas, double min_hz, double max_hz) {
  const auto allowed = [&](double hz) { return hz >= min_hz && hz <= max_hz; };
  const double grouped = number.value * 1000;
  if (!number.may_group) {
    return number.value;
  }
  if (number.mark == '.') {
    return decimal_commas ? grouped : number.value;
  }
  if (decimal_commas || !allowed(grouped)) {
    return number.value;
  }
  if (allowed(number.value)) {
    throw std::invalid_argument("the frequency is ambiguous (" + Quoted(number.written) +
                                "; write it without the comma)");
  }
  return grouped;
}

std::string FormatFloat(float value) { return Shortest(value); }

std::string FormatDouble(double value) { return Shortest(value); }

}  // namespace kelda::tools
