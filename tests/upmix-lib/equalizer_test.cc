// What the equalizer does to sound.
#include <gtest/gtest.h>

#include <complex>
#include <numbers>
#include <random>

#include "tests/laboratory/components.h"
#include "upmix-lib/filters/biquad_design.h"

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

// 20 Hz to 20 kHz.
std::vector<double> TestFrequencies(int count) {
  std::vector<double> freqs_hz(static_cast<std::size_t>(count));
  for (std::size_t i = 0; i < freqs_hz.size(); ++i) {
    freqs_hz[i] = 20 * std::pow(1000.0, static_cast<double>(i) / (count - 1));
  }
  return freqs_hz;
}

std::vector<EqualizerBand> RandomBands(std::size_t count, std::mt19937& random) {
  const auto between = [&](double low, double high) {
    return std::uniform_real_distribution<>(low, high)(random);
  };
  std::vector<EqualizerBand> bands;
  for (std::size_t i = 0; i < count; ++i) {
    // Few bands of the types that remove whole ranges: 64 of them would leave nothing to measure.
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

TEST(Equalizer, DesignIsThePrototypeAtEveryExtreme) {
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
            if (expected_db < -100) {
              continue;
            }
            ASSERT_NEAR(ResponseDb(biquad, at_hz), expected_db, 1e-3)
                << "type " << type << ' ' << freq_hz << " Hz " << gain_db << " dB Q " << q << " at "
                << at_hz;
          }
        }
      }
    }
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

// At any number of bands noise comes out as the textbook has it, sample for sample, so that a
// latency, a lost frame at a block's border or a channel taken for the other shows.
TEST(Equalizer, BandsAreTheTextbooks) {
  constexpr uint32_t kSeed = 20240611;
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  for (const std::size_t count : {0u, 1u, 2u, 3u, 5u, 10u, 11u, 13u, 33u, 64u}) {
    EqualizerTuning tuning;
    tuning.preamp_db = -3.5f;
    tuning.curves = {{RandomBands(count, random), {}}, {RandomBands(count, random), {}}};
    const Planes noise = {Noise(5 * kBlock, 1, 1), Noise(5 * kBlock, 2, 1)};
    const Planes out = EqualizerInstance(tuning).Process(noise);
    for (const std::size_t ear : {0u, 1u}) {
      std::vector<double> expected(noise[ear].begin(), noise[ear].end());
      for (double& sample : expected) {
        sample *= std::pow(10.0, -3.5 / 20);
      }
      for (const EqualizerBand& band : tuning.curves[ear].bands) {
        RunDirectForm(DesignBiquad(band), expected);
      }
      EXPECT_LT(ErrorDb(out[ear], expected), -135) << count << " bands";
    }
  }
}

TEST(Equalizer, FirIsTheConvolution) {
  for (const std::size_t taps : {1u, 2u, 31u, 32u, 255u, 1024u, 1025u, 3000u, kMaxEqualizerTaps}) {
    EqualizerTuning tuning;
    tuning.form = EqualizerForm::kFir;
    tuning.preamp_db = -6;
    tuning.curves = {{{}, Noise(taps, 3, 1)}, {{}, Noise(taps, 4, 1)}};
    const Planes noise = {Noise(10 * kBlock, 5, 1), Noise(10 * kBlock, 6, 1)};
    const Planes out = EqualizerInstance(tuning).Process(noise);
    for (const std::size_t ear : {0u, 1u}) {
      const Signal& curve = tuning.curves[ear].taps;
      std::vector<double> expected;
      for (std::size_t n = 0; n < noise[ear].size(); ++n) {
        double sum = 0;
        for (std::size_t k = 0; k <= std::min(n, taps - 1); ++k) {
          sum += static_cast<double>(curve[k]) * static_cast<double>(noise[ear][n - k]);
        }
        expected.push_back(sum * std::pow(10.0, -6.0 / 20));
      }
      EXPECT_LT(ErrorDb(out[ear], expected), -120) << taps << " taps";
    }
  }
}

// As loud as a guarded sample may be, not beyond, and not silent.
TEST(Equalizer, TheLoudestCurveIsClipped) {
  EqualizerTuning tuning;
  tuning.preamp_db = kPreampMaxDb;
  tuning.curves = {{std::vector<EqualizerBand>(kMaxEqualizerBands,
                                               {BandType::kPeaking, 1000, kBandMaxDb, kBandMaxQ}),
                    {}}};
  const Planes out = EqualizerInstance(tuning).Process(Planes(2, Sine(1000, 1, 200 * kBlock)));
  EXPECT_TRUE(std::all_of(out[0].end() - kBlock, out[0].end(),
                          [](float sample) { return std::fabs(sample) == 65536; }));
}

}  // namespace
}  // namespace kelda::upmix_lib
