#include "upmix-lib/upmix/lag_search.h"

#include <algorithm>
#include <cmath>

#include "platform/math_constants.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/upmix/powers.h"

namespace kelda::upmix_lib {
namespace {

constexpr float kAverageMs = 400.0f;

// Lags that widen a sound. Closer ones are directions, as spaced microphones give; later ones
// are echoes.
constexpr int kShortestLag = 48, kLongestLag = 960;  // frames: 1 and 20 ms

// The bins that are compared, 94 Hz to 16 kHz. Below, all sound is alike at every lag.
constexpr int kFirstBin = 4, kEndBin = 683;

// A peak of the coherence over time from which on a lag counts, and at which it counts fully.
constexpr float kLeastPeak = 0.10f, kSurePeak = 0.20f;
// The same for a bin's coherence, its phase turned back by the lag.
constexpr float kLeastAlike = 0.15f, kSureAlike = 0.35f;
// How fast marks follow, once a search.
constexpr float kMarkStep = 0.15f;

}  // namespace

struct LagTables {
  float cosine[kLongFrames];  // of n / kLongFrames turns
  const RealFft& fft = SharedRealFft<kLongFrames>();

  LagTables() {
    for (int n = 0; n < kLongFrames; ++n) {
      cosine[n] = static_cast<float>(std::cos(2.0 * kPi * n / kLongFrames));
    }
  }
};

const LagTables* SharedLagTables() {
  static const LagTables tables;
  return &tables;
}

LagSearch::LagSearch() : step_(StepForTimeConstant(kAverageMs, kHopsPerLong)) {}

void LagSearch::Update(const LongSpectrum& left, const LongSpectrum& right) {
  const float step = step_;
  const auto follow = [step](float& mean, float now) {
    const float next = mean + step * (now - mean);
    mean = std::fabs(next) < kTinyPower ? 0.0f : next;
  };
#pragma omp simd
  for (int k = 0; k < kPaddedLongBins; ++k) {
    const float l_re = left.re[k], l_im = left.im[k], r_re = right.re[k], r_im = right.im[k];
    follow(left_[k], l_re * l_re + l_im * l_im);
    follow(right_[k], r_re * r_re + r_im * r_im);
    follow(cross_.re[k], l_re * r_re + l_im * r_im);
    follow(cross_.im[k], l_im * r_re - l_re * r_im);
  }
}

void LagSearch::Search() {
  LongSpectrum coherence = {};
  alignas(kSimdAlignmentBytes) float time[kLongFrames];
  alignas(kSimdAlignmentBytes) float scratch[RealFft::ScratchFloats(kLongFrames)];
#pragma omp simd
  for (int k = kFirstBin; k < kEndBin; ++k) {
    const float scale = 1.0f / (std::sqrt(left_[k] * right_[k]) + kQuietPower);
    coherence.re[k] = scale * cross_.re[k];
    coherence.im[k] = scale * cross_.im[k];
  }
  tables_->fft.Inverse(coherence.re, coherence.im, time, scratch);
  // Positive lags: the left channel is late. Negative ones lie at the other end.
  constexpr int kLags = kLongestLag + 1 - kShortestLag;
  const float* late_left = time + kShortestLag;
  const float* late_right = time + kLongFrames - kLongestLag;
  float highest = 0.0f;
  for (int n = 0; n < kLags; ++n) {
    highest = std::max(highest, std::max(late_left[n], late_right[n]));
  }
  const float peak = highest / static_cast<float>(2 * (kEndBin - kFirstBin));
  if (peak > kLeastPeak || marked_) {
    const float* found = std::find(late_left, late_left + kLags, highest);
    found = found != late_left + kLags ? found : std::find(late_right, late_right + kLags, highest);
    const int lag = static_cast<int>(found - time) % kLongFrames;
    Mark(coherence, lag, std::clamp((peak - kLeastPeak) / (kSurePeak - kLeastPeak), 0.0f, 1.0f));
  }
}

void LagSearch::Forget() {
  for (float* mean : {left_, right_, cross_.re, cross_.im, doubled_}) {
    std::fill_n(mean, kPaddedLongBins, 0.0f);
  }
  marked_ = false;
}

bool LagSearch::silent() const {
  return IsSilent(left_, kPaddedLongBins) && IsSilent(right_, kPaddedLongBins) &&
         IsSilent(cross_.re, kPaddedLongBins) && IsSilent(cross_.im, kPaddedLongBins) && !marked_;
}

void LagSearch::Mark(const LongSpectrum& coherence, int lag, float sure) {
  constexpr float kPerAlike = 1.0f / (kSureAlike - kLeastAlike);
  alignas(kSimdAlignmentBytes) float cosine[kEndBin], sine[kEndBin];
  for (int k = kFirstBin; k < kEndBin; ++k) {
    const unsigned turn = static_cast<unsigned>(k) * static_cast<unsigned>(lag);
    cosine[k] = tables_->cosine[turn % kLongFrames];
    sine[k] = tables_->cosine[(turn + kLongFrames * 3 / 4) % kLongFrames];
  }
#pragma omp simd
  for (int k = kFirstBin; k < kEndBin; ++k) {
    const float alike = coherence.re[k] * cosine[k] - coherence.im[k] * sine[k];
    float target = (alike - kLeastAlike) * kPerAlike;
    target = target > 0.0f ? target : 0.0f;
    target = target < 1.0f ? target : 1.0f;
    const float next = doubled_[k] + kMarkStep * (sure * target - doubled_[k]);
    doubled_[k] = next < 1e-4f ? 0.0f : next;
  }
  marked_ = !IsSilent(doubled_, kPaddedLongBins);
}

}  // namespace kelda::upmix_lib
