// What keeps bad samples out and tiny values from lingering. Audio.
//
// Denormals are removed by arithmetic and not by the processor's flush-to-zero flag:
// the flag belongs to the host's thread, and the results would depend on it.
#ifndef KELDA_UPMIX_LIB_BASE_INPUT_GUARD_H_
#define KELDA_UPMIX_LIB_BASE_INPUT_GUARD_H_

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {

// Larger samples (+96 dB re full scale) are no audio and are taken for silence.
inline constexpr float kMaxSample = 65536.0f;

// Smaller samples (-200 dB re full scale) are taken for silence. That is far above the
// denormal numbers, because products must not be denormal either: rounding leaves 1e-17 in
// a transform's empty bins, and its square is still a normal number.
inline constexpr float kMinSample = 1e-10f;

// State below this magnitude (-300 dB re full scale) is taken for silence.
inline constexpr double kTinyState = 1e-15;

// All bits of a float but its sign.
inline constexpr uint32_t kMagnitudeBits = 0x7fffffff;

// `sample`, or 0 if it is NaN, infinite, huge or tiny.
inline float GuardSample(float sample) {
  const float magnitude = std::fabs(sample);
  const bool sound = (magnitude <= kMaxSample) & (magnitude >= kMinSample);
  return sound ? sample : 0.0f;
}

// GuardSample for each lane of a vector of floats. Spelt out, since compilers leave the
// comparisons of a loop in branches.
template <typename V>
V Guarded(V samples) {
  using Bits = BitsOf<V>;
  const V magnitudes = reinterpret_cast<V>(reinterpret_cast<Bits>(samples) & kMagnitudeBits);
  const auto sound = (magnitudes <= kMaxSample) & (magnitudes >= kMinSample);
  return reinterpret_cast<V>(reinterpret_cast<Bits>(samples) & reinterpret_cast<Bits>(sound));
}

// Whether any lane is neither 0 nor -0, from the bits of vectors of floats, which may be joined by
// or.
inline bool AnySounds(VecBits floats) {
  const VecBits magnitudes = floats & kMagnitudeBits;
  uint64_t pairs[sizeof(VecBits) / sizeof(uint64_t)];
  std::memcpy(pairs, &magnitudes, sizeof(magnitudes));
  uint64_t any = 0;
  for (const uint64_t pair : pairs) {
    any |= pair;
  }
  return any != 0;
}

// Guards `count` samples; in and out are the same buffer or do not overlap. Returns whether there
// is any sound: whether a sample that is written is not 0.
inline bool GuardSamples(const float* in, float* out, std::size_t count) {
  const std::size_t whole = count - count % kLanes;
  VecBits bits{};
  for (std::size_t i = 0; i < whole; i += kLanes) {
    const Vec guarded = Guarded(Load<Vec>(in + i));
    bits |= reinterpret_cast<VecBits>(guarded);
    Store(out + i, guarded);
  }
  bool any = false;
  for (std::size_t i = whole; i < count; ++i) {
    out[i] = GuardSample(in[i]);
    any |= out[i] != 0.0f;
  }
  return any || AnySounds(bits);
}

// Whether all of `count` samples are 0. Components skip their work while that and their own state
// make sure that it would come to nothing.
inline bool IsSilent(const float* samples, std::size_t count) {
  constexpr std::size_t kGroup = 256;
  const std::size_t whole = count - count % kLanes;
  for (std::size_t i = 0; i < whole;) {
    const std::size_t end = i + kGroup < whole ? i + kGroup : whole;
    VecBits bits{};
    for (; i < end; i += kLanes) {
      bits |= reinterpret_cast<VecBits>(Load<Vec>(samples + i));
    }
    if (AnySounds(bits)) {
      return false;
    }
  }
  for (std::size_t i = whole; i < count; ++i) {
    if (samples[i] != 0.0f) {
      return false;
    }
  }
  return true;
}

// For recursive state, once per block: ends a decay before it turns denormal.
template <typename Float>
Float DropTiny(Float state) {
  return std::fabs(state) < static_cast<Float>(kTinyState) ? Float{0} : state;
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_INPUT_GUARD_H_
