// The Fourier transform, the filters of the upmix, and the bands of its spectra.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <numbers>

#include "tests/laboratory/signals.h"
#include "upmix-lib/transforms/fft.h"
#include "upmix-lib/upmix/bands.h"
#include "upmix-lib/upmix/fixed_lag_filters.h"

namespace kelda::upmix_lib {
namespace {

constexpr double kMostErrorDb = -125.0;  // 24-bit mantissas allow about -135
constexpr uint32_t kSeed = 20;

// Exactly as large as the interface asks for: a sanitizer sees every step beyond.
struct Buffers {
  explicit Buffers(const RealFft& fft)
      : re(static_cast<std::size_t>(fft.bins())),
        im(re.size()),
        out(static_cast<std::size_t>(fft.size())),
        scratch(static_cast<std::size_t>(fft.scratch_floats())) {}
  std::vector<float> re, im, out, scratch;
};

// Real parts, then imaginary parts.
std::vector<double> NaiveSpectrum(std::span<const float> in) {
  const std::size_t size = in.size(), bins = size / 2 + 1;
  std::vector<std::complex<double>> turns(size);
  for (std::size_t i = 0; i < size; ++i) {
    turns[i] = std::polar(
        1.0, -2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(size));
  }
  std::vector<double> spectrum(2 * bins);
  for (std::size_t k = 0; k < bins; ++k) {
    std::complex<double> sum = 0.0;
    for (std::size_t n = 0; n < size; ++n) {
      sum += double{in[n]} * turns[k * n % size];
    }
    spectrum[k] = sum.real();
    spectrum[bins + k] = sum.imag();
  }
  return spectrum;
}

std::vector<float> Joined(std::vector<float> re, const std::vector<float>& im) {
  re.insert(re.end(), im.begin(), im.end());
  return re;
}

TEST(RealFft, EveryTransformMatchesTheDefinitionAndReturns) {
  for (int size = 16; size <= RealFft::kMaxSize; size += 2) {
    const bool tested = size <= 1600 || size == 2048 || size == 3840 || size == 8192;
    if (!tested || !RealFft::IsSupported(size)) {
      continue;
    }
    const RealFft fft(size);
    const std::vector<float> in = Noise(static_cast<std::size_t>(size), kSeed);
    Buffers b(fft);
    fft.Forward(in.data(), b.re.data(), b.im.data(), b.scratch.data());
    const std::vector<double> expected = NaiveSpectrum(in);
    EXPECT_LT(ErrorDb(Joined(b.re, b.im), expected), kMostErrorDb) << size;
    EXPECT_EQ(b.im.front(), 0.0f);
    EXPECT_EQ(b.im.back(), 0.0f);

    fft.Inverse(b.re.data(), b.im.data(), b.out.data(), b.scratch.data());
    for (float& sample : b.out) {
      sample /= static_cast<float>(size);
    }
    EXPECT_LT(ErrorDb(b.out, in), kMostErrorDb) << size;
  }
}

// The overlaps that the interface allows, at an address off every vector's alignment.
TEST(RealFft, WorksInPlaceAndUnaligned) {
  for (const int size : {30, 240, 1280}) {
    const RealFft fft(size);
    const auto bins = static_cast<std::size_t>(fft.bins());
    const std::vector<float> in = Noise(static_cast<std::size_t>(size), kSeed);
    Buffers b(fft);
    fft.Forward(in.data(), b.re.data(), b.im.data(), b.scratch.data());

    std::vector<float> buffer(2 * bins + 1);
    float* const shared = buffer.data() + 1;
    std::copy(in.begin(), in.end(), shared);
    fft.Forward(shared, shared, shared + bins, b.scratch.data());
    EXPECT_EQ(std::vector<float>(shared, shared + 2 * bins), Joined(b.re, b.im)) << size;

    shared[bins] = 7.0f;  // what should be ignored
    shared[2 * bins - 1] = -7.0f;
    fft.Inverse(b.re.data(), b.im.data(), b.out.data(), b.scratch.data());
    fft.Inverse(shared, shared + bins, shared, b.scratch.data());
    EXPECT_LT(ErrorDb(std::span(shared, in.size()), b.out), -140.0) << size;
  }
}

// A gain of 1 is an exact delay, and a move from one gain to another a straight line over the
// hops that it is given, also where it starts within another move.
TEST(FixedLagFilters, DelayExactlyAndMoveInStraightLines) {
  const auto gains = [](float centre_left, float ambience_right, float cross) {
    auto all = std::make_unique<ExtractionGains>();
    std::fill_n(all->curve[kCentreLeft], kLongBins, centre_left);
    std::fill_n(all->curve[kAmbienceRight], kLongBins, ambience_right);
    std::fill_n(all->curve[kAmbienceCross], kLongBins, cross);
    return all;
  };
  const Planes in = {PinkNoise(1, 40 * kHopFrames, 20.0f, 23000.0f),
                     PinkNoise(2, 40 * kHopFrames, 20.0f, 23000.0f)};
  const Planes late = Delayed(in, 96);
  const auto filters = std::make_unique<FixedLagFilters>(*gains(1.0f, 0.5f, 0.0f));
  const auto analysis = std::make_unique<Analysis[]>(2);
  Planes out(3, Signal(in[0].size())), expected = out;
  float cross = 0.0f, target = 0.0f, step = 0.0f;
  for (std::size_t hop = 0; hop < 40; ++hop) {
    const std::size_t at = hop * kHopFrames;
    for (const std::size_t ear : {0u, 1u}) {
      analysis[ear].Append(&in[ear][at]);
    }
    if (hop == 20 || hop == 22) {
      target = hop == 20 ? 1.0f : 0.25f;
      step = (target - cross) / 4.0f / kHopFrames;
      filters->MoveTo(*gains(1.0f, 0.5f, target), 4);
    }
    Extracted extracted;
    filters->Process(analysis[0].Last(2 * kHopFrames), analysis[1].Last(2 * kHopFrames), extracted);
    std::copy_n(extracted.common, kHopFrames, &out[0][at]);
    std::copy_n(extracted.ambience[0], kHopFrames, &out[1][at]);
    std::copy_n(extracted.ambience[1], kHopFrames, &out[2][at]);
    for (std::size_t n = at; n < at + kHopFrames; ++n) {
      if (hop < 26) {
        cross += step;
      }
      expected[0][n] = late[0][n];
      expected[1][n] = -cross * late[1][n];
      expected[2][n] = 0.5f * late[1][n] - cross * late[0][n];
    }
  }
  EXPECT_LT(ErrorDb(out[0], expected[0]), -115.0);
  EXPECT_LT(ErrorDb(out[1], expected[1]), -110.0);
  EXPECT_LT(ErrorDb(out[2], expected[2]), -110.0);
}

// A line over frequency stays a line, so no bin is weighted with the wrong neighbour.
TEST(Bands, SpreadDrawsLinesThroughTheCentres) {
  BandValues bands;
  float first = 0.0f;
  for (int b = 0; b < kBands; ++b) {
    const auto width = static_cast<float>(BandBins(b));
    bands[b] = 93.75f * (first + 0.5f * (width - 1.0f));
    first += width;
  }
  float bins[kPaddedShortBins];
  SpreadBands(bands, bins);
  for (int k = 0; k < 248; ++k) {
    EXPECT_NEAR(bins[k], 93.75f * static_cast<float>(k), 0.01f) << "bin " << k;
  }
  EXPECT_EQ(bins[256], bands[47]);
}

}  // namespace
}  // namespace kelda::upmix_lib
