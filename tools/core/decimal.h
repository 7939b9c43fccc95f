// Decimal numbers as people and programs of many countries write them.
#ifndef KELDA_TOOLS_DECIMAL_H_
#define KELDA_TOOLS_DECIMAL_H_

#include <optional>
#include <string_view>

namespace kelda::tools {

// Takes the number at the front of `text` off it: a sign, digits, a decimal point or
// comma, an exponent. Nothing, and `text` unchanged, if there is none or it is not finite.
// "1,050.0" is 1050: a comma before a point groups digits.
std::optional<double> TakeDecimal(std::string_view* text);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_DECIMAL_H_
