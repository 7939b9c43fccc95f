#include "tools/equalizer/graphic_curve.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>

#include "tools/core/decimal.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

constexpr double kMinHz = 0.1;
constexpr double kMaxHz = 1e6;
constexpr double kMaxDb = 200;

GraphicCurve::Point ParsePoint(std::string_view text, bool decimal_commas) {
  std::string_view rest = text;
  const auto number = [&rest] {
    SkipBlanks(&rest);
    return TakeDecimal(&rest);
  };
  const std::optional<Decimal> freq = number();
  const std::optional<Decimal> gain = number();
  SkipBlanks(&rest);
  if (!freq || !gain || !rest.empty()) {
    throw std::invalid_argument("not a frequency and a gain: " + Quoted(text));
  }
  const double freq_hz = FrequencyHz(*freq, decimal_commas, kMinHz, kMaxHz);
  if (freq_hz < 0 || freq_hz > kMaxHz) {
    throw std::invalid_argument("frequency out of range (" + Quoted(text) + ", 0 to 1000000 Hz)");
  }
  if (std::abs(gain->value) > kMaxDb) {
    throw std::invalid_argument("gain out of range (" + Quoted(text) + ", -200 to 200 dB)");
  }
  return {std::max(freq_hz, kMinHz), gain->value};
}

}  // namespace

GraphicCurve GraphicCurve::Parse(std::string_view text, bool decimal_commas) {
  GraphicCurve curve;
  for (std::string_view rest = text; !rest.empty();) {
    std::string_view piece = rest.substr(0, rest.find(';'));
    rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
    SkipBlanks(&piece);
    if (!piece.empty()) {
      curve.points_.push_back(ParsePoint(piece, decimal_commas));
    }
  }
  if (curve.points_.empty()) {
    throw std::invalid_argument("GraphicEQ has no points");
  }
  std::stable_sort(curve.points_.begin(), curve.points_.end(),
                   [](const Point& a, const Point& b) { return a.freq_hz < b.freq_hz; });
  const auto twice = std::adjacent_find(curve.points_.begin(), curve.points_.end(),
                                        [](const Point& a, const Point& b) {
                                          return a.freq_hz == b.freq_hz && a.gain_db != b.gain_db;
                                        });
  if (twice != curve.points_.end()) {
    throw std::invalid_argument("two gains at one frequency (" + std::to_string(twice->freq_hz) +
                                " Hz)");
  }
  return curve;
}

double GraphicCurve::GainDb(double freq_hz) const {
  const auto above =
      std::upper_bound(points_.begin(), points_.end(), freq_hz,
                       [](double hz, const Point& point) { return hz < point.freq_hz; });
  if (above == points_.begin()) {
    return points_.front().gain_db;
  }
  if (above == points_.end()) {
    return points_.back().gain_db;
  }
  const Point& below = *std::prev(above);
  const double part = std::log(freq_hz / below.freq_hz) / std::log(above->freq_hz / below.freq_hz);
  return below.gain_db + part * (above->gain_db - below.gain_db);
}

}  // namespace kelda::tools
