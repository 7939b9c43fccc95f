// The steps between a measured head-related impulse response and the taps that the
// virtualizer convolves with. Spectra of measurements are at their own sampling rate,
// those of taps at 48 kHz.
#ifndef KELDA_TOOLS_EARS_HRIR_SPECTRA_H_
#define KELDA_TOOLS_EARS_HRIR_SPECTRA_H_

#include <span>
#include <vector>

#include "tools/measure/spectrum.h"

namespace kelda::tools {

// The mean over a band around each bin, as wide as a sixth of an octave: details finer
// than that are too fine for the ear's filters.
Power Smoothed(const Power& power);

// How much later `right` comes than `left`, in seconds, at most kMaxLag_s either way: the
// peak of the cross-correlation of their phases below 1.5 kHz, where the delay between the
// ears rules localisation (Wightman and Kistler, "The dominant role of low-frequency
// interaural time differences in sound localization", 1992).
inline constexpr double kMaxLag_s = 0.002;
double Lag_s(const Spectrum& left, const Spectrum& right, double bin_hz);

// Equalises `power` by `diffuse`, both of `measured` bins at `sample_rate_hz`, and brings
// it to the bins of `tapped` at 48 kHz. Outside the range in which loudspeaker and
// microphone tell anything, the lowest frequencies pass the head unchanged and the highest
// stay as they were.
Power Equalized(const Power& power, const Power& diffuse, const SpectrumAnalysis& measured,
                double sample_rate_hz, const SpectrumAnalysis& tapped);

// Takes `share` (0..1) out, in decibels, of what both ears together hear louder or softer
// than from all around, and leaves their difference alone: colour that is not the
// listener's own is heard as colour rather than as direction (Merimaa, "Modification of
// HRTF filters to reduce timbral effects in binaural synthesis", 2009).
void TameColour(double share, Power* one_ear, Power* other_ear);

struct CutTaps {
  std::vector<float> taps;
  double lost;  // share of the response's energy that the cut took off
};

// The minimum-phase spectrum of `power`, which is made to fall by 60 dB from 20 kHz to half
// of the sampling rate: what a delay by a part of a frame does to frequencies there would
// ring for long.
Spectrum SoftMinimumPhase(const SpectrumAnalysis& tapped, const Power& power);

// The response of `spectrum`, `delay_s` late, cut to `count` taps with a fade over the last
// eighth.
CutTaps MakeTaps(const SpectrumAnalysis& tapped, const Spectrum& spectrum, double delay_s,
                 std::size_t count);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EARS_HRIR_SPECTRA_H_
