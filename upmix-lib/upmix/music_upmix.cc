#include "upmix-lib/upmix/music_upmix.h"

#include <algorithm>

#include "upmix-lib/base/decibels.h"

namespace kelda::upmix_lib {
PlaneTuning MusicTuning(const MusicParameters& parameters) {
  PlaneTuning tuning;
  DecompositionTuning& decomposition = tuning.decomposition;
  for (int k = 0; k < kPaddedLongBins; ++k) {
    decomposition.centre_amount[k] = parameters.centre_amount;
    decomposition.ambience_amount[k] = parameters.ambience_amount;
  }
  decomposition.power_ms = parameters.coherence_smoothing_ms;
  decomposition.gain_ms = parameters.gain_smoothing_ms;
  decomposition.direct_emphasis = parameters.direct_emphasis;
  tuning.bass_crossover_hz = parameters.bass_crossover_hz;
  tuning.back_share = parameters.back_share;
  tuning.decorrelation = parameters.decorrelation;
  tuning.wide_amount = parameters.wide_amount;

  const float output = AmplitudeFromDb(parameters.output_gain_db);
  const float centre = output * AmplitudeFromDb(parameters.centre_level_db);
  const float surround = output * AmplitudeFromDb(parameters.surround_level_db);
  const float gains[kPlanes] = {output, output, centre, surround, surround, surround, surround};
  std::copy_n(gains, kPlanes, tuning.plane_gain);
  return tuning;
}

}  // namespace kelda::upmix_lib
