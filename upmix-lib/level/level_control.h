#ifndef KELDA_UPMIX_LIB_LEVEL_LEVEL_CONTROL_H_
#define KELDA_UPMIX_LIB_LEVEL_LEVEL_CONTROL_H_

#include "platform/nonblocking.h"
#include "upmix-lib/level/level_gain.h"
#include "upmix-lib/level/level_parameters.h"
#include "upmix-lib/level/limiter.h"
#include "upmix-lib/level/loudness_meter.h"

namespace kelda::upmix_lib {

// The level control: loudness levelling, then limiting, of interleaved stereo.
//
//   LevelParameters parameters = DefaultParameters<LevelParameters>(kLevelKind, kLevelFields);
//   LevelControl control(parameters);  // control thread
//   control.Process(in, out);          // audio thread, each block
//
// "Control" and "Audio" name the calling thread, see base/audio_format.h.
//
//
//   in --guard--+------------ x gain --> limiter --> out, kLevelLatencyFrames later
//               |                ^
//               `--loudness--> gain, slow
//
// Allocates nothing and needs no destructor, so that it can live in memory that the caller
// owns and releases.
class LevelControl {
 public:
  // `parameters` has passed the checks of its kind. Control.
  explicit LevelControl(const LevelParameters& parameters);

  // Processes kBlockFrames interleaved frames. Samples that are NaN, infinite or huge count
  // as silence. in and out do not overlap. Audio.
  void Process(const float* in, float* out) KELDA_NONBLOCKING;

 private:
  // The programme must be this long before the gain follows it.
  static constexpr double kEvidenceS = 1.0;

  void UpdateWantedGain();

  LevelParameters parameters_;
  LoudnessMeter meter_;
  LevelGain gain_;
  double wanted_gain_db_ = 0;
  Limiter limiter_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_LEVEL_LEVEL_CONTROL_H_
