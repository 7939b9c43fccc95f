// Complex arithmetic on vectors, and the small Fourier transforms ("butterflies")
// that the FFT is made of.
#ifndef KELDA_UPMIX_LIB_TRANSFORMS_COMPLEX_VEC_H_
#define KELDA_UPMIX_LIB_TRANSFORMS_COMPLEX_VEC_H_

#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {

// kLanesOf<V> complex numbers. In memory: the real parts, then the imaginary parts.
template <typename V>
struct Complex {
  V re, im;

  static Complex LoadFrom(const float* from) {
    return {Load<V>(from), Load<V>(from + kLanesOf<V>)};
  }
  void StoreTo(float* to) const {
    Store(to, re);
    Store(to + kLanesOf<V>, im);
  }

  Complex operator+(Complex b) const { return {re + b.re, im + b.im}; }
  Complex operator-(Complex b) const { return {re - b.re, im - b.im}; }
  // W is V or a float that counts for every lane.
  template <typename W>
  Complex Times(W w_re, W w_im) const {
    return {re * w_re - im * w_im, re * w_im + im * w_re};
  }
  Complex Conjugate() const { return {re, -im}; }
};

// x * -i in a forward transform, x * +i in an inverse one.
template <bool kInverse, typename V>
inline Complex<V> QuarterTurn(Complex<V> x) {
  if constexpr (kInverse) {
    return {-x.im, x.re};
  } else {
    return {x.im, -x.re};
  }
}

// Multiplies by a twiddle factor, conjugated in an inverse transform.
template <bool kInverse, typename V, typename W>
inline Complex<V> Twiddle(Complex<V> x, W w_re, W w_im) {
  return x.Times(w_re, kInverse ? -w_im : w_im);
}

// Dft<kInverse>(x): the unscaled transform of kRadix complex numbers, in place:
// x[j] becomes the sum over k of x[k] exp(-+2 pi i j k / kRadix).
template <bool kInverse, typename V>
inline void Dft(Complex<V> (&)[1]) {}

template <bool kInverse, typename V>
inline void Dft(Complex<V> (&x)[2]) {
  const Complex<V> difference = x[0] - x[1];
  x[0] = x[0] + x[1];
  x[1] = difference;
}

template <bool kInverse, typename V>
inline void Dft(Complex<V> (&x)[3]) {
  constexpr float kHalfRoot3 = 0.866025403784438647f;
  const Complex<V> sum = x[1] + x[2];
  const Complex<V> turn = QuarterTurn<kInverse>(x[1] - x[2]);
  const Complex<V> middle = {x[0].re - 0.5f * sum.re, x[0].im - 0.5f * sum.im};
  x[0] = x[0] + sum;
  x[1] = {middle.re + kHalfRoot3 * turn.re, middle.im + kHalfRoot3 * turn.im};
  x[2] = {middle.re - kHalfRoot3 * turn.re, middle.im - kHalfRoot3 * turn.im};
}

template <bool kInverse, typename V>
inline void Dft(Complex<V> (&x)[4]) {
  const Complex<V> even_sum = x[0] + x[2], even_difference = x[0] - x[2];
  const Complex<V> odd_sum = x[1] + x[3];
  const Complex<V> odd_turn = QuarterTurn<kInverse>(x[1] - x[3]);
  x[0] = even_sum + odd_sum;
  x[1] = even_difference + odd_turn;
  x[2] = even_sum - odd_sum;
  x[3] = even_difference - odd_turn;
}

template <bool kInverse, typename V>
inline void Dft(Complex<V> (&x)[5]) {
  constexpr float kCos1 = 0.309016994374947424f, kCos2 = -0.809016994374947424f;
  constexpr float kSin1 = 0.951056516295153572f, kSin2 = 0.587785252292473129f;
  const Complex<V> sum1 = x[1] + x[4], sum2 = x[2] + x[3];
  const Complex<V> turn1 = QuarterTurn<kInverse>(x[1] - x[4]);
  const Complex<V> turn2 = QuarterTurn<kInverse>(x[2] - x[3]);
  const Complex<V> even1 = {x[0].re + kCos1 * sum1.re + kCos2 * sum2.re,
                            x[0].im + kCos1 * sum1.im + kCos2 * sum2.im};
  const Complex<V> even2 = {x[0].re + kCos2 * sum1.re + kCos1 * sum2.re,
                            x[0].im + kCos2 * sum1.im + kCos1 * sum2.im};
  const Complex<V> odd1 = {kSin1 * turn1.re + kSin2 * turn2.re,
                           kSin1 * turn1.im + kSin2 * turn2.im};
  const Complex<V> odd2 = {kSin2 * turn1.re - kSin1 * turn2.re,
                           kSin2 * turn1.im - kSin1 * turn2.im};
  x[0] = x[0] + sum1 + sum2;
  x[1] = even1 + odd1;
  x[4] = even1 - odd1;
  x[2] = even2 + odd2;
  x[3] = even2 - odd2;
}

template <bool kInverse, typename V>
inline void Dft(Complex<V> (&x)[8]) {
  constexpr float kHalfRoot2 = 0.707106781186547524f;
  Complex<V> even[4] = {x[0], x[2], x[4], x[6]};
  Complex<V> odd[4] = {x[1], x[3], x[5], x[7]};
  Dft<kInverse>(even);
  Dft<kInverse>(odd);
  const Complex<V> turn1 = QuarterTurn<kInverse>(odd[1]), turn3 = QuarterTurn<kInverse>(odd[3]);
  odd[1] = {kHalfRoot2 * (odd[1].re + turn1.re), kHalfRoot2 * (odd[1].im + turn1.im)};
  odd[2] = QuarterTurn<kInverse>(odd[2]);
  odd[3] = {kHalfRoot2 * (turn3.re - odd[3].re), kHalfRoot2 * (turn3.im - odd[3].im)};
  for (int j = 0; j < 4; ++j) {
    x[j] = even[j] + odd[j];
    x[j + 4] = even[j] - odd[j];
  }
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_TRANSFORMS_COMPLEX_VEC_H_
