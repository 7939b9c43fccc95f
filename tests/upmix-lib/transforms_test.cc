// The Fourier transform, the filter bank around it, and the bands of its spectra.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "tests/laboratory/signals.h"
#include "upmix-lib/transforms/fft.h"
#include "upmix-lib/upmix/bands.h"
#include "upmix-lib/upmix/filter_bank.h"

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

TEST(FilterBank, UnchangedSpectraReturnTheInputAfterExactlyItsDelay) {
  const Signal in = PinkNoise(1, 200 * kHopFrames, 20.0f, 23000.0f);
  Signal out(in.size()), delayed(in.size());
  Analysis analysis;
  Synthesis synthesis;
  for (std::size_t at = 0; at < in.size(); at += kHopFrames) {
    Spectrum spectrum;
    analysis.Process(&in[at], spectrum);
    synthesis.Process(spectrum, &out[at]);
    std::copy_n(analysis.Delayed(), kHopFrames, &delayed[at]);
  }
  const Signal late = Delayed({in}, 96)[0];
  EXPECT_EQ(delayed, late);
  EXPECT_LT(ErrorDb(out, late), -130.0);
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
