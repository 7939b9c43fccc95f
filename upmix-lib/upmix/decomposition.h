// Splits a stereo spectrum into direct sound and ambience, band by band.
//
// The model of a band is one source, amplitude-panned by (a, b) with a^2 + b^2 = 1,
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
#ifndef KELDA_UPMIX_LIB_UPMIX_DECOMPOSITION_H_
#define KELDA_UPMIX_LIB_UPMIX_DECOMPOSITION_H_

#include "platform/nonblocking.h"
#include "upmix-lib/upmix/bands.h"

namespace kelda::upmix_lib {

struct DecompositionTuning {
  BandValues centre_amount;    // 0..1: share of the direct sound's common part
  BandValues ambience_amount;  // 0..1: share of the ambience
  BandValues power_step;       // one-pole step a hop of the power estimates, (0, 1]
  float gain_step;             // one-pole step a hop of the gains, (0, 1]
  float direct_emphasis;       // >= 1; see Steer
};

// Mean powers of a band: of left, of right, and the real part of their product.
struct BandPowers {
  BandValues left, right, cross;
};

// How the three extracted signals follow from the two inputs:
//   common         = centre_left * L + centre_right * R
//   left ambience  = ambience_left * L - ambience_cross * R
//   right ambience = ambience_right * R - ambience_cross * L
struct BandGains {
  BandValues centre_left, centre_right;
  BandValues ambience_left, ambience_right, ambience_cross;
};

// The gains for `powers`. Audio; control for the first ones.
//
// The direct share is beta = e r^2 / (1 + e r^2) for r = Ps / Pn and direct_emphasis e. It
// is steeper than the Wiener gain r / (1 + r): chance correlation of mere ambience
// (r about 0.4 with these averaging times) counts for little, and a source that stands
// out is kept from the ambience almost entirely. That costs at most the half of the
// ambience that has the source's direction, which stays with the source.
//
// The common part is what both channels have of the source: min(a, b) S. Taken out of
// both and played from a centre loudspeaker, it leaves a source that is panned between
// left and centre in just these two.
BandGains Steer(const BandPowers& powers, const DecompositionTuning& tuning) KELDA_NONBLOCKING;

// The spectra that Decomposition extracts.
struct DirectAndAmbience {
  Spectrum common, left_ambience, right_ambience;
};

// Follows the powers and smooths the gains over time. Powers that jump, as at the start
// of a note, take the gains along at once; silence leaves the gains as they were.
class Decomposition {
 public:
  // Begins with mid as direct and side as ambient. Control.
  explicit Decomposition(const DecompositionTuning& tuning);

  // Takes one hop of spectra. Audio.
  void Process(const Spectrum& left, const Spectrum& right,
               DirectAndAmbience& out) KELDA_NONBLOCKING;

  // Audio.
  const BandGains& gains() const { return gains_; }

 private:
  void FollowPowers(const Spectrum& left, const Spectrum& right, BandValues& gain_step);

  DecompositionTuning tuning_;
  BandPowers powers_ = {};
  BandGains gains_;
};

// The one-pole step a hop for a time constant. Control.
float StepForTimeConstant(float milliseconds);

// The steps of power estimates with a time constant at 1 kHz; it is longer in low bands,
// whose few bins need more averaging, and shorter in high ones. Control.
BandValues PowerSteps(float milliseconds_at_1khz);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_DECOMPOSITION_H_
