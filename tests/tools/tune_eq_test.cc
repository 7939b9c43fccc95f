// `kelda tune eq`: from an equalizer's text to what a listener hears.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <filesystem>
#include <map>
#include <sstream>

#include "tests/laboratory/audio_files.h"
#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "tools/core/decibels.h"
#include "tools/equalizer/equalizer_text.h"
#include "tools/measure/frequency_response.h"

namespace kelda::tools {
namespace {

using upmix_lib::BandType;
using upmix_lib::EqualizerBand;

double ResponseDb(const std::vector<float>& left, double freq_hz) {
  return ToDb(std::abs(ResponseAt(left, freq_hz)));
}

double BellDb(float fc_hz, float gain_db, float q, double freq_hz) {
  upmix_lib::EqualizerTuning bell;
  bell.curves = {{{{BandType::kPeaking, fc_hz, gain_db, q}}, {}}};
  return EqualizerGainDb(bell, 0, freq_hz);
}

std::string Repeated(const char* line, int times) {
  std::string text;
  for (int i = 0; i < times; ++i) {
    text += line;
  }
  return text;
}

class TuneEq : public testing::Test {
 protected:
  ProgramResult Tune(const std::string& text) {
    folder_.Write("eq.txt", text);
    return RunKelda({"tune", "eq", eq_, "-o", folder_ / "personalized.ba"});
  }

  // The left channel's impulse response with a personalized HRTF and the upmix off.
  std::vector<float> Heard(const std::string& text) {
    const ProgramResult tuned = Tune(text);
    EXPECT_EQ(0, tuned.exit_code) << tuned.err;
    printed_ = tuned.out;
    folder_.Write("wired.ba.config", "personalized.ba\n");
    Audio audio;
    audio.samples.assign(std::size_t{2} * 40960, 0.0f);
    audio.samples[0] = 1.0f;
    WriteAudio(folder_ / "in.wav", audio);
    Succeed({"render", "-yq", folder_ / "in.wav", folder_ / "out.wav", "--mode", "off",
             "--wired-hrtf", "personalized", "--tuning", folder_ / "", "--log-level", "silent"});
    audio = ReadAudio(folder_ / "out.wav");
    std::vector<float> left;
    for (std::size_t i = 0; i < audio.samples.size(); i += 2) {
      left.push_back(audio.samples[i]);
    }
    return left;
  }

  EqualizerText Read(const std::string& text) {
    folder_.Write("eq.txt", text);
    return ReadEqualizerText(eq_);
  }

  // What is wrong with `text`, without the file's name.
  std::string Wrong(const std::string& text) {
    return Refusal(ExitCode::kInput, eq_, [&] { Read(text); });
  }

