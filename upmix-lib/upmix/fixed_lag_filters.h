// Gains over frequency, applied with little delay: filters that are long towards the past and
// short towards the future.
//
//   gains --> zero-phase response --> 96 taps of the future, faded in,
//                                     928 of the past                  --> 16 partitions of 64
//   L, R --> spectra of the last 16 hops --x partitions, summed--> three outputs
//
// A gain curve with fine structure is a long response, symmetric in time. Of its half that lies
// in the future only kUpmixLatencyFrames can be had. Cutting both halves there, as overlapped
// short windows do, leaves no more resolution than such a window has; here the past keeps
// all of it. (For noise-like signals the cut response is the best causal filter with this
// delay: T. Kailath, A. Sayed, B. Hassibi, "Linear Estimation", 2000, fixed-lag smoothing.) A gain
// of 1 is an exact delay. The cut is faded, since it would turn any change of a gain into
// lines beside a tone.
//
// Outputs of the old and of the new filters are crossfaded. There is no grid of hops whose
// rate could show in the sound: what is left is how fast the gains themselves change.
#ifndef KELDA_UPMIX_LIB_UPMIX_FIXED_LAG_FILTERS_H_
#define KELDA_UPMIX_LIB_UPMIX_FIXED_LAG_FILTERS_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/transforms/fft.h"
#include "upmix-lib/upmix/analysis.h"
#include "upmix-lib/upmix/hop_spectra.h"

namespace kelda::upmix_lib {

// Gains of the bins of LongSpectrum. How the three extracted signals follow from the inputs:
//   common         = centre_left * L + centre_right * R
//   left ambience  = ambience_left * L - ambience_cross * R
//   right ambience = ambience_right * R - ambience_cross * L
enum Curve { kCentreLeft, kCentreRight, kAmbienceLeft, kAmbienceRight, kAmbienceCross, kCurves };
struct alignas(kSimdAlignmentBytes) ExtractionGains {
  float curve[kCurves][kPaddedLongBins];
};

// What is extracted: kHopFrames frames of each.
struct alignas(kSimdAlignmentBytes) Extracted {
  float common[kHopFrames];
  float ambience[2][kHopFrames];  // left, right
};

// Windows and transforms, as SharedAnalysisTables. Control. Throws std::bad_alloc.
struct FilterTables;
const FilterTables* SharedFilterTables();

class FixedLagFilters {
 public:
  static constexpr int kPartitions = 16;
  static constexpr int kTaps = kPartitions * kHopFrames;

  // Begins with `gains`. Control.
  explicit FixedLagFilters(const ExtractionGains& gains);

  // Moves from what the filters are now to `gains` within the next `hops` calls of Process,
  // 1 or more. Audio.
  void MoveTo(const ExtractionGains& gains, int hops) KELDA_NONBLOCKING;

  // `left` and `right`: the last 2 * kHopFrames frames; writes the next kHopFrames frames of
  // output, kUpmixLatencyFrames behind them. Audio.
  void Process(const float* left, const float* right, Extracted& out) KELDA_NONBLOCKING;

 private:
  // [group of kLanes bins][partition][curve][re, im][kLanes]; kAmbienceCross with its minus sign
  static constexpr int kRowFloats = kCurves * 2 * kLanes;
  struct alignas(kSimdAlignmentBytes) FilterSet {
    float rows[kHopBinGroups * kPartitions * kRowFloats];
  };

  void Design(const ExtractionGains& gains, FilterSet& set) const KELDA_NONBLOCKING;
  void Convolve(const FilterSet& set, Extracted& out) const KELDA_NONBLOCKING;

  const FilterTables* tables_ = SharedFilterTables();
  HopSpectra<2, kPartitions> inputs_;
  FilterSet sets_[2];
  int old_ = 0;              // Of sets_; the other is the new one.
  float share_ = 1.0f;       // Of the new set, now.
  float share_step_ = 0.0f;  // A hop.
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_FIXED_LAG_FILTERS_H_
