#include "upmix-lib/equalizer/equalizer_bands.h"

#include <algorithm>
#include <cstdint>

#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {
namespace {

// Pairs that one pass takes at most. More do not fit the vector registers of AVX, and
// four to a pass are fastest when there are many.
constexpr std::size_t kMaxPassPairs = 5;
constexpr std::size_t kManyPassPairs = 4;

constexpr int64_t kFrames = kBlockFrames;

// The lanes of a pair whose band has a frame at step t: band n takes frame t - n.
DoubleMask4 BandsWithAFrame(int64_t t, int64_t pair) {
  const DoubleMask4 frame = t - 2 * pair - DoubleMask4{0, 0, 1, 1};
  return (frame >= 0) & (frame < kFrames);
}

// Four frames of planar floats, guarded, as interleaved doubles.
void Interleave(const float* left, const float* right, double gain, DoubleVec4* frames) {
  const auto l = gain * __builtin_convertvector(Guarded(Load<Vec4>(left)), DoubleVec4);
  const auto r = gain * __builtin_convertvector(Guarded(Load<Vec4>(right)), DoubleVec4);
  frames[0] = __builtin_shufflevector(l, r, 0, 4, 1, 5);
  frames[1] = __builtin_shufflevector(l, r, 2, 6, 3, 7);
}

// Four doubles as output samples: no louder than a guarded input can be, never denormal.
Vec4 OutputSamples(DoubleVec4 samples) {
  const DoubleVec4 limit = DoubleVec4{} + double{kMaxSample};
  samples = samples > limit ? limit : samples;
  samples = samples < -limit ? -limit : samples;
  return Guarded(__builtin_convertvector(samples, Vec4));
}

void Deinterleave(const DoubleVec4* frames, float* left, float* right) {
  Store(left, OutputSamples(__builtin_shufflevector(frames[0], frames[1], 0, 2, 4, 6)));
  Store(right, OutputSamples(__builtin_shufflevector(frames[0], frames[1], 1, 3, 5, 7)));
}

}  // namespace

BandCascade::BandCascade(const std::vector<Biquad>& left, const std::vector<Biquad>& right,
                         double gain)
    : gain_(gain), pairs_((left.size() + 1) / 2) {
  const Biquad identity;
  for (std::size_t i = 0; i < 2 * pairs_.size(); ++i) {
    for (const std::size_t channel : {0u, 1u}) {
      const std::vector<Biquad>& bands = channel == 0 ? left : right;
      const int lane = 2 * (static_cast<int>(i) % 2) + static_cast<int>(channel);
      pairs_[i / 2].biquads.Set(lane, i < bands.size() ? bands[i] : identity);
    }
  }
}

// Runs kPairs pairs over a block of interleaved stereo frames, in place.
template <int kPairs>
void BandCascade::RunPass(Pair* __restrict__ pairs, double* __restrict__ frames) {
  constexpr int64_t kLag = 2 * kPairs - 1;  // by which the last band is later than the first

  // g++ keeps arrays in registers only where every loop over them is unrolled.
  DoubleVec4 s1[kPairs], s2[kPairs], y[kPairs];
#pragma GCC unroll 8
  for (int k = 0; k < kPairs; ++k) {
    s1[k] = pairs[k].s1;
    s2[k] = pairs[k].s2;
    y[k] = DoubleVec4{};
  }
  // Steps `from`..`to` - 1. kPartial: some bands have no frame at these steps.
  const auto run = [&]<bool kPartial>(int64_t from, int64_t to) __attribute__((always_inline)) {
    for (int64_t t = from; t < to; ++t) {
      const int64_t frame = kPartial ? std::min(t, kFrames - 1) : t;
      const DoubleVec2 in = *reinterpret_cast<const DoubleVec2*>(frames + 2 * frame);
      DoubleVec4 x[kPairs];
#pragma GCC unroll 8
      for (int k = 0; k < kPairs; ++k) {
        const DoubleVec4 before = k > 0 ? y[k - 1] : __builtin_shufflevector(in, in, 0, 1, 0, 1);
        x[k] = __builtin_shufflevector(before, y[k], 2, 3, 4, 5);
      }
#pragma GCC unroll 8
      for (int k = 0; k < kPairs; ++k) {
        const FourBiquads& p = pairs[k].biquads;
        y[k] = p.b0 * x[k] + s1[k];
        const DoubleVec4 pushed = p.c1 * x[k] + s2[k];
        const DoubleVec4 next_s2 = p.c2 * x[k] - p.a2 * s1[k];
        const DoubleVec4 next_s1 = pushed - p.a1 * s1[k];
        if constexpr (kPartial) {
          const DoubleMask4 active = BandsWithAFrame(t, k);
          s1[k] = active ? next_s1 : s1[k];
          s2[k] = active ? next_s2 : s2[k];
        } else {
          s1[k] = next_s1;
          s2[k] = next_s2;
        }
      }
      if (!kPartial || t >= kLag) {
        const DoubleVec4 last = y[kPairs - 1];
        *reinterpret_cast<DoubleVec2*>(frames + 2 * (t - kLag)) =
            __builtin_shufflevector(last, last, 2, 3);
      }
    }
  };
  run.template operator()<true>(0, kLag);
  run.template operator()<false>(kLag, kFrames);
  run.template operator()<true>(kFrames, kFrames + kLag);
#pragma GCC unroll 8
  for (int k = 0; k < kPairs; ++k) {
    pairs[k].s1 = s1[k];
    pairs[k].s2 = s2[k];
  }
}

void BandCascade::Process(float* left, float* right) {
  if (at_rest_ && IsSilent(left, kBlockFrames) && IsSilent(right, kBlockFrames)) {
    std::fill_n(left, kBlockFrames, 0.0f);  // not -0
    std::fill_n(right, kBlockFrames, 0.0f);
    return;
  }
  for (std::size_t i = 0; i < kBlockFrames; i += 4) {
    Interleave(left + i, right + i, gain_, &frames_[i / 2]);
  }
  auto* const frames = reinterpret_cast<double*>(frames_);
  for (std::size_t done = 0; done < pairs_.size();) {
    const std::size_t rest = pairs_.size() - done;
    const std::size_t count = rest > kMaxPassPairs ? kManyPassPairs : rest;
    Pair* pairs = &pairs_[done];
    switch (count) {
      case 1:
        RunPass<1>(pairs, frames);
        break;
      case 2:
        RunPass<2>(pairs, frames);
        break;
      case 3:
        RunPass<3>(pairs, frames);
        break;
      case 4:
        RunPass<4>(pairs, frames);
        break;
      default:
        RunPass<5>(pairs, frames);
        break;
    }
    done += count;
  }
  at_rest_ = true;
  for (Pair& pair : pairs_) {
    DropTiny(pair.s1, pair.s2);
    at_rest_ &= IsZero(pair.s1) && IsZero(pair.s2);
  }
  for (std::size_t i = 0; i < kBlockFrames; i += 4) {
    Deinterleave(&frames_[i / 2], left + i, right + i);
  }
}

void BandCascade::Flush() {
  for (Pair& pair : pairs_) {
    pair.s1 = pair.s2 = DoubleVec4{};
  }
  at_rest_ = true;
}

}  // namespace kelda::upmix_lib
