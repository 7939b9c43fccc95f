// The music upmix's tuning: from the parameter file's terms to those of the signal path.
#ifndef KELDA_UPMIX_LIB_UPMIX_MUSIC_UPMIX_H_
#define KELDA_UPMIX_LIB_UPMIX_MUSIC_UPMIX_H_

#include "upmix-lib/upmix/music_parameters.h"
#include "upmix-lib/upmix/plane_upmix.h"

namespace kelda::upmix_lib {

// `parameters` are within their ranges.
PlaneTuning MusicTuning(const MusicParameters& parameters);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_MUSIC_UPMIX_H_
