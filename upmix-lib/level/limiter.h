#ifndef KELDA_UPMIX_LIB_LEVEL_LIMITER_H_
#define KELDA_UPMIX_LIB_LEVEL_LIMITER_H_

#include <array>
#include <cstddef>

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/level/true_peak.h"

namespace kelda::upmix_lib {

// Look-ahead limiter of interleaved stereo with a true-peak ceiling. Both channels get
// the same gain. While nothing nears the ceiling the output is the input, bit for bit.
//
// Gains are decided in chunks of 8 frames and smoothed to frames:
//
//   input --true peak--> gain that holds the ceiling --least of 7 chunks--> release
//     |                                                                       |
//     `------ delay, 48 frames ------------- x <------- smoothing, 37 frames --'
//
// The smoothed gain has reached the one that holds the ceiling 4 frames before the peak, and
// keeps it until 4 frames after: the peak lies between frames, and a gain that still moves
// there would lift it.
class Limiter {
 public:
  // Ceiling and release are within the ranges of LevelParameters. Control.
  Limiter(float ceiling_dbtp, float release_ms);

  // Where the next kBlockFrames interleaved frames go, all finite. Audio.
  float* input() { return &signal_[2 * kLevelLatencyFrames]; }

  // Whether silence in input() would come out as silence and leave everything as it is. Audio.
  bool at_rest() const KELDA_NONBLOCKING;

  // The least gain of the last block, 1 if it had none, for measurements. Audio.
  float least_gain() const { return least_gain_; }

  // Limits what input() holds. Writes kBlockFrames interleaved frames. Audio.
  void Process(float* out) KELDA_NONBLOCKING;

 private:
  static constexpr std::size_t kChunkFrames = TruePeak::kChunkFrames;
  static constexpr std::size_t kHeldChunks = 7;     // that a gain is the least of
  static constexpr std::size_t kSmoothFrames = 37;  // length of the smoothing window
  static constexpr std::size_t kSpannedChunks = 6;  // that this window can touch

  double Released(double allowed);

  // weights_[d][i]: of the gain d chunks ago, for frame i of a chunk, both channels.
  using ChunkWeights = std::array<float, 2 * kChunkFrames>;
  alignas(64) std::array<ChunkWeights, kSpannedChunks> weights_;

  TruePeak true_peak_;
  float ceiling_;
  double release_;                          // share of the way up that a chunk takes
  double sustained_release_;                // the same, when limiting lasts
  double gain_ = 1;                         // of the newest chunk, released
  double mean_gain_ = 1;                    // over the sustained release
  std::array<float, kHeldChunks> allowed_;  // gains of the last chunks, cyclic
  std::size_t newest_allowed_ = 0;
  float least_gain_ = 1;
  std::array<float, kSpannedChunks> smoothed_;  // released gains, newest first
  std::array<float, 2 * (kLevelLatencyFrames + kBlockFrames)> signal_{};
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_LEVEL_LIMITER_H_
