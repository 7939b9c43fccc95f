// The steps from a measured head-related impulse response to the taps that the virtualizer
// convolves with. Spectra of measurements have the measurement's sampling rate, spectra of taps 48
// kHz.
#ifndef KELDA_TOOLS_EARS_HRIR_SPECTRA_H_
#define KELDA_TOOLS_EARS_HRIR_SPECTRA_H_

#include <cstddef>
#include <span>
#include <vector>

#include "tools/measure/spectrum.h"

namespace kelda::tools {

// The mean over a band of a sixth of an octave around each bin. Finer details are too fine for the
// ear's filters.
Power Smoothed(const Power& power);

// How much later `right` is than `left`, in seconds, from -kMaxLagS to kMaxLagS: the peak of the
// cross-correlation of their phases below 1.5 kHz. There the delay between the ears dominates
// localisation (Wightman and Kistler, "The dominant role of low-frequency interaural time
// differences in sound localization", 1992).
inline constexpr double kMaxLagS = 0.002;
double LagS(const Spectrum& left, const Spectrum& right, double bin_hz);

// Divides `power` by `diffuse`, both with the bins of `measured` at `sample_rate_hz`, and converts
// the result to the bins of `tapped` at 48 kHz. Loudspeaker and microphone are reliable in a
// limited range only: below it the gain goes to 1 (a head does not change the lowest frequencies),
// above it the last reliable gain is kept.
Power Equalized(const Power& power, const Power& diffuse, const SpectrumAnalysis& measured,
                double sample_rate_hz, const SpectrumAnalysis& tapped);

// Removes the share `share` (0..1, in decibels) of the colour that both ears have in common, and
// keeps the difference between the ears. The colour of other people's ears is heard as colour and
// not as direction (Merimaa, "Modification of HRTF filters to reduce timbral effects in binaural
// synthesis", 2009).
void TameColour(double share, Power* one_ear, Power* other_ear);

struct CutTaps {
  std::vector<float> taps;
  double lost;  // share of the response's energy that was cut off
};

// The minimum-phase spectrum of `power`, after `power` is made to fall by 60 dB from 20 kHz to half
// of the sampling rate. Without this fall, a delay by a fraction of a frame would make these
// frequencies ring for long.
Spectrum SoftMinimumPhase(const SpectrumAnalysis& tapped, const Power& power);

// The response of `spectrum`, delayed by `delay_s` and cut to `count` taps, of which the last
// eighth fades out.
CutTaps MakeTaps(const SpectrumAnalysis& tapped, const Spectrum& spectrum, double delay_s,
                 std::size_t count);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EARS_HRIR_SPECTRA_H_
