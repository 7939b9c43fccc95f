// Finds sound that both channels have, one of them some milliseconds later: an instrument that
// was doubled by a delay to make it wide. At a lag of 0 the two are no more alike than
// reverberation is, so without this it would count as ambience and go behind the listener. (A lag
// search before a pair counts as uncorrelated: J. Merimaa, M. M. Goodwin, J.-M. Jot,
// "Correlation-based ambience extraction from stereo recordings", AES convention 123, 2007.)
//
// Both channels' long spectra are averaged over 0.4 s. Their coherence, transformed back, has a
// peak at the lag of what is doubled (C. Knapp, G. Carter, "The generalized correlation method for
// estimation of time delay", IEEE TASSP 24, 1976). The peak is 0.3 to 0.4 for a lone doubled
// instrument and below 0.07 for reverberation and for music without one.
#ifndef KELDA_UPMIX_LIB_UPMIX_LAG_SEARCH_H_
#define KELDA_UPMIX_LIB_UPMIX_LAG_SEARCH_H_

#include "platform/nonblocking.h"
#include "upmix-lib/transforms/fft.h"
#include "upmix-lib/upmix/analysis.h"

namespace kelda::upmix_lib {

// Turns and transforms, as SharedAnalysisTables. Control. Throws std::bad_alloc.
struct LagTables;
const LagTables* SharedLagTables();

// Constructed on the control thread.
class LagSearch {
 public:
  LagSearch();

  // Takes the spectra of one hop in kHopsPerLong. Audio.
  void Update(const LongSpectrum& left, const LongSpectrum& right) KELDA_NONBLOCKING;

  // Looks for a lag, once in kHopsPerGains hops. Audio.
  void Search() KELDA_NONBLOCKING;

  // Forgets all sound. Audio.
  void Forget() KELDA_NONBLOCKING;

  // Whether there is nothing left to search in, and no mark. Audio.
  bool silent() const KELDA_NONBLOCKING;

  // How much of each bin is doubled sound, 0..1: kPaddedLongBins values. Audio.
  const float* doubled() const { return doubled_; }

 private:
  // Marks the bins whose `coherence` is alike at `lag` frames, as far as `sure`, 0..1, says.
  void Mark(const LongSpectrum& coherence, int lag, float sure);

  const LagTables* tables_ = SharedLagTables();
  float step_;
  alignas(kSimdAlignmentBytes) float left_[kPaddedLongBins] = {};
  alignas(kSimdAlignmentBytes) float right_[kPaddedLongBins] = {};
  LongSpectrum cross_ = {};  // left times the conjugate of right
  alignas(kSimdAlignmentBytes) float doubled_[kPaddedLongBins] = {};
  bool marked_ = false;  // Whether any of doubled_ is not 0.
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_LAG_SEARCH_H_
