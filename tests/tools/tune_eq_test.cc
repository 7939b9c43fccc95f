// `kelda tune eq`: from an equalizer's text to what a listener hears.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <filesystem>
#include <numbers>

#include "tests/tools/audio_files.h"
#include "tests/tools/program.h"
#include "tests/tools/refusal.h"
#include "tools/equalizer_text.h"

namespace kelda::tools {
namespace {

using upmix_lib::BandType;
using upmix_lib::EqualizerBand;

constexpr double kRateHz = 48000;

double ResponseDb(const std::vector<float>& left, double freq_hz) {
  std::complex<double> sum = 0;
  for (size_t n = 0; n < left.size(); ++n) {
    const double angle = -2 * std::numbers::pi * freq_hz / kRateHz * static_cast<double>(n);
    sum += static_cast<double>(left[n]) * std::polar(1.0, angle);
  }
  return 20 * std::log10(std::abs(sum));
}

// A bell of the "Cookbook formulae", evaluated on the unit circle.
double BellDb(double fc_hz, double gain_db, double q, double freq_hz) {
  const double a = std::pow(10, gain_db / 40);
  const double w0 = 2 * std::numbers::pi * fc_hz / kRateHz;
  const double alpha = std::sin(w0) / (2 * q);
  const auto z = std::polar(1.0, -2 * std::numbers::pi * freq_hz / kRateHz);
  const auto at = [&](double b0, double b1, double b2) { return b0 + b1 * z + b2 * z * z; };
  return 20 * std::log10(std::abs(at(1 + alpha * a, -2 * std::cos(w0), 1 - alpha * a) /
                                  at(1 + alpha / a, -2 * std::cos(w0), 1 - alpha / a)));
}

class TuneEq : public testing::Test {
 protected:
  ProgramResult Tune(const std::string& text) {
    folder_.Write("eq.txt", text);
    return RunKelda({"tune", "eq", folder_ / "eq.txt", "-o", folder_ / "personalized.ba"});
  }

  // The left channel's impulse response with a personalized HRTF and the upmix off.
  std::vector<float> Heard(const std::string& text) {
    const ProgramResult tuned = Tune(text);
    EXPECT_EQ(0, tuned.exit_code) << tuned.err;
    printed_ = tuned.out;
    folder_.Write("wired.ba.config", "personalized.ba\n");
    Audio impulse;
    impulse.samples.assign(size_t{2} * 40960, 0.0F);
    impulse.samples[0] = 1.0F;
    WriteAudio(folder_ / "in.wav", impulse);
    const ProgramResult rendered = RunKelda({"render", folder_ / "in.wav", folder_ / "out.wav",
                                             "--mode", "off", "--wired-hrtf", "personalized",
                                             "--tuning", folder_ / "", "--log-level", "silent"});
    EXPECT_EQ(0, rendered.exit_code) << rendered.err;
    const Audio output = ReadAudio(folder_ / "out.wav");
    std::vector<float> left;
    for (size_t i = 0; i < output.samples.size(); i += 2) left.push_back(output.samples[i]);
    return left;
  }

  // What is wrong with `text`, without the file's name.
  std::string Wrong(const std::string& text) {
    return Refusal(ExitCode::kInput, folder_ / "eq.txt", [&] { Read(text); });
  }

  EqualizerText Read(const std::string& text) {
    folder_.Write("eq.txt", text);
    return ReadEqualizerText(folder_ / "eq.txt");
  }

