// The default ears: the MIT KEMAR measurements, made ready for headphones.
#ifndef KELDA_TOOLS_KEMAR_HRIRS_H_
#define KELDA_TOOLS_KEMAR_HRIRS_H_

#include <string>

#include "upmix-lib/hrir_set.h"

namespace kelda::tools {

inline constexpr int kKemarTaps = 256;

// Makes the HRIRs of the seven planes, at 48 kHz, from the SOFA file of Gardner and
// Martin, "HRTF measurements of a KEMAR", 1995:
//
//   measured --+--> magnitudes / diffuse-field mean --> less colour --> minimum phase --+
//              +--> interaural delay ----------------------> delays the farther ear ---+--> taps
//
// - The power mean over the sphere takes the loudspeaker, the microphone and the ear
//   canal out, so that headphones with a diffuse-field target sound neutral (Theile, "On
//   the standardization of the frequency response of high-quality studio headphones",
//   1986).
// - Half of the colour that a direction gives to both ears alike is taken out, the
//   difference between the ears is kept (Merimaa, "Modification of HRTF filters to reduce
//   timbral effects in binaural synthesis", 2009).
// - Minimum phase and one delay stand for the measured phase (Kistler and Wightman, "A
//   model of head-related transfer functions based on principal components analysis and
//   minimum-phase reconstruction", 1992). The nearer ear has no delay at all: the
//   virtualizer adds no latency.
// - The left and the right half of the head are made alike.
// - Level: the power of both ears together is that of the source, averaged over the
//   sphere.
//
// The set has the default room. Throws Failure (kInput).
upmix_lib::HrirSet MakeKemarHrirs(const std::string& sofa_path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_KEMAR_HRIRS_H_
