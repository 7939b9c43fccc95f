// What an upmix does to a part of a mix, plane by plane.
#ifndef KELDA_TOOLS_MEASURE_PLANE_FIGURES_H_
#define KELDA_TOOLS_MEASURE_PLANE_FIGURES_H_

#include <array>
#include <span>

#include "tools/measure/stereo_system.h"

namespace kelda::tools {

// Takes stereo; its seven planes lie over what went in.
using Upmix = StereoSystem;

// What becomes of a stem in a mix, by plane: what comes out of the mix less what comes out of
// the mix with the stem's sign turned, halved. Whatever else changes from one run to the other
// counts as the stem's, so that gains which follow the stem's sign are not hidden.
Channels StemByPlane(const Upmix& upmix, const Channels& mix, const Channels& stem);

// The shares of a stem's power by plane; they sum to 1.
std::array<double, 7> Shares(const Channels& by_plane);

// The kurtosis of the powers of the short-time spectrum (512 points), each bin for itself, 300 Hz
// to 10 kHz: the mean over the bins of its logarithm. Isolated peaks that come and go, which are
// heard as musical noise, raise it (Uemura et al., "Automatic optimization scheme of spectral
// subtraction based on musical noise assessment via higher-order statistics", 2008).
// The signal's first second does not count.
double LogKurtosis(std::span<const float> signal);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_PLANE_FIGURES_H_
