#include "upmix-lib/upmix/powers.h"

#include <algorithm>
#include <cmath>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/input_guard.h"

namespace kelda::upmix_lib {
namespace {

constexpr float kShortMs = 10.0f;
// A band whose power of one hop is so many times its mean has an onset.
constexpr float kOnsetRatio = 4.0f;

constexpr float kLateDecayMs = 300.0f;
// Late power re the present one, at most: a reverberation is a part of what is there.
constexpr float kMostLate = 2.0f;

template <int kPadded>
void Multiply(const SpectrumOf<kPadded>& left, const SpectrumOf<kPadded>& right, float* ll,
              float* rr, float* lr) {
#pragma omp simd
  for (int k = 0; k < kPadded; ++k) {
    ll[k] = left.re[k] * left.re[k] + left.im[k] * left.im[k];
    rr[k] = right.re[k] * right.re[k] + right.im[k] * right.im[k];
    lr[k] = left.re[k] * right.re[k] + left.im[k] * right.im[k];
  }
}

// Sums of the long bins around each short one.
void SumLongBins(const float* long_bins, float* short_bins) {
  constexpr int kBefore = kLongPerShort / 2;
  static_assert(kLongPerShort == 4);
  short_bins[0] = long_bins[0] + long_bins[1];
  for (int k = 1; k < 4; ++k) {
    const float* from = long_bins + kLongPerShort * k - kBefore;
    short_bins[k] = from[0] + from[1] + from[2] + from[3];
  }
  for (int k = 4; k < kShortBins - 1; k += 4) {
    Vec4 columns[4];
    LoadTransposed(long_bins + kLongPerShort * k - kBefore, kLongPerShort, columns);
    Store(short_bins + k, columns[0] + columns[1] + (columns[2] + columns[3]));
  }
}

void SmoothAll(BandPowers& powers) {
  SmoothBands(powers.left);
  SmoothBands(powers.right);
  SmoothBands(powers.cross);
}

}  // namespace

float StepForTimeConstant(float milliseconds, int hops) {
  constexpr float kHopMs = 1000.0f * kHopFrames / static_cast<float>(kSampleRateHz);
  return 1.0f - std::exp(-kHopMs * static_cast<float>(hops) / milliseconds);
}

ShortPowers::ShortPowers() : step_(StepForTimeConstant(kShortMs, 1)) {}

void ShortPowers::Update(const ShortSpectrum& left, const ShortSpectrum& right) {
  alignas(kSimdAlignmentBytes) float ll[kPaddedShortBins], rr[kPaddedShortBins],
      lr[kPaddedShortBins];
  Multiply(left, right, ll, rr, lr);
  BandPowers now;
  SumBins(ll, now.left);
  SumBins(rr, now.right);
  SumBins(lr, now.cross);
  const float steady_step = step_;
#pragma omp simd
  for (int b = 0; b < kBands; ++b) {
    const float before = powers_.left[b] + powers_.right[b];
    const float after = now.left[b] + now.right[b];
    const float step = after > kOnsetRatio * before ? 1.0f : steady_step;
    const float l = powers_.left[b] + step * (now.left[b] - powers_.left[b]);
    const float r = powers_.right[b] + step * (now.right[b] - powers_.right[b]);
    const float c = powers_.cross[b] + step * (now.cross[b] - powers_.cross[b]);
    powers_.left[b] = l < kTinyPower ? 0.0f : l;
    powers_.right[b] = r < kTinyPower ? 0.0f : r;
    powers_.cross[b] = std::fabs(c) < kTinyPower ? 0.0f : c;
  }
}

bool ShortPowers::silent() const {
  return IsSilent(powers_.left.value, kBands) && IsSilent(powers_.right.value, kBands) &&
         IsSilent(powers_.cross.value, kBands);
}

BandPowers ShortPowers::Smooth() const {
  BandPowers smooth = powers_;
  SmoothAll(smooth);
  return smooth;
}

LongPowers::LongPowers()
    : late_step_(StepForTimeConstant(kLateDecayMs, kHopsPerLong * kUpdatesPerSnapshot)) {}

void LongPowers::Update(const LongSpectrum& left, const LongSpectrum& right, float step) {
#pragma omp simd
  for (int k = 0; k < kPaddedLongBins; ++k) {
    const float ll = left.re[k] * left.re[k] + left.im[k] * left.im[k];
    const float rr = right.re[k] * right.re[k] + right.im[k] * right.im[k];
    const float lr = left.re[k] * right.re[k] + left.im[k] * right.im[k];
    const float l = powers_.left[k] + step * (ll - powers_.left[k]);
    const float r = powers_.right[k] + step * (rr - powers_.right[k]);
    const float c = powers_.cross[k] + step * (lr - powers_.cross[k]);
    powers_.left[k] = l < kTinyPower ? 0.0f : l;
    powers_.right[k] = r < kTinyPower ? 0.0f : r;
    powers_.cross[k] = std::fabs(c) < kTinyPower ? 0.0f : c;
  }
  SumBands();
  if (++updates_ < kUpdatesPerSnapshot) {
    return;
  }
  updates_ = 0;
  const float late_step = late_step_;
  float* snapshot = snapshots_[oldest_];
  oldest_ = (oldest_ + 1) % kSnapshots;
#pragma omp simd
  for (int k = 0; k < kPaddedLongBins; ++k) {
    const float late = late_[k] + late_step * (snapshot[k] - late_[k]);
    const float now = 0.5f * (powers_.left[k] + powers_.right[k]);
    const float bounded = late < kMostLate * now ? late : kMostLate * now;
    late_[k] = bounded < kTinyPower ? 0.0f : bounded;
    snapshot[k] = now;
  }
}

void LongPowers::ForgetLate() {
  std::fill_n(late_, kPaddedLongBins, 0.0f);
  std::fill_n(&snapshots_[0][0], kSnapshots * kPaddedLongBins, 0.0f);
}

bool LongPowers::silent() const {
  bool silent = IsSilent(late_, kPaddedLongBins) && IsSilent(powers_.left, kPaddedLongBins) &&
                IsSilent(powers_.right, kPaddedLongBins) &&
                IsSilent(powers_.cross, kPaddedLongBins);
  for (const auto& snapshot : snapshots_) {
    silent = silent && IsSilent(snapshot, kPaddedLongBins);
  }
  return silent;
}

void LongPowers::SumBands() {
  alignas(kSimdAlignmentBytes) float bins[kPaddedShortBins] = {};
  SumLongBins(powers_.left, bins);
  SumBins(bins, bands_.left);
  SumLongBins(powers_.right, bins);
  SumBins(bins, bands_.right);
  SumLongBins(powers_.cross, bins);
  SumBins(bins, bands_.cross);
  SmoothAll(bands_);
}

}  // namespace kelda::upmix_lib
