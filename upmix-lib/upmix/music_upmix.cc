#include "upmix-lib/upmix/music_upmix.h"

#include <algorithm>

#include "upmix-lib/base/decibels.h"

namespace kelda::upmix_lib {

PlaneTuning MusicTuning(const MusicParameters& parameters) {
  PlaneTuning tuning;
  DecompositionTuning& decomposition = tuning.decomposition;
  for (int b = 0; b < kBands; ++b) {
    decomposition.centre_amount[b] = parameters.centre_amount;
    decomposition.ambience_amount[b] =
        parameters.ambience_amount * HighPassShare(BandHz(b), parameters.bass_crossover_hz);
  }
  decomposition.power_step = PowerSteps(parameters.coherence_smoothing_ms);
  decomposition.gain_step = StepForTimeConstant(parameters.gain_smoothing_ms);
  decomposition.direct_emphasis = parameters.direct_emphasis;
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
