// Float vectors through the compilers' vector extensions: one source for SSE, AVX
// and NEON, no intrinsics and no dependency.
//
// A kernel is a template over its element type, which is `float` (the scalar
// reference), `Vec4` or `Vec8`; operators and Load/Store read the same for all.
// kLanes is the width that the build's target has in hardware.
//
// Loops that a compiler makes vectors of by itself stay loops, under `#pragma omp simd`:
// without it, compilers for 32-bit ARM leave loops over floats scalar, since NEON there takes
// denormals for zero. Nothing here needs denormals (input_guard.h).
#ifndef KELDA_UPMIX_LIB_BASE_SIMD_H_
#define KELDA_UPMIX_LIB_BASE_SIMD_H_

#include <cstdint>

namespace kelda::upmix_lib {

typedef float Vec4 __attribute__((vector_size(16)));

#if defined(__AVX__)
typedef float Vec8 __attribute__((vector_size(32)));
using Vec = Vec8;
#else
using Vec = Vec4;
#endif

// The bits of a vector of floats of type V, a number for each.
template <typename V>
using BitsOf __attribute__((vector_size(sizeof(V)))) = uint32_t;
using VecBits = BitsOf<Vec>;

// Floats in a vector of type V.
template <typename V>
// NOLINTNEXTLINE(bugprone-sizeof-expression): a float is a vector of one
inline constexpr int kLanesOf = static_cast<int>(sizeof(V) / sizeof(float));

// Floats in the widest vector of this build: 4 or 8.
inline constexpr int kLanes = kLanesOf<Vec>;

// Alignment at which no vector crosses a cache line. Buffers need it for speed
// only: loads and stores take any address of a float.
inline constexpr int kSimdAlignmentBytes = 64;

namespace simd_detail {
template <typename V>
struct Unaligned {
  typedef V Type __attribute__((aligned(4), may_alias));
};
}  // namespace simd_detail

template <typename V>
inline V Load(const float* from) {
  return *reinterpret_cast<const typename simd_detail::Unaligned<V>::Type*>(from);
}

template <typename V>
inline void Store(float* to, V value) {
  *reinterpret_cast<typename simd_detail::Unaligned<V>::Type*>(to) = value;
}

// The lanes in opposite order.
inline float Reverse(float v) { return v; }
inline Vec4 Reverse(Vec4 v) { return __builtin_shufflevector(v, v, 3, 2, 1, 0); }

// Transposes the kLanesOf<V> rows that start at `from`, `stride` floats apart, into
// `columns`: columns[c] holds element c of every row.
inline void LoadTransposed(const float* from, int /*stride*/, float (&columns)[1]) {
  columns[0] = *from;
}

inline void LoadTransposed(const float* from, int stride, Vec4 (&columns)[4]) {
  const Vec4 a = Load<Vec4>(from), b = Load<Vec4>(from + stride);
  const Vec4 c = Load<Vec4>(from + 2 * stride), d = Load<Vec4>(from + 3 * stride);
  const Vec4 ab_low = __builtin_shufflevector(a, b, 0, 4, 1, 5);
  const Vec4 ab_high = __builtin_shufflevector(a, b, 2, 6, 3, 7);
  const Vec4 cd_low = __builtin_shufflevector(c, d, 0, 4, 1, 5);
  const Vec4 cd_high = __builtin_shufflevector(c, d, 2, 6, 3, 7);
  columns[0] = __builtin_shufflevector(ab_low, cd_low, 0, 1, 4, 5);
  columns[1] = __builtin_shufflevector(ab_low, cd_low, 2, 3, 6, 7);
  columns[2] = __builtin_shufflevector(ab_high, cd_high, 0, 1, 4, 5);
  columns[3] = __builtin_shufflevector(ab_high, cd_high, 2, 3, 6, 7);
}

// The opposite of LoadTransposed.
inline void StoreTransposed(const float (&columns)[1], float* to, int /*stride*/) {
  *to = columns[0];
}

inline void StoreTransposed(const Vec4 (&columns)[4], float* to, int stride) {
  const Vec4 ab_low = __builtin_shufflevector(columns[0], columns[1], 0, 4, 1, 5);
  const Vec4 ab_high = __builtin_shufflevector(columns[0], columns[1], 2, 6, 3, 7);
  const Vec4 cd_low = __builtin_shufflevector(columns[2], columns[3], 0, 4, 1, 5);
  const Vec4 cd_high = __builtin_shufflevector(columns[2], columns[3], 2, 6, 3, 7);
  Store(to, __builtin_shufflevector(ab_low, cd_low, 0, 1, 4, 5));
  Store(to + stride, __builtin_shufflevector(ab_low, cd_low, 2, 3, 6, 7));
  Store(to + 2 * stride, __builtin_shufflevector(ab_high, cd_high, 0, 1, 4, 5));
  Store(to + 3 * stride, __builtin_shufflevector(ab_high, cd_high, 2, 3, 6, 7));
}

#if defined(__AVX__)

inline Vec8 Reverse(Vec8 v) { return __builtin_shufflevector(v, v, 7, 6, 5, 4, 3, 2, 1, 0); }

namespace simd_detail {

// Transposes 4x4 within the low and within the high half of four vectors.
inline void TransposeHalves(Vec8 a, Vec8 b, Vec8 c, Vec8 d, Vec8* out) {
  const Vec8 ab_low = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
  const Vec8 ab_high = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
  const Vec8 cd_low = __builtin_shufflevector(c, d, 0, 8, 1, 9, 4, 12, 5, 13);
  const Vec8 cd_high = __builtin_shufflevector(c, d, 2, 10, 3, 11, 6, 14, 7, 15);
  out[0] = __builtin_shufflevector(ab_low, cd_low, 0, 1, 8, 9, 4, 5, 12, 13);
  out[1] = __builtin_shufflevector(ab_low, cd_low, 2, 3, 10, 11, 6, 7, 14, 15);
  out[2] = __builtin_shufflevector(ab_high, cd_high, 0, 1, 8, 9, 4, 5, 12, 13);
  out[3] = __builtin_shufflevector(ab_high, cd_high, 2, 3, 10, 11, 6, 7, 14, 15);
}

inline Vec8 LoadHalves(const float* low, const float* high) {
  return __builtin_shufflevector(Load<Vec4>(low), Load<Vec4>(high), 0, 1, 2, 3, 4, 5, 6, 7);
}

inline void StoreHalves(Vec8 v, float* low, float* high) {
  Store(low, __builtin_shufflevector(v, v, 0, 1, 2, 3));
  Store(high, __builtin_shufflevector(v, v, 4, 5, 6, 7));
}

}  // namespace simd_detail

inline void LoadTransposed(const float* from, int stride, Vec8 (&columns)[8]) {
  using simd_detail::LoadHalves;
  const float* upper = from + 4 * stride;
  for (int half = 0; half < 2; ++half) {
    const int at = 4 * half;
    simd_detail::TransposeHalves(
        LoadHalves(from + at, upper + at), LoadHalves(from + stride + at, upper + stride + at),
        LoadHalves(from + 2 * stride + at, upper + 2 * stride + at),
        LoadHalves(from + 3 * stride + at, upper + 3 * stride + at), columns + at);
  }
}

inline void StoreTransposed(const Vec8 (&columns)[8], float* to, int stride) {
  float* upper = to + 4 * stride;
  for (int half = 0; half < 2; ++half) {
    const int at = 4 * half;
    Vec8 rows[4];
    simd_detail::TransposeHalves(columns[at], columns[at + 1], columns[at + 2], columns[at + 3],
                                 rows);
    for (int r = 0; r < 4; ++r) {
      simd_detail::StoreHalves(rows[r], to + r * stride + at, upper + r * stride + at);
    }
  }
}

#endif  // __AVX__

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_SIMD_H_
