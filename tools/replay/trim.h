// A gain after the effect, by which sounds that are compared are made equally loud.
#ifndef KELDA_TOOLS_REPLAY_TRIM_H_
#define KELDA_TOOLS_REPLAY_TRIM_H_

#include <cstddef>
#include <cstdint>
#include <span>

#include "changeover/crossfade.h"
#include "platform/nonblocking.h"

namespace kelda::tools {

// 12 dB.
inline constexpr float kMostTrim = 4.0f;

// From frame `frame` of a stream on the gain goes to `gain`, a factor, over
// changeover::Crossfade::kFrames.
struct TrimStep {
  uint64_t frame = 0;
  float gain = 1;
};

// One thread. At first the gain is 1, which changes no bit.
class Trim {
 public:
  // From the next frame on; from the gain that was reached, if a step had not ended.
  void Begin(float gain) KELDA_NONBLOCKING {
    from_ = Now();
    to_ = gain;
    position_ = 0;
  }

  // `frames` of interleaved stereo, in place.
  void Apply(float* interleaved, std::size_t frames) KELDA_NONBLOCKING;

 private:
  float Now() const KELDA_NONBLOCKING { return from_ + crossfade_.Gain(position_) * (to_ - from_); }

  const changeover::Crossfade crossfade_;
  float from_ = 1, to_ = 1;
  std::size_t position_ = changeover::Crossfade::kFrames;  // of the step
};

// Applies the steps to frames of which the first is frame `frame` of the stream. `steps` are in the
// order of their frames, and none lies before `frame`. Returns how many began.
std::size_t Apply(std::span<const TrimStep> steps, uint64_t frame, float* interleaved,
                  std::size_t frames, Trim* trim) KELDA_NONBLOCKING;

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPLAY_TRIM_H_
