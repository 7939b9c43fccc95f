// What the equalizer does to sound.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <random>

#include "tests/upmix-lib/equalizer_instance.h"
#include "upmix-lib/biquad_design.h"

namespace kelda::upmix_lib {
namespace {

using Complex = std::complex<double>;
constexpr double kPi = std::numbers::pi;

// The band's analog prototype at s, which is 1j at freq_hz.
Complex Prototype(const EqualizerBand& band, Complex s) {
  const double q = band.q;
  const double a = std::pow(10.0, band.gain_db / 40.0);
  const double root = std::sqrt(a);
  const Complex resonance = s * s + s / q + 1.0;
  switch (band.type) {
    case BandType::kPeaking:
      return (s * s + s * a / q + 1.0) / (s * s + s / (a * q) + 1.0);
    case BandType::kLowShelf:
      return a * (s * s + root / q * s + a) / (a * s * s + root / q * s + 1.0);
    case BandType::kHighShelf:
      return a * (a * s * s + root / q * s + 1.0) / (s * s + root / q * s + a);
    case BandType::kLowPass:
      return 1.0 / resonance;
    case BandType::kHighPass:
      return s * s / resonance;
    case BandType::kBandPass:
      return s / q / resonance;
    case BandType::kNotch:
      return (s * s + 1.0) / resonance;
  }
  return 0;
}

// The prototype at the frequency that the bilinear transform maps to freq_hz.
double AnalyticDb(const EqualizerBand& band, double freq_hz) {
  const double warped =
      std::tan(kPi * freq_hz / kSampleRateHz) / std::tan(kPi * band.freq_hz / kSampleRateHz);
  return 20 * std::log10(std::abs(Prototype(band, Complex(0, warped))));
}

double DftDb(std::span<const float> signal, double freq_hz) {
  const Complex turn = std::polar(1.0, -2 * kPi * freq_hz / kSampleRateHz);
  Complex sum = 0;
  for (size_t i = signal.size(); i-- > 0;) {
    sum = sum * turn + static_cast<double>(signal[i]);
  }
  return 20 * std::log10(std::abs(sum));
}

std::vector<double> TestFrequencies(int count) {
  std::vector<double> freqs_hz(static_cast<size_t>(count));
  for (size_t i = 0; i < freqs_hz.size(); ++i) {
    freqs_hz[i] = 20 * std::pow(1000.0, static_cast<double>(i) / (count - 1));
  }
  return freqs_hz;
}

std::vector<EqualizerBand> RandomBands(size_t count, std::mt19937& random) {
  const auto between = [&](double low, double high) {
    return std::uniform_real_distribution<>(low, high)(random);
  };
  std::vector<EqualizerBand> bands;
  for (size_t i = 0; i < count; ++i) {
    // Of the types that remove whole ranges, few: 64 of them leave nothing to measure.
    const auto type = static_cast<BandType>(i % 16 == 15 ? 3 + (i / 16) % 4 : i % 3);
    const double freq_hz = type == BandType::kLowPass    ? between(10000, 20000)
                           : type == BandType::kHighPass ? between(10, 30)
                           : type == BandType::kBandPass ? between(500, 1000)
                                                         : std::pow(10.0, between(1.0, 4.36));
    bands.push_back({type, static_cast<float>(freq_hz), static_cast<float>(between(-6, 6)),
                     static_cast<float>(type == BandType::kBandPass ? 0.1 : between(0.3, 8))});
  }
  return bands;
}

TEST(EqualizerResponse, DesignIsThePrototypeAtEveryExtreme) {
  for (uint32_t type = 0; type < kBandTypes; ++type) {
    for (const float freq_hz : {kBandMinHz, 20.0f, 1000.0f, 20000.0f, kBandMaxHz}) {
      for (const float gain_db : {kBandMinDb, -6.0f, 0.0f, kBandMaxDb}) {
        for (const float q : {kBandMinQ, 0.707f, kBandMaxQ}) {
          const EqualizerBand band = {static_cast<BandType>(type), freq_hz, gain_db, q};
          const Biquad biquad = DesignBiquad(band);
          EXPECT_LT(std::fabs(biquad.a2), 1) << "unstable";
          EXPECT_LT(std::fabs(biquad.a1), 1 + biquad.a2) << "unstable";
          for (const double at_hz : TestFrequencies(20)) {
            const double expected_db = AnalyticDb(band, at_hz);
            if (expected_db > -100) {
              ASSERT_NEAR(ResponseDb(biquad, at_hz), expected_db, 1e-3)
                  << "type " << type << ' ' << freq_hz << " Hz " << gain_db << " dB Q " << q
                  << " at " << at_hz;
            }
          }
        }
      }
    }
  }
}

TEST(EqualizerResponse, IsTheAnalyticOneAtAnyNumberOfBands) {
  constexpr uint32_t kSeed = 20240611;
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  for (const size_t count : {0u, 1u, 2u, 3u, 5u, 10u, 11u, 13u, 33u, 64u}) {
    EqualizerTuning tuning;
    tuning.preamp_db = -3.5f;
    tuning.curves = {{RandomBands(count, random), {}}, {RandomBands(count, random), {}}};
    std::vector<float> left(128 * kBlockFrames), right(left.size());
    left[0] = right[0] = 1;
    EqualizerInstance(tuning).Process(left, right);
    double worst_db = 0;
    for (const double freq_hz : TestFrequencies(31)) {
      for (const size_t channel : {0u, 1u}) {
        double expected_db = tuning.preamp_db;
        for (const EqualizerBand& band : tuning.curves[channel].bands) {
          expected_db += AnalyticDb(band, freq_hz);
        }
        const double measured_db = DftDb(channel == 0 ? left : right, freq_hz);
        worst_db = std::max(worst_db, std::fabs(measured_db - expected_db));
      }
    }
    EXPECT_LT(worst_db, 0.01) << count << " bands";
  }
}

// One section in double, as the textbook has it.
void RunDirectForm(const Biquad& biquad, std::vector<double>& signal) {
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  for (double& sample : signal) {
    const double x0 = sample;
    sample = biquad.b0 * x0 + biquad.b1 * x1 + biquad.b2 * x2 - biquad.a1 * y1 - biquad.a2 * y2;
    x2 = x1;
    x1 = x0;
    y2 = y1;
    y1 = sample;
  }
}

std::vector<float> Noise(size_t count, std::mt19937& random) {
  std::uniform_real_distribution<float> amplitude(-1, 1);
  std::vector<float> noise(count);
  std::generate(noise.begin(), noise.end(), [&] { return amplitude(random); });
  return noise;
}

double Difference(std::span<const float> got, std::span<const double> expected) {
  double worst = 0;
  for (size_t i = 0; i < got.size(); ++i) {
    worst = std::max(worst, std::fabs(static_cast<double>(got[i]) - expected[i]));
  }
  return worst;
}

// Sample for sample, so that a latency, a lost frame at a block's border or a channel
// taken for the other shows.
TEST(EqualizerResponse, BandsEqualTheTextbookSampleForSample) {
  constexpr uint32_t kSeed = 7;
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  for (const size_t count : {1u, 2u, 3u, 10u, 11u, 17u, 64u}) {
    EqualizerTuning tuning;
    tuning.curves = {{RandomBands(count, random), {}}, {RandomBands(count, random), {}}};
    std::vector<float> planes[2] = {Noise(5 * kBlockFrames, random),
                                    Noise(5 * kBlockFrames, random)};
    std::vector<double> expected[2];
    for (const size_t channel : {0u, 1u}) {
      expected[channel].assign(planes[channel].begin(), planes[channel].end());
      for (const EqualizerBand& band : tuning.curves[channel].bands) {
        RunDirectForm(DesignBiquad(band), expected[channel]);
      }
    }
    EqualizerInstance(tuning).Process(planes[0], planes[1]);
    for (const size_t channel : {0u, 1u}) {
      double peak = 0;
      for (const double sample : expected[channel]) {
        peak = std::max(peak, std::fabs(sample));
      }
      EXPECT_LT(Difference(planes[channel], expected[channel]) / peak, 1e-7) << count << " bands";
    }
  }
}

TEST(EqualizerResponse, FirEqualsConvolutionSampleForSample) {
  constexpr uint32_t kSeed = 11;
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  for (const size_t taps : {1u, 2u, 31u, 32u, 255u, 1024u, 1025u, 3000u, kMaxEqualizerTaps}) {
    EqualizerTuning tuning;
    tuning.form = EqualizerForm::kFir;
    tuning.preamp_db = -6;
    tuning.curves = {{{}, Noise(taps, random)}, {{}, Noise(taps, random)}};
    std::vector<float> planes[2] = {Noise(10 * kBlockFrames, random),
                                    Noise(10 * kBlockFrames, random)};
    std::vector<double> expected[2];
    double energy = 0;
    for (const size_t channel : {0u, 1u}) {
      const std::vector<float>& curve = tuning.curves[channel].taps;
      for (size_t n = 0; n < planes[channel].size(); ++n) {
        double sum = 0;
        for (size_t k = 0; k <= std::min(n, taps - 1); ++k) {
          sum += static_cast<double>(curve[k]) * static_cast<double>(planes[channel][n - k]);
        }
        expected[channel].push_back(sum * std::pow(10.0, -6.0 / 20));
        energy += expected[channel].back() * expected[channel].back();
      }
    }
    EqualizerInstance(tuning).Process(planes[0], planes[1]);
    const double rms = std::sqrt(energy / static_cast<double>(2 * planes[0].size()));
    EXPECT_LT(Difference(planes[0], expected[0]) / rms, 2e-6) << taps << " taps";
    EXPECT_LT(Difference(planes[1], expected[1]) / rms, 2e-6) << taps << " taps";
  }
}

EqualizerTuning FiveBands(EqualizerForm form) {
  EqualizerTuning tuning;
  tuning.form = form;
  tuning.curves = {{{{BandType::kLowShelf, 100, 5, 0.7f},
                     {BandType::kHighPass, 15, 0, 0.7f},
                     {BandType::kPeaking, 200, -3, 4},
                     {BandType::kPeaking, 3000, 4, 2},
                     {BandType::kHighShelf, 9000, -4, 0.7f}},
                    {0.9f, -0.3f, 0.2f, 0.1f, -0.05f, 0.02f}}};
  return tuning;
}

class EqualizerForms : public testing::TestWithParam<EqualizerForm> {};
INSTANTIATE_TEST_SUITE_P(Both, EqualizerForms,
                         testing::Values(EqualizerForm::kBands, EqualizerForm::kFir));

TEST_P(EqualizerForms, BadSamplesCountAsSilence) {
  using Limits = std::numeric_limits<float>;
  std::mt19937 random(3);
  const std::vector<float> noise = Noise(4 * kBlockFrames, random);
  std::vector<float> bad_left = noise, bad_right = noise, left = noise, right = noise;
  size_t at = 100;
  for (const float bad : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(),
                          Limits::max(), Limits::denorm_min()}) {
    bad_left[at] = bad_right[at + 1] = bad;
    left[at] = right[at + 1] = 0;
    at += 500;
  }
  EqualizerInstance(FiveBands(GetParam())).Process(bad_left, bad_right);
  EqualizerInstance(FiveBands(GetParam())).Process(left, right);
  EXPECT_EQ(bad_left, left);
  EXPECT_EQ(bad_right, right);
  EXPECT_NE(left, noise);
}

TEST_P(EqualizerForms, SilenceIsExactAfterTheTailAndFlushEndsItAtOnce) {
  std::mt19937 random(5);
  const EqualizerInstance equalizer(FiveBands(GetParam()));
  const auto is_silent = [](std::span<const float> samples) {
    return std::all_of(samples.begin(), samples.end(), [](float s) { return s == 0; });
  };
  std::vector<float> left = Noise(kBlockFrames, random), right = left;
  equalizer.Process(left, right);
  std::vector<float> tail_left(100 * kBlockFrames), tail_right(tail_left.size());
  equalizer.Process(tail_left, tail_right);
  EXPECT_FALSE(is_silent(tail_left));
  EXPECT_TRUE(is_silent(std::span(tail_left).last(kBlockFrames)));
  EXPECT_TRUE(is_silent(std::span(tail_right).last(kBlockFrames)));
  for (const float sample : tail_left) {
    EXPECT_TRUE(sample == 0 || std::isnormal(sample));
  }

  equalizer.Process(left, right);
  ASSERT_EQ(A0237(equalizer.handle()), kOk);
  std::fill(left.begin(), left.end(), 0.0f);
  std::fill(right.begin(), right.end(), 0.0f);
  equalizer.Process(left, right);
  EXPECT_TRUE(is_silent(left));
  EXPECT_TRUE(is_silent(right));
}

TEST(EqualizerResponse, TheLoudestCurveStaysFinite) {
  EqualizerTuning tuning;
  tuning.preamp_db = kPreampMaxDb;
  tuning.curves = {{std::vector<EqualizerBand>(kMaxEqualizerBands,
                                               {BandType::kPeaking, 1000, kBandMaxDb, kBandMaxQ}),
                    {}}};
  std::vector<float> left(200 * kBlockFrames, 1.0f), right(left.size(), -1.0f);
  EqualizerInstance(tuning).Process(left, right);
  EXPECT_TRUE(std::all_of(left.begin(), left.end(), [](float s) { return std::isfinite(s); }));
}

}  // namespace
}  // namespace kelda::upmix_lib
