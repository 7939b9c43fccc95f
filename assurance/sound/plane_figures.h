// What the upmix does to the stems of mixes, plane by plane.
#ifndef KELDA_ASSURANCE_SOUND_PLANE_FIGURES_H_
#define KELDA_ASSURANCE_SOUND_PLANE_FIGURES_H_

#include <array>

#include "assurance/sound/figure.h"
#include "assurance/sound/mixes.h"

namespace kelda::sound {

using Upmix = std::function<Planes(const Planes& stereo)>;

// What becomes of a stem in a mix, by plane: what comes out of the mix less what comes out of
// the mix with the stem's sign turned, halved. Whatever else changes from one run to the other
// counts as the stem's, so that gains which follow the stem's sign are not hidden.
Planes StemByPlane(const Upmix& upmix, const Planes& mix, const Planes& stem);

// The shares of a stem's power by plane; they sum to 1.
std::array<double, 7> Shares(const Planes& by_plane);

// Of each mix: stems hard to a side, in their own front plane and in the centre; the centre's
// SI-SDR; ambience in the surround planes.
std::vector<Figure> MixFigures(const Upmix& upmix, const Mix& mix);

// Of signals that are made: doubled guitars (`guitar` is mono), ambience, attacks, lone sources.
std::vector<Figure> MadeFigures(const Upmix& upmix, const Signal& guitar);

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_PLANE_FIGURES_H_
