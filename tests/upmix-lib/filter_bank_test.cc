#include "upmix-lib/filter_bank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tests/upmix-lib/signals.h"
#include "upmix-lib/bands.h"

namespace kelda::upmix_lib {
namespace {

TEST(FilterBank, UnchangedSpectraReturnTheInputAfterExactlyItsDelay) {
  const Signal in = PinkNoise(1, 200 * kHopFrames, 20.0f, 23000.0f);
  Signal out(in.size()), delayed(in.size());
  Analysis analysis;
  Synthesis synthesis;
  for (size_t at = 0; at < in.size(); at += kHopFrames) {
    Spectrum spectrum;
    analysis.Process(&in[at], spectrum);
    synthesis.Process(spectrum, &out[at]);
    std::copy_n(analysis.Delayed(), kHopFrames, &delayed[at]);
  }
  const Signal late = Delayed({in}, 96)[0];
  EXPECT_EQ(delayed, late);
  EXPECT_LT(ErrorDb(out, late), -130.0);
}

// What one bin lets through of a tone this many bins away.
TEST(FilterBank, ResolvesLikeALongWindow) {
  const auto leakage_db = [](double bins_away) {
    constexpr double kBin = 40.0;
    Signal tone(kTransformFrames);
    Analysis analysis;
    Spectrum spectrum = {};
    for (size_t at = 0; at < tone.size(); at += kHopFrames) {
      for (size_t n = at; n < at + kHopFrames; ++n) {
        tone[n] = static_cast<float>(
            std::cos(2.0 * std::numbers::pi * (kBin + bins_away) * static_cast<double>(n) / 512));
      }
      analysis.Process(&tone[at], spectrum);
    }
    return Db(std::pow(spectrum.re[40], 2) + std::pow(spectrum.im[40], 2));
  };
  const double peak = leakage_db(0.0);
  EXPECT_LT(leakage_db(2.0) - peak, -15.0);
  EXPECT_LT(leakage_db(8.0) - peak, -45.0);
  EXPECT_LT(leakage_db(32.0) - peak, -70.0);
}

TEST(Bands, EveryBinBelowTheLastCountsOnce) {
  float bins[kPaddedBins];
  BandValues bands;
  for (int k = 0; k < kPaddedBins; ++k) {
    bins[k] = static_cast<float>(k);
  }
  SumBins(bins, bands);
  double sum = 0.0;
  for (float value : bands.value) {
    sum += value;
  }
  EXPECT_EQ(sum, 255.0 * 256.0 / 2.0);
  EXPECT_EQ(bands[16], 16.0f + 17.0f);
  EXPECT_EQ(bands[47], 16.0f * 247.5f);
}

// A line over frequency stays a line, so no bin is weighted with the wrong neighbour.
TEST(Bands, SpreadDrawsLinesThroughTheCentres) {
  BandValues bands;
  for (int b = 0; b < kBands; ++b) {
    bands[b] = BandHz(b);
  }
  float bins[kPaddedBins];
  SpreadBands(bands, bins);
  for (int k = 0; k < 248; ++k) {
    EXPECT_NEAR(bins[k], 93.75f * static_cast<float>(k), 0.01f) << "bin " << k;
  }
  EXPECT_EQ(bins[256], bands[47]);
}

}  // namespace
}  // namespace kelda::upmix_lib
