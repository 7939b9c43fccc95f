#include "upmix-lib/fft.h"

#include <gtest/gtest.h>
#include <kissfft/kiss_fftr.h>

#include <complex>
#include <numbers>

#include "tests/upmix-lib/signals.h"

namespace kelda::upmix_lib {
namespace {

constexpr double kMostError_db = -125.0;  // 24-bit mantissas allow about -135
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
    for (std::size_t n = 0; n < size; ++n) sum += double{in[n]} * turns[k * n % size];
    spectrum[k] = sum.real();
    spectrum[bins + k] = sum.imag();
  }
  return spectrum;
}

// By KissFFT, of the same layout.
std::vector<float> KissSpectrum(const std::vector<float>& in) {
  const std::size_t bins = in.size() / 2 + 1;
  std::vector<kiss_fft_cpx> kiss(bins);
  kiss_fftr_cfg config = kiss_fftr_alloc(static_cast<int>(in.size()), 0, nullptr, nullptr);
  kiss_fftr(config, in.data(), kiss.data());
  kiss_fftr_free(config);
  std::vector<float> spectrum(2 * bins);
  for (std::size_t k = 0; k < bins; ++k) {
    spectrum[k] = kiss[k].r;
    spectrum[bins + k] = kiss[k].i;
  }
  return spectrum;
}

std::vector<float> Joined(std::vector<float> re, const std::vector<float>& im) {
  re.insert(re.end(), im.begin(), im.end());
  return re;
}

TEST(RealFft, SupportsProductsOfTwoThreeAndFive) {
  for (const int size : {16, 18, 30, 256, 320, 384, 640, 768, 1280, 1536, 1920, 8192}) {
    EXPECT_TRUE(RealFft::IsSupported(size)) << size;
  }
  for (const int size : {-256, 0, 2, 14, 15, 17, 28, 45, 225, 1408, 8190, 16384}) {
    EXPECT_FALSE(RealFft::IsSupported(size)) << size;
  }
}

TEST(RealFft, EveryTransformMatchesTheDefinitionAndReturns) {
  for (int size = 16; size <= RealFft::kMaxSize; size += 2) {
    const bool tested = size <= 1600 || size == 2048 || size == 3840 || size == 8192;
    if (!tested || !RealFft::IsSupported(size)) continue;
    const RealFft fft(size);
    const std::vector<float> in = Noise(static_cast<std::size_t>(size), kSeed);
    Buffers b(fft);
    fft.Forward(in.data(), b.re.data(), b.im.data(), b.scratch.data());
    const std::vector<double> expected = NaiveSpectrum(in);
    EXPECT_LT(ErrorDb(Joined(b.re, b.im), expected), kMostError_db) << size;
    EXPECT_EQ(b.im.front(), 0.0f);
    EXPECT_EQ(b.im.back(), 0.0f);
    EXPECT_LT(ErrorDb(Joined(b.re, b.im), KissSpectrum(in)), -120.0) << size;

    fft.Inverse(b.re.data(), b.im.data(), b.out.data(), b.scratch.data());
    for (float& sample : b.out) sample /= static_cast<float>(size);
    EXPECT_LT(ErrorDb(b.out, in), kMostError_db) << size;
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

}  // namespace
}  // namespace kelda::upmix_lib
