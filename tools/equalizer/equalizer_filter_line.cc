#include "tools/equalizer/equalizer_filter_line.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

#include "tools/core/decimal.h"
#include "tools/core/text_file.h"
#include "upmix-lib/base/audio_format.h"

namespace kelda::tools {
namespace {

using upmix_lib::BandType;
using upmix_lib::EqualizerBand;

constexpr double kTwelveDb = 12.0;     // per octave: the steepest slope of a shelf
constexpr double kDefaultSlope = 0.9;  // as a share of the steepest, in Equalizer APO
constexpr double kButterworthQ = 1 / std::numbers::sqrt2;

struct FilterKind {
  std::string_view name;
  BandType type;
  double default_q;     // 0: no default
  bool corner = false;  // of a shelf: Fc is its corner unless a Q is given
};

constexpr FilterKind kKinds[] = {
    {"PK", BandType::kPeaking, 0},
    {"PEQ", BandType::kPeaking, 0},
    {"MODAL", BandType::kPeaking, 0},
    {"LS", BandType::kLowShelf, 0, true},
    {"LSC", BandType::kLowShelf, 0},
    {"HS", BandType::kHighShelf, 0, true},
    {"HSC", BandType::kHighShelf, 0},
    {"LP", BandType::kLowPass, kButterworthQ},
    {"LPQ", BandType::kLowPass, kButterworthQ},
    {"HP", BandType::kHighPass, kButterworthQ},
    {"HPQ", BandType::kHighPass, kButterworthQ},
    {"BP", BandType::kBandPass, kButterworthQ},
    {"NO", BandType::kNotch, 30},
};

// Takes the words and numbers of a filter one by one.
class Words {
 public:
  explicit Words(std::string_view text) : rest_(text) { SkipBlanks(&rest_); }

  bool empty() const { return rest_.empty(); }
  std::string_view rest() const { return rest_; }

  // Takes the letters at the front and returns them in capitals; empty if there are none.
  std::string TakeWord() {
    const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    std::string word;
    while (!rest_.empty() && letter(rest_[0])) {
      word += static_cast<char>(rest_[0] & ~0x20);
      rest_.remove_prefix(1);
    }
    SkipBlanks(&rest_);
    return word;
  }

  std::optional<Decimal> TakeNumberIfAny() {
    const std::optional<Decimal> number = TakeDecimal(&rest_);
    if (number) {
      SkipBlanks(&rest_);
    }
    return number;
  }

  // Throws unless a number follows.
  Decimal TakeNumber(const std::string& of) {
    const std::optional<Decimal> number = TakeNumberIfAny();
    if (!number) {
      throw std::invalid_argument(of + " has no number (" + Quoted(rest_) + ")");
    }
    return *number;
  }

  // Takes the word if it comes next; returns whether it did.
  bool Take(std::string_view word) {
    Words ahead = *this;
    if (ahead.TakeWord() != word) {
      return false;
    }
    *this = ahead;
    return true;
  }

