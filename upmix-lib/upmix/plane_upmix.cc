#include "upmix-lib/upmix/plane_upmix.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "platform/math_constants.h"
#include "upmix-lib/base/input_guard.h"

namespace kelda::upmix_lib {
namespace {

// Ambience that no longer adds up in phase with what stays in front needs so much more power.
constexpr float kDiffuseGain = 1.17f;

}  // namespace

Status PreparePlaneUpmix() {
  try {
    SharedAnalysisTables();
    SharedFilterTables();
    SharedLagTables();
    SharedDiffuserTables();
    return kOk;
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

PlaneUpmix::PlaneUpmix(const PlaneTuning& tuning)
    : decomposition_(tuning.decomposition),
      filters_(decomposition_.gains()),
      bass_step_(static_cast<float>(
          1.0 - std::exp(-kPi * static_cast<double>(tuning.bass_crossover_hz) / kSampleRateHz))),
      back_share_(tuning.back_share),
      decorrelation_(tuning.decorrelation),
      wide_amount_(tuning.wide_amount) {
  std::copy_n(tuning.plane_gain, kPlanes, plane_gain_);
}

// Asked after every hop of silence. Once everything that ends has ended, gains that moved within
// the last kHopsPerGains hops have arrived, too: both sets of filters are alike.
bool PlaneUpmix::AtRest() {
  if (silent_hops_ < kForgetHops && ++silent_hops_ == kForgetHops) {
    decomposition_.ForgetPast();
  }
  return silent_hops_ >= kSilentHops && bass_[0] == 0.0f && bass_[1] == 0.0f &&
         decomposition_.silent();
}

void PlaneUpmix::ProcessSilentBlock() {
  for (int hop = 0; hop < kBlockFrames / kHopFrames; ++hop) {
    decomposition_.ProcessSilent();
  }
}

void PlaneUpmix::Process(const float* const* in, float* const* out) {
  alignas(kSimdAlignmentBytes) float guarded[2][kHopFrames];
  const bool left_sounds = GuardSamples(in[0], guarded[0], kHopFrames);
  const bool right_sounds = GuardSamples(in[1], guarded[1], kHopFrames);
  if (left_sounds || right_sounds) {
    silent_hops_ = 0;
    at_rest_ = false;
  } else {
    at_rest_ = at_rest_ || AtRest();
  }
  if (at_rest_) {
    decomposition_.ProcessSilent();
    // Not a constant, so that compilers do not call seven times what is made for large memory.
    const Vec silence = Load<Vec>(guarded[0]);
    for (int plane = 0; plane < kPlanes; ++plane) {
      float* const to = out[plane];
      for (int n = 0; n < kHopFrames; n += kLanes) {
        Store(to + n, silence);
      }
    }
    return;
  }
  left_.Append(guarded[0]);
  right_.Append(guarded[1]);

  if (const int hops = decomposition_.Process(left_, right_); hops > 0) {
    filters_.MoveTo(decomposition_.gains(), hops);
  }
  Extracted extracted;
  filters_.Process(left_.Last(2 * kHopFrames), right_.Last(2 * kHopFrames), extracted);
  {
    // Both ears in one loop, since each waits for the frame before.
    float *left = extracted.ambience[0], *right = extracted.ambience[1];
    float left_bass = bass_[0], right_bass = bass_[1];
    const float step = bass_step_, keep = 1.0f - bass_step_;
    for (int n = 0; n < kHopFrames; ++n) {
      left_bass = keep * left_bass + step * left[n];
      right_bass = keep * right_bass + step * right[n];
      left[n] -= left_bass;
      right[n] -= right_bass;
    }
    bass_[0] = DropTiny(left_bass);
    bass_[1] = DropTiny(right_bass);
    GuardSamples(left, left, kHopFrames);
    GuardSamples(right, right, kHopFrames);
  }
  Diffused diffused;
  diffuser_.Process(extracted.ambience, diffused);

  const float diffuse = kDiffuseGain * decorrelation_, dry = 1.0f - decorrelation_;
  const float side_share = 1.0f - back_share_;
  const float side_dry = dry * side_share, back_dry = dry * back_share_;
  const float side_diffuse = diffuse * std::sqrt(side_share);
  const float back_diffuse = diffuse * std::sqrt(back_share_);
  const float wide = wide_amount_, narrow = 1.0f - wide;
  const float* gain = plane_gain_;
  for (int ear = 0; ear < 2; ++ear) {
    const float* delayed = (ear == 0 ? left_ : right_).Last(kHopFrames + kUpmixLatencyFrames);
    const float* ambience = extracted.ambience[ear];
    float *front_out = out[kFL + ear], *side_out = out[kSL + ear], *back_out = out[kBL + ear];
    for (int n = 0; n < kHopFrames; n += kLanes) {
      const Vec ambient = Load<Vec>(ambience + n);
      const Vec front = Load<Vec>(delayed + n) - Load<Vec>(extracted.common + n) - ambient;
      const Vec side = side_dry * ambient + side_diffuse * Load<Vec>(diffused.side[ear] + n);
      const Vec back = back_dry * ambient + back_diffuse * Load<Vec>(diffused.back[ear] + n);
      Store<Vec>(front_out + n, gain[kFL + ear] * narrow * front);
      Store<Vec>(side_out + n, gain[kSL + ear] * (side + wide * front));
      Store<Vec>(back_out + n, gain[kBL + ear] * back);
    }
  }
#pragma omp simd
  for (int n = 0; n < kHopFrames; ++n) {
    out[kFC][n] = gain[kFC] * static_cast<float>(kSqrt2) * extracted.common[n];
  }
}

}  // namespace kelda::upmix_lib
