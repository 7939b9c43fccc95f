// Decimal numbers as people and programs of many countries write them.
#ifndef KELDA_TOOLS_CORE_DECIMAL_H_
#define KELDA_TOOLS_CORE_DECIMAL_H_

#include <optional>
#include <string>
#include <string_view>

namespace kelda::tools {

struct Decimal {
  double value;              // the last point or comma is the decimal mark
  std::string_view written;  // in the text that it was taken from
  char mark;                 // '.' or ','; 0 if there is none
  bool may_group;            // "10.500", "10,500": the mark may also group digits
};

// Removes the number at the front of `*text` and returns it: a sign, digits, a decimal point or
// comma, an exponent. Returns nothing, and leaves `*text` as it is, if there is no number or it is
// not finite. "1,050.0" and "1.050,0" are 1050: the last of the two marks is decimal, the other
// groups digits.
std::optional<Decimal> TakeDecimal(std::string_view* text);

// Whether `mark`, a point or a comma, is surely the decimal mark of a number in this line of
// an equalizer text. Only a frequency is ever in the thousands: in "Gain 1,500" the comma is
// decimal, in "Fc 1,500" it may group digits.
bool HasDecimalMark(std::string_view line, char mark);

// `number` as a frequency in Hz. In a text with decimal commas, a point that may group digits
// groups them. In other texts, a comma that may group digits is read in the way that gives a
// frequency from `min_hz` to `max_hz`; throws std::invalid_argument if both ways do.
double FrequencyHz(const Decimal& number, bool decimal_commas, double min_hz, double max_hz);

// The shortest decimal that reads back as `value`.
std::string FormatFloat(float value);
std::string FormatDouble(double value);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_DECIMAL_H_
