// What the upmix does to the stems of mixes, plane by plane, as figures of the table.
#ifndef KELDA_ASSURANCE_SOUND_PLANE_TABLE_H_
#define KELDA_ASSURANCE_SOUND_PLANE_TABLE_H_

#include "assurance/sound/figure.h"
#include "assurance/sound/mixes.h"
#include "tools/measure/plane_figures.h"

namespace kelda::sound {

// Of each mix: stems hard to a side, in their own front plane and in the centre; the centre's
// SI-SDR; ambience in the surround planes.
std::vector<Figure> MixFigures(const tools::Upmix& upmix, const Mix& mix);

// Of signals that are made: doubled guitars (`guitar` is mono), ambience, attacks, lone sources.
std::vector<Figure> MadeFigures(const tools::Upmix& upmix, const Signal& guitar);

// Of the planes of cinema: a lone source hard left, and stems hard to a side in a mix. The figures'
// names begin with "cinema: ".
std::vector<Figure> CinemaPlaneFigures(const tools::Upmix& cinema, const std::vector<Mix>& mixes);

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_PLANE_TABLE_H_
