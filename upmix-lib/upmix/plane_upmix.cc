#include "upmix-lib/upmix/plane_upmix.h"

#include <cmath>

#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/base/math_constants.h"

namespace kelda::upmix_lib {

PlaneUpmix::PlaneUpmix(const PlaneTuning& tuning)
    : decomposition_(tuning.decomposition), tuning_(tuning) {}

void PlaneUpmix::Process(const float* const* in, float* const* out) {
  constexpr float kHalfRoot = static_cast<float>(kSqrt2) / 2.0f;
  alignas(kSimdAlignmentBytes) float guarded[kHopFrames];
  Spectrum left, right;
  GuardSamples(in[0], guarded, kHopFrames);
  left_analysis_.Process(guarded, left);
  GuardSamples(in[1], guarded, kHopFrames);
  right_analysis_.Process(guarded, right);

  DirectAndAmbience extracted;
  decomposition_.Process(left, right, extracted);
  alignas(kSimdAlignmentBytes) float common[kHopFrames];
  alignas(kSimdAlignmentBytes) float ambience[2][kHopFrames];
  common_.Process(extracted.common, common);
  left_ambience_.Process(extracted.left_ambience, ambience[0]);
  right_ambience_.Process(extracted.right_ambience, ambience[1]);

  // A source leaves the same ambience in both channels but for its sign and size, hence
  // the difference: it never cancels, and serves the side where the source left nothing.
  alignas(kSimdAlignmentBytes) float difference[kHopFrames];
#pragma omp simd
  for (int n = 0; n < kHopFrames; ++n) {
    difference[n] = kHalfRoot * (ambience[0][n] - ambience[1][n]);
  }
  alignas(kSimdAlignmentBytes) float diffuse[2][kHopFrames];
  decorrelator_.Process(difference, diffuse[0], diffuse[1]);

  const float back = tuning_.back_share, side = 1.0f - back;
  const float diffuse_gain = tuning_.decorrelation * std::sqrt(side * back);
  const float wide = tuning_.wide_amount, narrow = 1.0f - wide;
  const float* gain = tuning_.plane_gain;
  for (int ear = 0; ear < 2; ++ear) {
    const float* dry = ear == 0 ? left_analysis_.Delayed() : right_analysis_.Delayed();
    float *front_out = out[kFL + ear], *side_out = out[kSL + ear], *back_out = out[kBL + ear];
    for (int n = 0; n < kHopFrames; n += kLanes) {
      const Vec ambient = Load<Vec>(ambience[ear] + n);
      const Vec front = Load<Vec>(dry + n) - Load<Vec>(common + n) - ambient;
      const Vec spread = diffuse_gain * Load<Vec>(diffuse[ear] + n);
      Store<Vec>(front_out + n, gain[kFL + ear] * narrow * front);
      Store<Vec>(side_out + n, gain[kSL + ear] * (side * ambient + spread + wide * front));
      Store<Vec>(back_out + n, gain[kBL + ear] * (back * ambient - spread));
    }
  }
#pragma omp simd
  for (int n = 0; n < kHopFrames; ++n) {
    out[kFC][n] = gain[kFC] * static_cast<float>(kSqrt2) * common[n];
  }
}

}  // namespace kelda::upmix_lib
