// The steps between a measured head-related impulse response and the taps that the
// virtualizer convolves with. Spectra of measurements are at their own sampling rate,
// those of taps at 48 kHz.
#ifndef KELDA_TOOLS_HRIR_SPECTRA_H_
#define KELDA_TOOLS_HRIR_SPECTRA_H_

#include <span>
#include <vector>

#include "tools/spectrum.h"

namespace kelda::tools {

// The mean over a band around each bin, as wide as a sixth of an octave: details finer
// than that are too fine for the ear's filters.
Power Smoothed(const Power& power);

// How much later than its minimum-phase part a response comes, in seconds: the peak of
// their cross-correlation, over the frequencies at which the ear uses the delay (Nam et
// al., "On the minimum-phase nature of head-related transfer functions", 2008).
double PureDelay_s(const SpectrumAnalysis& analysis, std::span<const float> taps,
                   double sample_rate_hz);

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

// Minimum-phase taps of `power`, `delay_s` late, cut to `count` with a fade over the last
// eighth.
CutTaps MakeTaps(const SpectrumAnalysis& tapped, const Power& power, double delay_s,
                 std::size_t count);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_HRIR_SPECTRA_H_
