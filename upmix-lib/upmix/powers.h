// The powers of the two channels and of what they share, as the two spectra of analysis.h show
// them: bin by bin from the long one, band by band and at once from the short one.
#ifndef KELDA_UPMIX_LIB_UPMIX_POWERS_H_
#define KELDA_UPMIX_LIB_UPMIX_POWERS_H_

#include "platform/nonblocking.h"
#include "upmix-lib/upmix/analysis.h"
#include "upmix-lib/upmix/bands.h"

namespace kelda::upmix_lib {

// Powers below are taken for silence before they turn denormal.
inline constexpr float kTinyPower = 1e-15f;
// Where gains begin to hold their values: about -110 dB re full scale.
inline constexpr float kQuietPower = 1e-7f;

// The one-pole step for a time constant, once in `hops` hops. Control.
float StepForTimeConstant(float milliseconds, int hops);

// Mean powers of left and of right, and of the real part of their product.
struct BandPowers {
  BandValues left, right, cross;
};
struct alignas(kSimdAlignmentBytes) BinPowers {
  float left[kPaddedLongBins];
  float right[kPaddedLongBins];
  float cross[kPaddedLongBins];
};

// Of the last 10 ms. A band that grows suddenly is followed at once.
class ShortPowers {
 public:
  ShortPowers();

  // Takes the spectra of one hop. Audio.
  void Update(const ShortSpectrum& left, const ShortSpectrum& right) KELDA_NONBLOCKING;

  // Whether all powers are 0. Audio.
  bool silent() const KELDA_NONBLOCKING;

  // Each band mixed with its neighbours, so that none is narrower than 190 Hz. Audio.
  BandPowers Smooth() const KELDA_NONBLOCKING;

 private:
  float step_;
  BandPowers powers_ = {};
};

// Of a longer time, and what of it may still sound as reverberation.
class LongPowers {
 public:
  LongPowers();

  // Takes the spectra of one hop in kHopsPerLong; `step` is that of the averages, (0, 1].
  // Audio.
  void Update(const LongSpectrum& left, const LongSpectrum& right, float step) KELDA_NONBLOCKING;

  // What Update would do in silence once silent(): only the times of snapshots go on. Audio.
  void UpdateSilent() { updates_ = (updates_ + 1) % kUpdatesPerSnapshot; }

  // Forgets what late() was made from. Audio.
  void ForgetLate() KELDA_NONBLOCKING;

  // Whether all powers, present and past, are 0. Audio.
  bool silent() const KELDA_NONBLOCKING;

  // Audio.
  const BinPowers& powers() const { return powers_; }

  // The same over the bands of ShortPowers::Smooth. Audio.
  const BandPowers& bands() const { return bands_; }

  // The mean of both channels' past powers, 60 ms ago and older, less of them the older they
  // are: e times less 0.3 s ago. More than that in a bin is not its reverberation (K.
  // Lebart, J.-M. Boucher, P. Denbigh, "A new method based on spectral subtraction for
  // speech dereverberation", Acta Acustica 87, 2001). At most twice the present power: when the
  // sound falls, what has gone cannot be in it. kPaddedLongBins values. Audio.
  const float* late() const { return late_; }

 private:
  // Snapshots for late() are taken every so many updates; the oldest is some 60 ms old when it
  // counts.
  static constexpr int kUpdatesPerSnapshot = 4;
  static constexpr int kSnapshots = 3;

  void SumBands();

  BinPowers powers_ = {};
  BandPowers bands_ = {};
  alignas(kSimdAlignmentBytes) float snapshots_[kSnapshots][kPaddedLongBins] = {};
  alignas(kSimdAlignmentBytes) float late_[kPaddedLongBins] = {};
  float late_step_;
  int oldest_ = 0;   // Of snapshots_.
  int updates_ = 0;  // Since the last snapshot.
};

inline constexpr int kHopsPerLong = 4;

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_POWERS_H_
