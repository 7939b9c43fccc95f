#include "upmix-lib/upmix/decomposition.h"

#include <algorithm>
#include <cmath>

#include "upmix-lib/base/audio_format.h"

namespace kelda::upmix_lib {
namespace {

// Powers below are taken for silence, gains below for 0, before they turn denormal.
constexpr float kTinyValue = 1e-15f;
// Where gains begin to hold their values: about -110 dB re full scale.
constexpr float kQuietPower = 1e-7f;
// A band whose power grows by more than this in one hop has an onset.
constexpr float kOnsetRatio = 1.5f;

void Follow(float* follower, const float* target, const float* step) {
#pragma omp simd
  for (int b = 0; b < kBands; ++b) {
    const float next = follower[b] + step[b] * (target[b] - follower[b]);
    follower[b] = std::fabs(next) < kTinyValue ? 0.0f : next;
  }
}

}  // namespace

float StepForTimeConstant(float milliseconds) {
  constexpr float kHopMs = 1000.0f * kHopFrames / static_cast<float>(kSampleRateHz);
  return 1.0f - std::exp(-kHopMs / milliseconds);
}

BandValues PowerSteps(float milliseconds_at_1khz) {
  BandValues steps;
  for (int b = 0; b < kBands; ++b) {
    const float octaves = std::log2(std::max(BandHz(b), 1.0f) / 1000.0f);
    const float stretch = std::clamp(std::exp2(-octaves / 3.0f), 0.5f, 1.6f);
    steps[b] = StepForTimeConstant(milliseconds_at_1khz * stretch);
  }
  return steps;
}

BandGains Steer(const BandPowers& powers, const DecompositionTuning& tuning) {
  // In units of the band's power: the eigenvalues are (1 +- contrast) / 2, and
  // (balance, cross) / contrast is (cos, sin) of twice the panning angle.
  BandValues balance, cross, contrast;
  for (int b = 0; b < kBands; ++b) {
    const float scale = 1.0f / (powers.left[b] + powers.right[b] + kTinyValue);
    balance[b] = (powers.left[b] - powers.right[b]) * scale;
    cross[b] = (powers.cross[b] + std::fabs(powers.cross[b])) * scale;  // 2 * max(cross, 0)
    contrast[b] = std::sqrt(balance[b] * balance[b] + cross[b] * cross[b]);
  }

  // The direct share times aa, bb and ab.
  BandValues direct_aa, direct_bb, direct_ab;
  const float emphasis = tuning.direct_emphasis;
#pragma omp simd
  for (int b = 0; b < kBands; ++b) {
    const float ambient = 1.0f - contrast[b];  // Ps : Pn is 2 contrast : ambient
    const float weighted = 2.0f * emphasis * contrast[b];
    const float half_slope = weighted / (ambient * ambient + 2.0f * weighted * contrast[b]);
    direct_aa[b] = half_slope * (contrast[b] + balance[b]);
    direct_bb[b] = half_slope * (contrast[b] - balance[b]);
    direct_ab[b] = half_slope * cross[b];
  }

  // min(a, b) (a, b), which is (ab, bb) for a source on the left.
  BandGains gains;
#pragma omp simd
  for (int b = 0; b < kBands; ++b) {
    const float aa = direct_aa[b], bb = direct_bb[b], ab = direct_ab[b];
    gains.centre_left[b] = tuning.centre_amount[b] * (aa < ab ? aa : ab);
    gains.centre_right[b] = tuning.centre_amount[b] * (bb < ab ? bb : ab);
  }
#pragma omp simd
  for (int b = 0; b < kBands; ++b) {
    const float ambience = tuning.ambience_amount[b];
    gains.ambience_left[b] = ambience - ambience * direct_aa[b];
    gains.ambience_right[b] = ambience - ambience * direct_bb[b];
    gains.ambience_cross[b] = ambience * direct_ab[b];
  }
  return gains;
}

Decomposition::Decomposition(const DecompositionTuning& tuning) : tuning_(tuning) {
  BandPowers mid;
  std::fill_n(mid.left.value, kBands, 1.0f);
  mid.right = mid.cross = mid.left;
  gains_ = Steer(mid, tuning_);
}

void Decomposition::FollowPowers(const Spectrum& left, const Spectrum& right,
                                 BandValues& gain_step) {
  alignas(kSimdAlignmentBytes) float ll[kPaddedBins], rr[kPaddedBins], lr[kPaddedBins];
#pragma omp simd
  for (int k = 0; k < kPaddedBins; ++k) {
    ll[k] = left.re[k] * left.re[k] + left.im[k] * left.im[k];
    rr[k] = right.re[k] * right.re[k] + right.im[k] * right.im[k];
    lr[k] = left.re[k] * right.re[k] + left.im[k] * right.im[k];
  }
  BandPowers now;
  SumBins(ll, now.left);
  SumBins(rr, now.right);
  SumBins(lr, now.cross);

  BandValues before;
#pragma omp simd
  for (int b = 0; b < kBands; ++b) {
    before[b] = powers_.left[b] + powers_.right[b];
  }
  const float* step = tuning_.power_step.value;
  Follow(powers_.left.value, now.left.value, step);
  Follow(powers_.right.value, now.right.value, step);
  Follow(powers_.cross.value, now.cross.value, step);

#pragma omp simd
  for (int b = 0; b < kBands; ++b) {
    const float after = powers_.left[b] + powers_.right[b];
    const float onset = std::max(0.0f, after - kOnsetRatio * before[b]) / (after + kTinyValue);
    const float presence = after / (after + kQuietPower);
    gain_step[b] = presence * (tuning_.gain_step + (1.0f - tuning_.gain_step) * onset);
  }
}

void Decomposition::Process(const Spectrum& left, const Spectrum& right, DirectAndAmbience& out) {
  BandValues step;
  FollowPowers(left, right, step);
  BandPowers smooth = powers_;
  SmoothBands(smooth.left);
  SmoothBands(smooth.right);
  SmoothBands(smooth.cross);
  const BandGains target = Steer(smooth, tuning_);

  BandValues* const gains[] = {&gains_.centre_left, &gains_.centre_right, &gains_.ambience_left,
                               &gains_.ambience_right, &gains_.ambience_cross};
  const BandValues* const targets[] = {&target.centre_left, &target.centre_right,
                                       &target.ambience_left, &target.ambience_right,
                                       &target.ambience_cross};
  alignas(kSimdAlignmentBytes) float spread[5][kPaddedBins];
  for (int g = 0; g < 5; ++g) {
    Follow(gains[g]->value, targets[g]->value, step.value);
    SpreadBands(*gains[g], spread[g]);
  }

#pragma omp simd
  for (int k = 0; k < kPaddedBins; ++k) {
    const float left_re = left.re[k], left_im = left.im[k];
    const float right_re = right.re[k], right_im = right.im[k];
    out.common.re[k] = spread[0][k] * left_re + spread[1][k] * right_re;
    out.common.im[k] = spread[0][k] * left_im + spread[1][k] * right_im;
    out.left_ambience.re[k] = spread[2][k] * left_re - spread[4][k] * right_re;
    out.left_ambience.im[k] = spread[2][k] * left_im - spread[4][k] * right_im;
    out.right_ambience.re[k] = spread[3][k] * right_re - spread[4][k] * left_re;
    out.right_ambience.im[k] = spread[3][k] * right_im - spread[4][k] * left_im;
  }
}

}  // namespace kelda::upmix_lib