  const TemporaryFolder folder_;
  const std::string eq_ = folder_ / "eq.txt";
  std::string printed_;
};

TEST_F(TuneEq, FiltersAreHeardAsTheTextSays) {
  const std::vector<float> heard = Heard(
      "# an export\r\n"
      "Preamp: -7,1 dB\r\n"
      "Preamp: 0.5 dB\r\n"
      "Filter 1: ON PK Fc 62,5 Hz Gain 6.0 dB Q 0.70\r\n"
      "Filter: ON PK Fc 1.2 kHz Gain -4 dB Q 2\r\n"
      "Filter 7: OFF PK Fc 1000 Hz Gain 30 dB Q 1\r\n"
      "Filter 8: ON  None\r\n"
      "filter 9: on pk fc 9,500.5Hz gain +3dB q 4");
  double worst_db = 0;
  for (int step = 0; step < 140; ++step) {
    const double freq_hz = 20 * std::pow(1000, step / 140.0);
    const double expected_db = -6.6 + BellDb(62.5f, 6, 0.7f, freq_hz) +
                               BellDb(1200, -4, 2, freq_hz) + BellDb(9500.5f, 3, 4, freq_hz);
    worst_db = std::max(worst_db, std::abs(ResponseDb(heard, freq_hz) - expected_db));
  }
  EXPECT_LT(worst_db, 0.002);
  for (const char* line :
       {"3 bands, preamp -6.60 dB", "response peak   -0.6", "headroom left   0.6"}) {
    EXPECT_TRUE(Holds(printed_, line));
  }
}

TEST_F(TuneEq, GraphicEqualizerIsHeardAsTheTextSays) {
  // As AutoEq writes it: 127 whole frequencies, tenths of a decibel.
  const auto curve_db = [](double freq_hz) {
    return -5 + 4 * std::sin(std::log2(freq_hz / 20)) + BellDb(3000, -6, 3, freq_hz);
  };
  std::ostringstream text;
  std::map<double, double> points;
  for (int i = 0; i < 127; ++i) {
    const double freq_hz = std::round(20 * std::pow(1000, i / 126.0));
    points[freq_hz] = std::round(10 * curve_db(freq_hz)) / 10;
  }
  for (const auto& [freq_hz, gain_db] : points) {
    text << "; " << freq_hz << ' ' << gain_db;
  }
  const std::vector<float> heard = Heard("GraphicEQ: " + text.str());
  double worst_db = 0;
  for (auto high = std::next(points.begin()); high != points.end(); ++high) {
    const auto& [low_hz, low_db] = *std::prev(high);
    const auto& [high_hz, high_db] = *high;
    worst_db = std::max(worst_db, std::abs(ResponseDb(heard, low_hz) - low_db));
    const double middle_hz = std::sqrt(low_hz * high_hz);
    worst_db = std::max(worst_db, std::abs(ResponseDb(heard, middle_hz) - (low_db + high_db) / 2));
  }
  EXPECT_LT(worst_db, 0.1);
  EXPECT_TRUE(Holds(printed_, "minimum-phase FIR"));
  // Minimum phase: nothing is late.
  EXPECT_LT(std::max_element(heard.begin(), heard.end()) - heard.begin(), 4);
}

TEST_F(TuneEq, ReadsEveryKindOfFilter) {
  const std::pair<const char*, EqualizerBand> kCases[] = {
      {"PK Fc 100 Hz Gain -1.5 dB Q 0.7", {BandType::kPeaking, 100, -1.5f, 0.7f}},
      {"LSC Fc 105 Hz Gain 5.5 dB Q 0.71", {BandType::kLowShelf, 105, 5.5f, 0.71f}},
      {"LS Fc 105 Hz Gain 5.5 dB Q 0.71", {BandType::kLowShelf, 105, 5.5f, 0.71f}},
      {"HS Fc 10000 Hz Gain -2 dB Q 0.5", {BandType::kHighShelf, 10000, -2, 0.5f}},
      // A slope of 12 dB is a Q of 1 / sqrt(2) at any gain.
      {"HSC 12 dB Fc 5 kHz Gain 6 dB", {BandType::kHighShelf, 5000, 6, 0.70710678f}},
      // The corner: 10 ^ (8 / 80) below the centre.
      {"LS 12dB Fc 100 Hz Gain 8 dB", {BandType::kLowShelf, 125.892541f, 8, 0.70710678f}},
      {"LP Fc 20000 Hz", {BandType::kLowPass, 20000, 0, 0.70710678f}},
      {"HPQ Fc 20 Hz Q 1", {BandType::kHighPass, 20, 0, 1}},
      {"BP Fc 1000 Hz Q 5", {BandType::kBandPass, 1000, 0, 5}},
      {"NO Fc 50 Hz", {BandType::kNotch, 50, 0, 30}},
      // An octave at low frequencies: sqrt(2).
      {"PK Fc 20 Hz Gain 1 dB BW Oct 1", {BandType::kPeaking, 20, 1, 1.4142115f}},
      {"PK Fc 1,050.0 Hz Gain 1 dB Q 1", {BandType::kPeaking, 1050, 1, 1}},
      {"PK Fc 1,050 Hz Gain 1 dB Q 1", {BandType::kPeaking, 1050, 1, 1}},
      {"PK Fc 50,125 Hz Gain 1 dB Q 1", {BandType::kPeaking, 50.125f, 1, 1}},
      {"Modal Fc 58 Hz Gain -6.7 dB Q 10 T60 target 300 ms", {BandType::kPeaking, 58, -6.7f, 10}},
      // With decimal commas, wherever they are, a point groups the digits of a frequency.
      {"PK Fc 10.000 Hz Gain -1,5 dB Q 1.414", {BandType::kPeaking, 10000, -1.5f, 1.414f}},
      {"PK Fc 1.050,5 Hz Gain 1 dB Q 1", {BandType::kPeaking, 1050.5f, 1, 1}},
      {"PK Fc 1.250 kHz Gain 1,5 dB Q 1", {BandType::kPeaking, 1250, 1.5f, 1}},
      {"PK Fc 10.000 Hz Gain 1,500 dB Q 1", {BandType::kPeaking, 10000, 1.5f, 1}},
      {"PK Fc 10.000 Hz Gain 1 dB Q 1\nPreamp: -1,500 dB", {BandType::kPeaking, 10000, 1, 1}},
      {"PK Fc 10.000 Hz Gain 1 dB Q 1\nFilter: OFF PK Fc 50,5 Hz",
       {BandType::kPeaking, 10000, 1, 1}},
      {"PK Fc 10.000 Hz Gain 1.500 dB Q 0.010", {BandType::kPeaking, 10, 1.5f, 0.01f}}};
  for (const auto& [text, expected] : kCases) {
    const EqualizerText read = Read(std::string("Filter: ON ") + text);
    ASSERT_EQ(1u, read.bands.size()) << text;
    const EqualizerBand& band = read.bands[0];
    EXPECT_EQ(expected.type, band.type) << text;
    EXPECT_NEAR(expected.freq_hz, band.freq_hz, 1e-5 * expected.freq_hz) << text;
    EXPECT_FLOAT_EQ(expected.gain_db, band.gain_db) << text;
    EXPECT_NEAR(expected.q, band.q, 1e-5 * expected.q) << text;
  }
  EXPECT_EQ(2000, Read("GraphicEQ: 1.000 -1; 2.000 -1,5").graphic_curves[0].points()[1].freq_hz);
}

TEST_F(TuneEq, RefusesWithLineValueAndRange) {
  const std::pair<const char*, const char*> kCases[] = {
      {"Preamp: 0 dB\nChannel: L\n",
       ":2: Channel is refused, it changes what other lines mean ('Channel: L')"},
      {"Else:\nCONVOLUTION: a.wav\nDated: today",
       ":3: warning: unknown line 'Dated: today'\n"
       ":1: Else is refused, it changes what other lines mean ('Else:')\n"
       ":2: CONVOLUTION is refused, it changes the sound in a way that an equalizer file cannot "
       "('CONVOLUTION: a.wav')"},
      {"Filter: ON PK Fc 1e9 Hz Gain 1 dB Q 1",
       ":1: Fc is out of range (1e+09 Hz, 10 to 23000 Hz)"},
      {"\n\nFilter: ON PK Fc 100 Hz Gain -50 dB Q 1",
       ":3: Gain is out of range (-50 dB, -40 to 40 dB)"},
      {"Filter: ON PK Fc 100 Hz Gain 1 dB Q 0", ":1: Q is out of range (0, 0.01 to 100)"},
      {"Filter: ON PK Fc nan Hz Gain 1 dB Q 1", ":1: Fc has no number ('nan Hz Gain 1 dB Q 1')"},
      {"Filter: ON PK Fc 100 Hz Gain dB Q 1", ":1: Gain has no number ('dB Q 1')"},
      {"Filter: ON PK Fc 100 Hz Gain 1 dB", ":1: has neither Q nor BW Oct"},
      {"Filter: ON PK Gain 1 dB Q 1", ":1: has no Fc"},
      {"Filter: ON PK Fc 1 Hz Fc 2 Hz", ":1: Fc is given twice"},
      {"Filter: ON PK Fc 10,500 Hz Gain 1 dB Q 1",
       ":1: the frequency is ambiguous ('10,500'; write it without the comma)"},
      {"Filter: ON PK Fc 1.05,5 Hz Gain 1 dB Q 1",
       ":1: Fc has no number ('1.05,5 Hz Gain 1 dB Q 1')"},
      {"Filter 1: ONE PK", ":1: is neither ON nor OFF ('ONE PK')"},
      {"Preamp: loud", ":1: Preamp is not a number in dB ('loud')"},
      {"Preamp: 20 dB\nPreamp: 20 dB",
       "kelda: : the sum of the preamps is out of range (40.000000 dB, -60 to 24 dB)"},
      {"GraphicEQ: 20 0; 30", ":1: not a frequency and a gain: '30'"},
      {"GraphicEQ: 1,000 0; 2,000 1",
       ":1: the frequency is ambiguous ('1,000'; write it without the comma)"},
      {"GraphicEQ: 20 0; 20 0; 20 1", ":1: two gains at one frequency (20.000000 Hz)"},
      {"GraphicEQ: ;;", ":1: GraphicEQ has no points"},
      {"", "kelda: : it has no known Preamp, Filter or GraphicEQ line"},
      {"\xFF\xFEP", ": in UTF-16; save it as UTF-8"},
  };
  for (const auto& [text, message] : kCases) {
    EXPECT_EQ(message, Wrong(text)) << text;
  }
  EXPECT_EQ(":2: not a text file (it holds a NUL byte)", Wrong(std::string("a\nb\0", 4)));
  for (const char* key : {"Device", "Stage", "Include", "If", "ElseIf", "EndIf", "Eval", "Copy",
                          "Delay", "LoudnessCorrection", "VSTPlugin"}) {
    EXPECT_TRUE(Wrong(std::string("Preamp: 0 dB\n") + key + ": x")
                    .starts_with(std::string(":2: ") + key + " is refused, it changes "));
  }
}

TEST_F(TuneEq, WarnsAndGoesOn) {
  const std::pair<const char*, std::string> kCases[] = {
      {"Dated: today\nPreamp: -1,5 dB\nFilter 1: ON AP Fc 900 Hz Q 1.5\n",
       "kelda: " + eq_ +
           ": warning: it has decimal commas and decimal points; a frequency of '10.000' is read "
           "as ten thousand\n" +
           eq_ + ":1: warning: unknown line 'Dated: today'\n" + eq_ +
           ":3: warning: unknown filter 'AP Fc 900 Hz Q 1.5'\n"},
      {"Preamp: -2 dB\nFilter: ON PK Fc 100 Hz Gain 5.04 dB Q 1",
       "kelda: " + eq_ +
           ": warning: amplifies by up to 3.04 dB at 100 Hz, so that loud music may clip; a safe "
           "preamp is -5.1 dB\n"},
      {"Preamp: 0 dB\nFilter: ON LP1 Fc 80 Hz",
       eq_ + ":2: warning: unknown filter 'LP1 Fc 80 Hz'\n"},
      {"Filter: ON PK Fc 100 Hz Gain 0.19 dB Q 1", ""},
  };
  for (const auto& [text, warnings] : kCases) {
    const ProgramResult result = Tune(text);
    EXPECT_EQ(0, result.exit_code);
    EXPECT_EQ(warnings, result.err);
    printed_ = result.out;
  }
  EXPECT_TRUE(Holds(printed_, " 1 band, preamp"));

  folder_.Write("personalized.ba", "the old one");
  const ProgramResult result = Tune("Filter: ON PK Fc 5 Hz Gain 1 dB Q 1");
  EXPECT_EQ(3, result.exit_code);
  EXPECT_EQ(eq_ + ":1: Fc is out of range (5 Hz, 10 to 23000 Hz)\n", result.err);
  EXPECT_EQ("the old one", folder_.Read("personalized.ba"));
  EXPECT_EQ((std::set<std::string>{"eq.txt", "personalized.ba"}), folder_.Names());
}

TEST_F(TuneEq, LimitsWhatItReads) {
  EXPECT_TRUE(Wrong(Repeated("unknown\n", 1000000))
                  .ends_with("kelda: : and 999980 more\n"
                             "kelda: : it has no known Preamp, Filter or GraphicEQ line"));
  EXPECT_EQ(":1001: more filters than can be used (at most 1000)",
            Wrong(Repeated("Filter: ON PK Fc 100 Hz Gain 0 dB Q 1\n", 1001)));
  EXPECT_EQ(": too large (16777217 bytes, at most 16777216)",
            Wrong(std::string((std::size_t{16} << 20) + 1, ' ')));
  ExpectRefused(3, "kelda: /dev/zero: cannot be read: not a regular file\n",
                {"tune", "eq", "/dev/zero", "-o", folder_ / "x"});
}

// More filters than bands are kept, as one FIR.
TEST_F(TuneEq, TurnsManyFiltersIntoAnFir) {
  const auto heard = Heard(Repeated("Filter: ON PK Fc 1000 Hz Gain 0.1 dB Q 1\n", 80));
  for (const double freq_hz : {100.0, 500.0, 1000.0, 5000.0}) {
    EXPECT_NEAR(80 * BellDb(1000, 0.1f, 1, freq_hz), ResponseDb(heard, freq_hz), 0.06) << freq_hz;
  }
}

}  // namespace
}  // namespace kelda::tools
