#include "upmix-lib/upmix/fixed_lag_filters.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "platform/math_constants.h"
#include "upmix-lib/transforms/complex_vec.h"

namespace kelda::upmix_lib {
namespace {

constexpr int kFilterTaps = FixedLagFilters::kTaps;
constexpr int kFadeIn = 80;    // taps of the future that are faded
constexpr int kFadeOut = 128;  // taps of the distant past that are

alignas(kSimdAlignmentBytes) constexpr float kNoPhase[kPaddedLongBins] = {};

}  // namespace

struct FilterTables {
  alignas(kSimdAlignmentBytes) float window[kFilterTaps];  // with the transforms' scales
  const RealFft& long_fft = SharedRealFft<kLongFrames>();
  const RealFft& hop_fft = SharedRealFft<kHopTransform>();

  FilterTables() {
    constexpr double kScale = 1.0 / (static_cast<double>(kLongFrames) * kHopTransform);
    for (int n = 0; n < kFilterTaps; ++n) {
      const double in = std::min(1.0, (n + 0.5) / kFadeIn);
      const double out = std::min(1.0, (kFilterTaps - n - 0.5) / kFadeOut);
      const double fade = (0.5 - 0.5 * std::cos(kPi * in)) * (0.5 - 0.5 * std::cos(kPi * out));
      window[n] = static_cast<float>(kScale * fade);
    }
  }
};

const FilterTables* SharedFilterTables() {
  static const FilterTables tables;
  return &tables;
}

FixedLagFilters::FixedLagFilters(const ExtractionGains& gains) {
  Design(gains, sets_[0]);
  sets_[1] = sets_[0];
}

void FixedLagFilters::Design(const ExtractionGains& gains, FilterSet& set) const {
  alignas(kSimdAlignmentBytes) float response[kLongFrames];
  alignas(kSimdAlignmentBytes) float taps[kFilterTaps];
  alignas(kSimdAlignmentBytes) float scratch[RealFft::ScratchFloats(kLongFrames)];
  alignas(kSimdAlignmentBytes) float padded[kHopTransform] = {};
  HopSpectrum spectrum;
  for (int curve = 0; curve < kCurves; ++curve) {
    tables_->long_fft.Inverse(gains.curve[curve], kNoPhase, response, scratch);
    const float sign = curve == kAmbienceCross ? -1.0f : 1.0f;
    const float* window = tables_->window;
    const float* future = response + kLongFrames - kUpmixLatencyFrames;
#pragma omp simd
    for (int n = 0; n < kUpmixLatencyFrames; ++n) {
      taps[n] = sign * window[n] * future[n];
    }
#pragma omp simd
    for (int n = kUpmixLatencyFrames; n < kFilterTaps; ++n) {
      taps[n] = sign * window[n] * response[n - kUpmixLatencyFrames];
    }
    for (int partition = 0; partition < kPartitions; ++partition) {
      std::copy_n(taps + partition * kHopFrames, kHopFrames, padded);
      spectrum.TransformOf(tables_->hop_fft, padded);
      float* to = set.rows + partition * kRowFloats + curve * 2 * kLanes;
      for (int group = 0; group < kHopBinGroups; ++group, to += kPartitions * kRowFloats) {
        Store(to, Load<Vec>(spectrum.re + group * kLanes));
        Store(to + kLanes, Load<Vec>(spectrum.im + group * kLanes));
      }
    }
  }
}

void FixedLagFilters::MoveTo(const ExtractionGains& gains, int hops) {
  FilterSet& now = sets_[1 - old_];
  if (share_ < 1.0f) {
    const FilterSet& old = sets_[old_];
    const float share = share_;
#pragma omp simd
    for (std::size_t i = 0; i < std::size(now.rows); ++i) {
      now.rows[i] = old.rows[i] + share * (now.rows[i] - old.rows[i]);
    }
  }
  old_ = 1 - old_;
  Design(gains, sets_[1 - old_]);
  share_ = 0.0f;
  share_step_ = 1.0f / static_cast<float>(hops);
}

void FixedLagFilters::Convolve(const FilterSet& set, Extracted& out) const {
  HopSpectrum sums[3];
  const float* row = set.rows;
  for (int group = 0; group < kHopBinGroups; ++group) {
    const int bin = group * kLanes;
    HopProducts common, left_ambience, right_ambience;
    for (int partition = 0; partition < kPartitions; ++partition, row += kRowFloats) {
      const HopSpectrum(&input)[2] = inputs_[partition];
      const Complex<Vec> left = {Load<Vec>(input[0].re + bin), Load<Vec>(input[0].im + bin)};
      const Complex<Vec> right = {Load<Vec>(input[1].re + bin), Load<Vec>(input[1].im + bin)};
      const auto filter = [row](Curve curve) { return row + curve * 2 * kLanes; };
      common.Add(left, filter(kCentreLeft));
      common.Add(right, filter(kCentreRight));
      left_ambience.Add(left, filter(kAmbienceLeft));
      left_ambience.Add(right, filter(kAmbienceCross));
      right_ambience.Add(right, filter(kAmbienceRight));
      right_ambience.Add(left, filter(kAmbienceCross));
    }
    common.StoreTo(sums[0], group);
    left_ambience.StoreTo(sums[1], group);
    right_ambience.StoreTo(sums[2], group);
  }
  sums[0].LastHop(tables_->hop_fft, out.common);
  sums[1].LastHop(tables_->hop_fft, out.ambience[0]);
  sums[2].LastHop(tables_->hop_fft, out.ambience[1]);
}

void FixedLagFilters::Process(const float* left, const float* right, Extracted& out) {
  inputs_.Append(tables_->hop_fft, {left, right});
  Convolve(sets_[1 - old_], out);
  if (share_ >= 1.0f) {
    return;
  }
  Extracted old;
  Convolve(sets_[old_], old);
  const float next = std::min(share_ + share_step_, 1.0f);
  const float slope = (next - share_) / kHopFrames;
  float* const new_rows[3] = {out.common, out.ambience[0], out.ambience[1]};
  const float* const old_rows[3] = {old.common, old.ambience[0], old.ambience[1]};
  for (int i = 0; i < 3; ++i) {
    float* to = new_rows[i];
    const float* from = old_rows[i];
#pragma omp simd
    for (int n = 0; n < kHopFrames; ++n) {
      const float share = share_ + slope * (static_cast<float>(n) + 1.0f);
      to[n] = from[n] + share * (to[n] - from[n]);
    }
  }
  share_ = next;
}

}  // namespace kelda::upmix_lib
