// The music upmix: a PlaneUpmix, tuned by the values of a parameter file.
//
//   PlaneUpmix upmix(MusicTuning(parameters));  // control thread
//   upmix.Process(in, out);                     // audio thread, 64 frames of 2 and of 7 planes
//
// "Control" and "Audio" name the calling thread, see base/audio_format.h.
#ifndef KELDA_UPMIX_LIB_UPMIX_MUSIC_UPMIX_H_
#define KELDA_UPMIX_LIB_UPMIX_MUSIC_UPMIX_H_

#include "upmix-lib/upmix/music_parameters.h"
#include "upmix-lib/upmix/plane_upmix.h"

namespace kelda::upmix_lib {

// `parameters` are within their ranges. Control.
PlaneTuning MusicTuning(const MusicParameters& parameters);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_MUSIC_UPMIX_H_
