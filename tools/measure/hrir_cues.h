// The cues in a pair of head-related impulse responses that give a sound its direction.
#ifndef KELDA_TOOLS_MEASURE_HRIR_CUES_H_
#define KELDA_TOOLS_MEASURE_HRIR_CUES_H_

#include "upmix-lib/binaural/hrir_set.h"

namespace kelda::tools {

struct HrirCues {
  // How much earlier the left ear hears the sound: the peak of the cross-correlation of
  // both ears between 100 and 1500 Hz, where hearing uses the delay (Katz and Noisternig,
  // "A comparative study of interaural time delay estimation methods", 2014).
  double delay_us;
  double level_db;      // energy at the left ear relative to the right
  double peak_gain_db;  // the largest gain of either ear, 20 Hz to 20 kHz
  double peak_gain_hz;
};

HrirCues MeasureCues(const upmix_lib::HrirSet& set, int plane);

// "FL", "FR", "FC", "SL", "SR", "BL", "BR".
const char* PlaneName(int plane);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_HRIR_CUES_H_
