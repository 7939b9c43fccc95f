// Splits stereo into what both channels share, which goes to the centre, ambience, and the
// rest: decides about gains for every bin of the long spectrum.
//
// The model of a bin is one source, amplitude-panned by (a, b) with a^2 + b^2 = 1,
// over ambience of equal power and no correlation in both channels:
//
//   L = a S + N1        covariance  | P_LL P_LR |  = Ps | aa ab | + Pn | 1 0 |
//   R = b S + N2                    | P_LR P_RR |       | ab bb |      | 0 1 |
//
// Its eigenvalues are Ps + Pn and Pn, its first eigenvector is (a, b). The projection on
// it, weighted by how much direct sound there is, estimates the source; what is left is
// the ambience. (C. Avendano and J.-M. Jot, "A frequency-domain approach to multichannel
// upmix", JAES 52, 2004; C. Faller, "Multiple-loudspeaker playback of stereo signals",
// JAES 54, 2006; J. He, E.-L. Tan, W.-S. Gan, "Linear estimation based primary-ambient
// extraction for stereo audio signals", IEEE/ACM TASLP 22, 2014.) Opposite polarity in
// the channels counts as ambience.
//
// The long spectrum tells instruments apart but is late. So it is made to agree with the
// short one band by band where they differ a lot, and an attack is decided by the short one
// alone.
#ifndef KELDA_UPMIX_LIB_UPMIX_DECOMPOSITION_H_
#define KELDA_UPMIX_LIB_UPMIX_DECOMPOSITION_H_

#include "platform/nonblocking.h"
#include "upmix-lib/upmix/analysis.h"
#include "upmix-lib/upmix/fixed_lag_filters.h"
#include "upmix-lib/upmix/lag_search.h"
#include "upmix-lib/upmix/powers.h"

namespace kelda::upmix_lib {

// New gains every so many hops; at an attack at once. Within how many hops the filters follow.
inline constexpr int kHopsPerGains = 16;
inline constexpr int kHopsPerMove = 12;

struct DecompositionTuning {
  float centre_amount[kPaddedLongBins];    // 0..1: share of the common part
  float ambience_amount[kPaddedLongBins];  // 0..1: share of the ambience
  float power_ms;                          // time constant of the long powers
  float gain_ms;                           // time constant of the gains
  float direct_emphasis;                   // >= 1; see Steer
  // Found on mixes whose stems are known; DESIGN.md, "Direct or ambient" and "Centre".
  float centre_noise = 0.8f;     // of the smaller eigenvalue, what each channel has for itself
  float centre_caution = 0.25f;  // of the smaller eigenvalue, less common part by, in a dry mix
  float chance = 0.05f;          // squared contrast that mere chance gives, 0..1, in a diffuse mix
  float late_share = 0.84f;  // bound of the ambience, re the late reverberation, in a diffuse mix
};

// What the gains of a bin are decided by; kPaddedLongBins values each.
struct alignas(kSimdAlignmentBytes) Evidence {
  BinPowers powers;
  float late[kPaddedLongBins];
  float attack[kPaddedLongBins];   // 0..1
  float doubled[kPaddedLongBins];  // 0..1, see LagSearch
};

// What of the sound has no direction, summed over the bins: twice the smaller eigenvalue's share of
// the bin's power, 0..1. Each bin counts as far as it is not silent.
struct Diffuseness {
  float sum = 0.0f, weight = 0.0f;
};

// The gains for `evidence`, mixed into `gains` by `step`, 1 in an attack. Silence leaves the
// gains as they were. `reverberant`: 0 in a dry mix .. 1 in a diffuse one. Returns how diffuse the
// evidence is. Audio; control for the first ones.
//
// Ambience. The direct share is beta = e r^2 / (1 + e r^2) for r = Ps / Pn and direct_emphasis
// e. It is steeper than the Wiener gain r / (1 + r): a source that stands out is kept from the
// ambience almost entirely. That costs at most the half of the ambience that has the
// source's direction, which stays with the source. Averages of few samples look coherent by
// chance, hence `chance`. The ambience's power is bounded by that of late reverberation: what
// is new is not ambience even if the channels differ, as with two guitars at the sides. Nor is what
// one channel repeats some milliseconds after the other. In a dry mix what both channels do not
// share is rather two instruments that hold the same notes at either side, so the bound is lower
// there, and chance is not allowed for.
//
// The common part is what both channels have of a source, min(a, b) S: taken out of both
// and played from a centre loudspeaker, it leaves a source that is panned between left and
// centre in just these two. It is estimated by least squares from both channels (Wiener's
// solution for two inputs), which for one source is its projection, and beside another one
// that is panned hard takes the channel where that one is not. In a dry mix some of what both
// channels share is notes that two instruments at the sides share, so the centre has less of it.
Diffuseness Steer(const Evidence& evidence, const DecompositionTuning& tuning, float reverberant,
                  float step, ExtractionGains& gains) KELDA_NONBLOCKING;

class Decomposition {
 public:
  // Begins with mid as direct and side as ambient. Control.
  explicit Decomposition(const DecompositionTuning& tuning);

  // Takes one hop; returns within how many hops the filters are to move to gains(), 0 if these
  // have not changed. Audio.
  int Process(const Analysis& left, const Analysis& right) KELDA_NONBLOCKING;

  // After a long silence: forgets what is remembered longest, reverberation and lags. Audio.
  void ForgetPast() KELDA_NONBLOCKING;

  // What Process would do in silence once silent(): the gains rest, and only the grid of hops goes
  // on. Audio.
  void ProcessSilent() KELDA_NONBLOCKING;

  // Whether no power is left, present or past. Audio.
  bool silent() const KELDA_NONBLOCKING;

  // Any thread while Process does not run.
  const ExtractionGains& gains() const { return gains_; }

 private:
  // Band by band: how far short and long powers disagree.
  struct Corrections;
  void Compare(const BandPowers& now, Corrections& corrections) const;
  float FindAttacks(const BandPowers& now, BandValues& attack) const;
  void DecideGains(const Corrections& corrections, const BandValues& attacks);

  DecompositionTuning tuning_;
  float power_step_;
  float gain_step_[kHopsPerGains];  // after 1 .. kHopsPerGains hops
  float diffuseness_step_[kHopsPerGains];
  ShortPowers short_;
  LongPowers long_;
  LagSearch lags_;
  ExtractionGains gains_;
  float diffuseness_;  // of the mix: the mean over bins and the last second, 0..1
  int hop_ = 0;        // 0 .. kHopsPerGains-1
  int hops_since_gains_ = 0;
  int attack_credit_ = 0;  // gains for attacks that may still be decided, see Process
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_DECOMPOSITION_H_
