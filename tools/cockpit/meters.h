// What the cockpit shows of a signal. Stereo is interleaved, at 48 kHz.
#ifndef KELDA_TOOLS_COCKPIT_METERS_H_
#define KELDA_TOOLS_COCKPIT_METERS_H_

#include <array>
#include <cstddef>
#include <vector>

#include "tools/core/json.h"
#include "upmix-lib/level/k_weighting.h"
#include "upmix-lib/level/true_peak.h"

namespace kelda::tools {

// Loudness of the last seconds, by ITU-R BS.1770-4 without its gates, in hops of 100 ms.
class RunningLoudness {
 public:
  static constexpr std::size_t kHopFrames = 4800;
  static constexpr std::size_t kMostHops = 80;
  static constexpr std::size_t kMomentaryHops = 4, kShortHops = 30;

  // All samples are finite.
  void Add(const float* stereo, std::size_t frames);
  // Measures from here on.
  void Restart();
  // Whole hops so far, at most kMostHops.
  std::size_t hops() const { return count_; }
  // In LUFS, of the last `hops`, 1 to hops(); -infinity for silence.
  double Lufs(std::size_t hops) const;

 private:
  upmix_lib::KWeighting weighting_;
  std::array<double, kMostHops> energies_{};  // cyclic
  std::size_t next_ = 0, count_ = 0;
  std::size_t frames_ = 0;  // of the hop that is not whole yet
  double energy_ = 0;
};

class SignalMeter {
 public:
  // All samples are finite.
  void Add(const float* stereo, std::size_t frames);

  // {"momentary","short","true_peak","correlation","balance","spectrum"}: LUFS; dBTP since the last
  // call; of the last 400 ms the correlation of left and right and their balance, -1 (all left) to
  // 1, by power; the power of both channels in third octaves from 20 Hz to 20 kHz, in dB of full
  // scale, of a Hann window of 8192 frames. null where there is nothing.
  Json Take();

 private:
  static constexpr std::size_t kWindowFrames = 8192;
  static constexpr std::size_t kShownFrames = 19200;  // 400 ms

  Json Spectrum() const;

  RunningLoudness loudness_;
  upmix_lib::TruePeak true_peak_;
  std::vector<float> waiting_;  // for the peak meter, which looks ahead and back
  std::vector<float> last_ = std::vector<float>(2 * kShownFrames);  // cyclic
  std::size_t at_ = 0;                                              // frames, of last_
  float peak_ = 0;
};

// "null" for what is not finite, else rounded to two decimals.
Json Rounded(double value);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_METERS_H_
