#ifndef KELDA_UPMIX_LIB_LEVEL_LOUDNESS_METER_H_
#define KELDA_UPMIX_LIB_LEVEL_LOUDNESS_METER_H_

#include <array>
#include <cstddef>

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/level/k_weighting.h"

namespace kelda::upmix_lib {

// Running loudness of a stereo programme after ITU-R BS.1770-4 and EBU R 128: momentary
// loudness over 400 ms, every 100 ms, gated twice over a sliding window of them.
//
//   frames --K-weighting--> energy of 100 ms hops --4 hops--> momentary loudness
//      --above -70 LUFS--> window of momentary loudnesses --above their mean - 10 LU--> mean
//
// Where the Recommendation measures a whole programme, the window makes the measure
// follow one. Silence does not enter the window, so it freezes the measure; a pause of
// kPauseHops hops ends the programme, and the next one is measured from its start. So is what
// follows a jump of the level, if the level control says so.
class LoudnessMeter {
 public:
  static constexpr std::size_t kHopFrames = kSampleRateHz / 10;  // 100 ms
  static constexpr double kHopS = 0.1;
  static constexpr int kPauseHops = 10;
  static constexpr double kAbsoluteGateLufs = -70.0;
  static constexpr double kRelativeGateLu = -10.0;
  static constexpr double kMaxWindowS = 60.0;

  // `window_s`: 1..kMaxWindowS. Control.
  explicit LoudnessMeter(double window_s);

  // Takes in `count` interleaved stereo frames, at most kHopFrames, all finite; all of them 0 if
  // `silent`. Returns whether a hop has ended. Audio.
  bool Process(const float* frames, std::size_t count, bool silent) KELDA_NONBLOCKING;

  // Goes on with another stream of the same programme: forgets the audio of the running block
  // and keeps the window, of which the newest `window_s` count from now on, and how long a pause
  // has lasted. The programme comes with `gain` times its amplitude from now on. Control.
  void ContinueWith(double window_s, double gain = 1.0);

  // Measures from here on, without the blocks that reach back. What was measured is kept aside,
  // for TakeBackProgramme. Audio.
  void StartProgramme() KELDA_NONBLOCKING;

  // The programme goes on as if it had not been started anew: what was kept aside counts, too.
  // Audio.
  void TakeBackProgramme() KELDA_NONBLOCKING;

  // Whether the last 400 ms were above the absolute gate. Audio, as all of the following.
  bool sounding() const { return sounding_; }

  // Loudness of the last 400 ms, also of a block that reaches back before the programme's start.
  double MomentaryLufs() const KELDA_NONBLOCKING;

  // Length of the programme within the window.
  double programme_s() const { return kHopS * static_cast<double>(size_); }

  // Gated loudness of the programme within the window, which must not be empty.
  double LoudnessLufs() const KELDA_NONBLOCKING;

  // Largest sample of the programme within the window, as an amplitude.
  float Peak() const KELDA_NONBLOCKING;

 private:
  static constexpr std::size_t kHopsPerBlock = 4;
  static constexpr std::size_t kMaxHops = 600;  // of kMaxWindowS

  void EndHop();

  // The window's entry `age` blocks ago.
  std::size_t Index(std::size_t age) const { return (next_ + kMaxHops - 1 - age) % kMaxHops; }

  KWeighting weighting_;
  std::size_t hop_frames_ = 0;  // of the running hop
  double hop_energy_ = 0;
  float hop_peak_ = 0;
  std::array<double, kHopsPerBlock> hops_{};  // energies of the last hops, cyclic
  std::size_t newest_hop_ = 0;
  double momentary_power_ = 0;
  bool sounding_ = false;
  int silent_hops_ = 0;
  std::size_t incomplete_blocks_ = kHopsPerBlock - 1;  // to come, that begin in a pause
  std::size_t window_hops_;
  std::array<double, kMaxHops> powers_{};  // of momentary blocks, cyclic; mean squares
  std::array<float, kMaxHops> peaks_{};    // of their newest hops
  std::size_t size_ = 0;                   // entries of both that count, the newest
  std::size_t set_aside_ = 0;              // entries before them, of before StartProgramme
  std::size_t next_ = 0;                   // where the next entry goes
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_LEVEL_LOUDNESS_METER_H_
