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
//   control.ContinueWith(others);      // control thread, while no block is processed
//
// "Control" and "Audio" name the calling thread, see base/audio_format.h.
//
//
//   in --guard, x fixed gain--+------------ x gain --> limiter --> out, kLevelLatencyFrames later
//                             |                ^
//                             `--loudness--> gain: slow, but quick at the start and after a jump
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

  // The limiter's least gain in the last block, for measurements. Audio.
  float limiter_gain() const { return limiter_.least_gain(); }

  // Goes on with other parameters, or in another stream: forgets the audio, and keeps the gain
  // and the loudness of the programme, so that nobody hears the levelling begin again. Where the
  // fixed gain is another, both are as if it had been so all along. Control.
  void ContinueWith(const LevelParameters& parameters);

 private:
  // The programme must be this long before the gain follows it, unless it is quick.
  static constexpr double kEvidenceS = 1.0;

  // A jump: the last 400 ms are louder by this much than the programme so far, and come out
  // louder by this much than they should.
  static constexpr double kJumpDb = 6.0;

  static constexpr int kQuickHopsAtStart = 15;
  static constexpr int kQuickHopsAfterJump = 10;
  // Hops after a jump in which the last 400 ms still reach back before it, and in which it may
  // turn out to have been a burst.
  static constexpr int kReachingBackHops = 4;
  static constexpr int kBurstHops = 14;

  double GainFor(double loudness_lufs) const;
  Pace CurrentPace() const;
  void FollowJump();
  void EndHop();

  LevelParameters parameters_;
  float input_gain_;
  LoudnessMeter meter_;
  LevelGain gain_;
  double wanted_gain_db_ = 0;
  int quick_hops_ = kQuickHopsAtStart;    // to come, of sound
  int hops_since_jump_ = kBurstHops;      // at most kBurstHops
  double loudness_before_jump_lufs_ = 0;  // of the programme
  Limiter limiter_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_LEVEL_LEVEL_CONTROL_H_
