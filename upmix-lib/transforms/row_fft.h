// Real Fourier transforms of rows: every element of the signal is a whole vector, and
// each lane is a transform of its own. The core of RealFft.
//
// A real signal of n rows is read as n/2 complex rows (even rows real, odd rows
// imaginary), goes through a mixed-radix Stockham transform (self-sorting, no bit
// reversal; Swarztrauber, "FFT algorithms for vector computers", 1984) and is split
// into the spectrum of the real signal. Lanes never mix, so nothing is shuffled.
#ifndef KELDA_UPMIX_LIB_TRANSFORMS_ROW_FFT_H_
#define KELDA_UPMIX_LIB_TRANSFORMS_ROW_FFT_H_

#include <cstddef>
#include <vector>

#include "upmix-lib/base/simd.h"
#include "upmix-lib/transforms/complex_vec.h"

namespace kelda::upmix_lib {

// The tables of one size, for any V. Immutable, so threads may share one.
class RowFft {
 public:
  // `rows`: even, at least 4, no prime factor but 2, 3 and 5.
  explicit RowFft(int rows);

  // Spectrum of `in`: `rows` rows of kLanesOf<V> floats. `out`: rows/2 + 1 rows of
  // Complex<V>. `scratch`: `rows` rows of V. None of the three overlap.
  template <typename V>
  void Forward(const float* in, float* out, float* scratch) const {
    RunPasses<false, V>(in, out, scratch);
    SplitSpectrum<V>(out);
  }

  // `rows` times the signal whose spectrum is `in`; layouts as in Forward. Ignores
  // the imaginary parts of the first and the last bin.
  template <typename V>
  void Inverse(const float* in, float* out, float* scratch) const {
    float* joined = passes_.size() % 2 == 0 ? out : scratch;
    JoinSpectrum<V>(in, joined);
    RunPasses<true, V>(joined, out, scratch);
  }

 private:
  // One Stockham pass: `groups` butterflies of `radix` with their own twiddles, each
  // repeated for `stride` neighbouring rows.
  struct Pass {
    int radix;
    int groups;
    int stride;
    std::size_t twiddles;  // Where its factors begin; the last pass has none.
  };

  template <bool kInverse, typename V>
  void RunPasses(const float* in, float* out, float* scratch) const;
  template <bool kInverse, int kRadix, typename V>
  void RunPass(const Pass& pass, const float* in, float* out) const;
  template <typename V>
  void SplitSpectrum(float* spectrum) const;
  template <typename V>
  void JoinSpectrum(const float* spectrum, float* out) const;