  TemporaryFolder folder_;
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
    const double expected_db = -6.6 + BellDb(62.5, 6, 0.7, freq_hz) + BellDb(1200, -4, 2, freq_hz) +
                               BellDb(9500.5, 3, 4, freq_hz);
    worst_db = std::max(worst_db, std::abs(ResponseDb(heard, freq_hz) - expected_db));
  }
  EXPECT_LT(worst_db, 0.002);
  EXPECT_NE(std::string::npos, printed_.find("3 bands, preamp -6.60 dB")) << printed_;
  EXPECT_NE(std::string::npos, printed_.find("response peak   -0.6")) << printed_;
  EXPECT_NE(std::string::npos, printed_.find("headroom left   0.6")) << printed_;
}

TEST_F(TuneEq, GraphicEqualizerIsHeardAsTheTextSays) {
  // As AutoEq writes it: 127 whole frequencies, tenths of a decibel.
  const auto curve_db = [](double freq_hz) {
    return -5 + 4 * std::sin(std::log2(freq_hz / 20)) + BellDb(3000, -6, 3, freq_hz);
  };
  std::string text = "GraphicEQ: ";
  std::vector<std::pair<double, double>> points;
  for (int i = 0; i < 127; ++i) {
    const double freq_hz = std::round(20 * std::pow(1000, i / 126.0));
    if (!points.empty() && points.back().first == freq_hz) continue;
    points.emplace_back(freq_hz, std::round(10 * curve_db(freq_hz)) / 10);
    char point[64];
    std::snprintf(point, sizeof(point), "%s%.0f %.1f", points.size() > 1 ? "; " : "",
                  points.back().first, points.back().second);
    text += point;
  }
  const std::vector<float> heard = Heard(text);
  double worst_db = 0;
  for (size_t i = 1; i < points.size(); ++i) {
    const auto& [low_hz, low_db] = points[i - 1];
    const auto& [high_hz, high_db] = points[i];
    worst_db = std::max(worst_db, std::abs(ResponseDb(heard, low_hz) - low_db));
    const double middle_hz = std::sqrt(low_hz * high_hz);
    worst_db = std::max(worst_db, std::abs(ResponseDb(heard, middle_hz) - (low_db + high_db) / 2));
  }
  EXPECT_LT(worst_db, 0.1);
  EXPECT_NE(std::string::npos, printed_.find("minimum-phase FIR")) << printed_;
  // Minimum phase: nothing is late.
  EXPECT_LT(std::max_element(heard.begin(), heard.end()) - heard.begin(), 4);
}

TEST_F(TuneEq, ReadsEveryKindOfFilter) {
  const struct {
    const char* text;
    EqualizerBand band;
  } kCases[] = {
      {"PK Fc 100 Hz Gain -1.5 dB Q 0.7", {BandType::kPeaking, 100, -1.5F, 0.7F}},
      {"LSC Fc 105 Hz Gain 5.5 dB Q 0.71", {BandType::kLowShelf, 105, 5.5F, 0.71F}},
      {"LS Fc 105 Hz Gain 5.5 dB Q 0.71", {BandType::kLowShelf, 105, 5.5F, 0.71F}},
      {"HS Fc 10000 Hz Gain -2 dB Q 0.5", {BandType::kHighShelf, 10000, -2, 0.5F}},
      // A slope of 12 dB is a Q of 1 / sqrt(2) at any gain.
      {"HSC 12 dB Fc 5 kHz Gain 6 dB", {BandType::kHighShelf, 5000, 6, 0.70710678F}},
      // The corner: 10 ^ (8 / 80) below the centre.
      {"LS 12dB Fc 100 Hz Gain 8 dB", {BandType::kLowShelf, 125.892541F, 8, 0.70710678F}},
      {"LP Fc 20000 Hz", {BandType::kLowPass, 20000, 0, 0.70710678F}},
      {"HPQ Fc 20 Hz Q 1", {BandType::kHighPass, 20, 0, 1}},
      {"BP Fc 1000 Hz Q 5", {BandType::kBandPass, 1000, 0, 5}},
      {"NO Fc 50 Hz", {BandType::kNotch, 50, 0, 30}},
      // An octave at low frequencies: sqrt(2).
      {"PK Fc 20 Hz Gain 1 dB BW Oct 1", {BandType::kPeaking, 20, 1, 1.4142115F}},
      {"PK Fc 1,050.0 Hz Gain 1 dB Q 1", {BandType::kPeaking, 1050, 1, 1}},
      {"PK Fc 1,050 Hz Gain 1 dB Q 1", {BandType::kPeaking, 1050, 1, 1}},
      {"PK Fc 50,125 Hz Gain 1 dB Q 1", {BandType::kPeaking, 50.125F, 1, 1}},
  };
  for (const auto& [text, expected] : kCases) {
    const EqualizerText read = Read(std::string("Filter: ON ") + text);
    ASSERT_EQ(1U, read.bands.size()) << text;
    const EqualizerBand& band = read.bands[0];
    EXPECT_EQ(expected.type, band.type) << text;
    EXPECT_NEAR(expected.freq_hz, band.freq_hz, 1e-5 * expected.freq_hz) << text;
    EXPECT_FLOAT_EQ(expected.gain_db, band.gain_db) << text;
    EXPECT_NEAR(expected.q, band.q, 1e-5 * expected.q) << text;
  }
}

TEST_F(TuneEq, RefusesWithLineValueAndRange) {
  const std::pair<const char*, const char*> kCases[] = {
      {"Preamp: 0 dB\nChannel: L\n",
       ":2: refused, it changes what other lines mean ('Channel: L')"},
      {"Device: a\nInclude: b",
       ":1: refused, it changes what other lines mean ('Device: a')\n"
       ":2: refused, it changes what other lines mean ('Include: b')"},
      {"Filter: ON PK Fc 1e9 Hz Gain 1 dB Q 1",
       ":1: Fc is out of range (1e+09 Hz, 10 to 23000 Hz)"},
      {"\n\nFilter: ON PK Fc 100 Hz Gain -50 dB Q 1",
       ":3: Gain is out of range (-50 dB, -40 to 40 dB)"},
      {"Filter: ON PK Fc 100 Hz Gain 1 dB Q 0", ":1: Q is out of range (0, 0.05 to 100)"},
      {"Filter: ON PK Fc nan Hz Gain 1 dB Q 1", ":1: Fc has no number ('nan Hz Gain 1 dB Q 1')"},
      {"Filter: ON PK Fc 100 Hz Gain dB Q 1", ":1: Gain has no number ('dB Q 1')"},
      {"Filter: ON PK Fc 100 Hz Gain 1 dB", ":1: has neither Q nor BW Oct"},
      {"Filter: ON PK Gain 1 dB Q 1", ":1: has no Fc"},
      {"Filter: ON PK Fc 1 Hz Fc 2 Hz", ":1: Fc is given twice"},
      {"Filter: ON PK Fc 10,500 Hz Gain 1 dB Q 1",
       ":1: Fc is ambiguous ('10,500'; write it without the comma)"},
      {"Filter 1: ONE PK", ":1: is neither ON nor OFF ('ONE PK')"},
      {"Preamp: loud", ":1: Preamp is not a number in dB ('loud')"},
      {"Preamp: 20 dB\nPreamp: 20 dB",
       ": the preamps' sum is out of range (40.000000 dB, -60 to 24 dB)"},
      {"GraphicEQ: 20 0; 30", ":1: not a frequency and a gain: '30'"},
      {"GraphicEQ: 20 0; 20 1", ":1: two gains at one frequency (20.000000 Hz)"},
      {"GraphicEQ: ;;", ":1: GraphicEQ without a point"},
      {"# nothing\n", ": no Preamp, Filter or GraphicEQ line that is known"},
      {"", ": no Preamp, Filter or GraphicEQ line that is known"},
      {"\xFF\xFEP", ": in UTF-16; save it as UTF-8"},
  };
  for (const auto& [text, message] : kCases) EXPECT_EQ(message, Wrong(text)) << text;
  EXPECT_EQ(":2: not a text file (it holds a NUL byte)", Wrong(std::string("a\nb\0", 4)));
}

TEST_F(TuneEq, NamesUnknownLinesAndGoesOn) {
  const ProgramResult result =
      Tune("Dated: today\nPreamp: -1 dB\nFilter 1: ON AP Fc 900 Hz Q 1\nCopy: L=R\n");
  EXPECT_EQ(0, result.exit_code);
  const std::string name = folder_ / "eq.txt";
  EXPECT_EQ(name + ":1: warning: unknown line 'Dated: today'\n" + name +
                ":3: warning: unknown filter 'AP Fc 900 Hz Q 1'\n" + name +
                ":4: warning: unknown line 'Copy: L=R'\n",
            result.err);
}

TEST_F(TuneEq, WritesNothingOnFailure) {
  folder_.Write("personalized.ba", "the old one");
  const ProgramResult result = Tune("Filter: ON PK Fc 5 Hz Gain 1 dB Q 1");
  EXPECT_EQ(3, result.exit_code);
  EXPECT_EQ(folder_ / "eq.txt" + ":1: Fc is out of range (5 Hz, 10 to 23000 Hz)\n", result.err);
  EXPECT_EQ("the old one", folder_.Read("personalized.ba"));
  EXPECT_EQ((std::set<std::string>{"eq.txt", "personalized.ba"}), folder_.Names());
}

TEST_F(TuneEq, WarnsOfClipping) {
  const ProgramResult result = Tune("Filter: ON PK Fc 100 Hz Gain 3 dB Q 1");
  EXPECT_EQ(0, result.exit_code);
  EXPECT_EQ(
      folder_ / "eq.txt" +
          ": warning: amplifies by up to 3.00 dB at 100 Hz, so that loud programme may clip\n",
      result.err);
}

TEST_F(TuneEq, LimitsWhatItReads) {
  std::string lines;
  for (int i = 0; i < 1000000; ++i) lines += "unknown\n";
  EXPECT_EQ(": no Preamp, Filter or GraphicEQ line that is known", Wrong(lines));
  std::string filters;
  for (int i = 0; i < 1001; ++i) filters += "Filter: ON PK Fc 100 Hz Gain 0 dB Q 1\n";
  EXPECT_EQ(":1001: more filters than can be used (at most 1000)", Wrong(filters));
  EXPECT_EQ(": too large (16777217 bytes, at most 16777216)",
            Wrong(std::string((size_t{16} << 20) + 1, ' ')));
  const ProgramResult device = RunKelda({"tune", "eq", "/dev/zero", "-o", folder_ / "x"});
  EXPECT_EQ(3, device.exit_code);
  EXPECT_EQ("/dev/zero: not a regular file\n", device.err);
}

// More filters than bands are kept, as one FIR.
TEST_F(TuneEq, TurnsManyFiltersIntoAnFir) {
  std::string text;
  for (int i = 0; i < 80; ++i) text += "Filter: ON PK Fc 1000 Hz Gain 0.1 dB Q 1\n";
  const std::vector<float> heard = Heard(text);
  for (const double freq_hz : {100.0, 500.0, 1000.0, 5000.0}) {
    EXPECT_NEAR(80 * BellDb(1000, 0.1, 1, freq_hz), ResponseDb(heard, freq_hz), 0.06) << freq_hz;
  }
}

}  // namespace
}  // namespace kelda::tools