 private:
  std::string_view rest_;
};

// The values of a filter as its line gives them.
struct Statement {
  std::optional<double> fc_hz, gain_db, q, bandwidth_octaves, slope_db;
};

std::string Range(double min, double max, const char* unit) {
  return FormatFloat(static_cast<float>(min)) + " to " + FormatFloat(static_cast<float>(max)) +
         unit;
}

void Check(const char* what, double value, double min, double max, const char* unit) {
  if (!(value >= min && value <= max)) {
    throw std::invalid_argument(std::string(what) + " is out of range (" +
                                FormatFloat(static_cast<float>(value)) + unit + ", " +
                                Range(min, max, unit) + ")");
  }
}

double TakeFrequency(Words* words, bool decimal_commas) {
  const Decimal number = words->TakeNumber("Fc");
  if (words->Take("KHZ")) {
    return number.value * 1000;  // its mark is always decimal
  }
  words->Take("HZ");
  return FrequencyHz(number, decimal_commas, upmix_lib::kBandMinHz, upmix_lib::kBandMaxHz);
}

Statement ParseStatement(Words words, bool decimal_commas) {
  Statement statement;
  const auto set = [](std::optional<double>* part, const char* name, double value) {
    if (*part) {
      throw std::invalid_argument(std::string(name) + " is given twice");
    }
    *part = value;
  };
  if (const auto slope = words.TakeNumberIfAny()) {
    statement.slope_db = slope->value;
    words.Take("DB");
  }
  while (!words.empty()) {
    if (words.Take("FC")) {
      set(&statement.fc_hz, "Fc", TakeFrequency(&words, decimal_commas));
    } else if (words.Take("GAIN")) {
      set(&statement.gain_db, "Gain", words.TakeNumber("Gain").value);
      words.Take("DB");
    } else if (words.Take("Q")) {
      set(&statement.q, "Q", words.TakeNumber("Q").value);
    } else if (words.Take("BW")) {
      words.Take("OCT");
      set(&statement.bandwidth_octaves, "BW Oct", words.TakeNumber("BW Oct").value);
    } else if (words.Take("T")) {
      words.TakeNumber("T60");  // the decay that a modal filter's Q was chosen for
      words.Take("TARGET");
      words.TakeNumber("T60 target");
      words.Take("MS");
    } else {
      throw std::invalid_argument("cannot be read from " + Quoted(words.rest()) + " on");
    }
  }
  return statement;
}

// The Q of a bandwidth that is measured between the points of half the gain in dB, and below the Q
// of a shelf whose slope is a share of the steepest (Bristow-Johnson, "Cookbook formulae").
double QOfBandwidth(double octaves, double fc_hz) {
  const double omega = 2 * std::numbers::pi * fc_hz / upmix_lib::kSampleRateHz;
  return 1 / (2 * std::sinh(std::numbers::ln2 / 2 * octaves * omega / std::sin(omega)));
}

double QOfSlope(double slope, double gain_db) {
  const double a = std::pow(10, gain_db / 40);
  return 1 / std::sqrt((a + 1 / a) * (1 / slope - 1) + 2);
}

EqualizerBand MakeBand(const FilterKind& kind, const Statement& statement) {
  const bool shelf = kind.type == BandType::kLowShelf || kind.type == BandType::kHighShelf;
  const bool has_gain = shelf || kind.type == BandType::kPeaking;
  if (!statement.fc_hz) {
    throw std::invalid_argument("has no Fc");
  }
  if (has_gain && !statement.gain_db) {
    throw std::invalid_argument("has no Gain");
  }
  if (statement.q && statement.bandwidth_octaves) {
    throw std::invalid_argument("has both Q and BW Oct");
  }
  if (statement.slope_db && (!shelf || statement.q)) {
    throw std::invalid_argument("a slope is for shelves without a Q");
  }
  double fc_hz = *statement.fc_hz;
  const double gain_db = has_gain ? *statement.gain_db : 0;
  Check("Fc", fc_hz, upmix_lib::kBandMinHz, upmix_lib::kBandMaxHz, " Hz");
  Check("Gain", gain_db, upmix_lib::kBandMinDb, upmix_lib::kBandMaxDb, " dB");

  double q = kind.default_q;
  if (statement.q) {
    q = *statement.q;
  } else if (statement.bandwidth_octaves) {
    Check("BW Oct", *statement.bandwidth_octaves, 0.001, 20, "");
    q = QOfBandwidth(*statement.bandwidth_octaves, fc_hz);
  } else if (shelf) {
    const double slope_db = statement.slope_db.value_or(kDefaultSlope * kTwelveDb);
    Check("slope", slope_db, 0.1, kTwelveDb, " dB");
    q = QOfSlope(slope_db / kTwelveDb, gain_db);
    if (kind.corner) {
      const double octaves_up = kind.type == BandType::kLowShelf ? 1 : -1;
      fc_hz *= std::pow(10, octaves_up * std::abs(gain_db) / 80 / (slope_db / kTwelveDb));
      Check("the centre of the shelf", fc_hz, upmix_lib::kBandMinHz, upmix_lib::kBandMaxHz, " Hz");
    }
  } else if (q == 0) {
    throw std::invalid_argument("has neither Q nor BW Oct");
  }
  Check("Q", q, upmix_lib::kBandMinQ, upmix_lib::kBandMaxQ, "");
  return {kind.type, static_cast<float>(fc_hz), static_cast<float>(gain_db), static_cast<float>(q)};
}

}  // namespace

std::optional<EqualizerBand> ParseFilter(std::string_view text, bool decimal_commas) {
  Words words(text);
  const std::string state = words.TakeWord();
  if (state == "OFF") {
    return std::nullopt;
  }
  if (state != "ON") {
    throw std::invalid_argument("is neither ON nor OFF (" + Quoted(text) + ")");
  }
  const std::string_view from_kind = words.rest();
  const std::string name = words.TakeWord();
  if (name == "NONE") {
    return std::nullopt;
  }
  const auto* const kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                        [&](const FilterKind& k) { return k.name == name; });
  // "LP1" of Room EQ Wizard is another filter, of the first order.
  const bool goes_on = from_kind.size() > name.size() && from_kind[name.size()] >= '0' &&
                       from_kind[name.size()] <= '9';
  if (kind == std::end(kKinds) || goes_on) {
    throw UnknownFilter("unknown filter " + Quoted(from_kind));
  }
  return MakeBand(*kind, ParseStatement(words, decimal_commas));
}

}  // namespace kelda::tools