  int rows_;
  int half_;
  std::vector<Pass> passes_;
  std::vector<float> pass_twiddles_;  // Pairs re, im.
  std::vector<float> real_twiddles_;  // exp(-2 pi i k / rows), k = 0 .. half/2; pairs.
};

template <bool kInverse, typename V>
void RowFft::RunPasses(const float* in, float* out, float* scratch) const {
  // The passes alternate between the two buffers so that the last one ends in `out`.
  const std::size_t count = passes_.size();
  const float* from = in;
  for (std::size_t i = 0; i < count; ++i) {
    float* to = (count - 1 - i) % 2 == 0 ? out : scratch;
    const Pass& pass = passes_[i];
    switch (pass.radix) {
      case 2:
        RunPass<kInverse, 2, V>(pass, from, to);
        break;
      case 3:
        RunPass<kInverse, 3, V>(pass, from, to);
        break;
      case 4:
        RunPass<kInverse, 4, V>(pass, from, to);
        break;
      default:
        RunPass<kInverse, 5, V>(pass, from, to);
        break;
    }
    from = to;
  }
}

template <bool kInverse, int kRadix, typename V>
void RowFft::RunPass(const Pass& pass, const float* in, float* out) const {
  constexpr std::ptrdiff_t kRowFloats = 2 * kLanesOf<V>;
  const std::ptrdiff_t row_step = kRowFloats * pass.stride;
  const std::ptrdiff_t in_step = row_step * pass.groups;

  const auto butterfly = [&](const float* from, float* to, const float* twiddles) {
    Complex<V> x[kRadix];
    for (int k = 0; k < kRadix; ++k) {
      x[k] = Complex<V>::LoadFrom(from + k * in_step);
    }
    Dft<kInverse>(x);
    x[0].StoreTo(to);
    for (int k = 1; k < kRadix; ++k) {
      if (twiddles != nullptr) {
        x[k] = Twiddle<kInverse>(x[k], twiddles[2 * k - 2], twiddles[2 * k - 1]);
      }
      x[k].StoreTo(to + k * row_step);
    }
  };

  if (pass.groups == 1) {
    for (int q = 0; q < pass.stride; ++q) {
      butterfly(in + q * kRowFloats, out + q * kRowFloats, nullptr);
    }
    return;
  }
  const float* twiddles = pass_twiddles_.data() + pass.twiddles;
  for (int p = 0; p < pass.groups; ++p, twiddles += 2 * (kRadix - 1)) {
    for (int q = 0; q < pass.stride; ++q) {
      butterfly(in + p * row_step + q * kRowFloats, out + p * kRadix * row_step + q * kRowFloats,
                twiddles);
    }
  }
}

// In place: the transform z of the complex rows becomes the spectrum of the real rows,
// y[k] = (z[k] + z*[h-k]) / 2 - i/2 w^k (z[k] - z*[h-k]), h = rows / 2.
template <typename V>
void RowFft::SplitSpectrum(float* spectrum) const {
  constexpr std::ptrdiff_t kRowFloats = 2 * kLanesOf<V>;
  float* low = spectrum;
  float* high = spectrum + half_ * kRowFloats;
  const Complex<V> first = Complex<V>::LoadFrom(low);
  const V zero = first.re - first.re;
  Complex<V>{first.re + first.im, zero}.StoreTo(low);
  Complex<V>{first.re - first.im, zero}.StoreTo(high);

  const float* twiddle = real_twiddles_.data();
  for (int k = 1; 2 * k <= half_; ++k) {
    low += kRowFloats;
    high -= kRowFloats;
    twiddle += 2;
    const Complex<V> a = Complex<V>::LoadFrom(low);
    const Complex<V> b = Complex<V>::LoadFrom(high).Conjugate();
    const Complex<V> even = a + b;
    const Complex<V> odd = QuarterTurn<false>(a - b).Times(twiddle[0], twiddle[1]);
    const Complex<V> sum = even + odd, difference = even - odd;
    Complex<V>{0.5f * sum.re, 0.5f * sum.im}.StoreTo(low);
    Complex<V>{0.5f * difference.re, -0.5f * difference.im}.StoreTo(high);
  }
}

// The opposite of SplitSpectrum, doubled, and out of place.
template <typename V>
void RowFft::JoinSpectrum(const float* spectrum, float* out) const {
  constexpr std::ptrdiff_t kRowFloats = 2 * kLanesOf<V>;
  const float* low = spectrum;
  const float* high = spectrum + half_ * kRowFloats;
  float* out_low = out;
  float* out_high = out + half_ * kRowFloats;
  const V first = Load<V>(low), last = Load<V>(high);
  Complex<V>{first + last, first - last}.StoreTo(out_low);

  const float* twiddle = real_twiddles_.data();
  for (int k = 1; 2 * k <= half_; ++k) {
    low += kRowFloats;
    high -= kRowFloats;
    out_low += kRowFloats;
    out_high -= kRowFloats;
    twiddle += 2;
    const Complex<V> a = Complex<V>::LoadFrom(low);
    const Complex<V> b = Complex<V>::LoadFrom(high).Conjugate();
    const Complex<V> even = a + b;
    const Complex<V> odd = QuarterTurn<true>((a - b).Times(twiddle[0], -twiddle[1]));
    (even + odd).StoreTo(out_low);
    (even - odd).Conjugate().StoreTo(out_high);
  }
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_TRANSFORMS_ROW_FFT_H_
