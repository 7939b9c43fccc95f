#include "tools/replay/trim.h"

#include "tools/framework/effect_session.h"

namespace kelda::tools {

using changeover::Crossfade;

void Trim::Apply(float* interleaved, std::size_t frames) {
  for (; frames > 0 && position_ < Crossfade::kFrames; --frames, ++position_) {
    const float gain = Now();
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
      *interleaved++ *= gain;
    }
  }
  if (to_ == 1) {
    return;
  }
  for (std::size_t i = 0; i < kChannels * frames; ++i) {
    interleaved[i] *= to_;
  }
}

std::size_t Apply(std::span<const TrimStep> steps, uint64_t frame, float* interleaved,
                  std::size_t frames, Trim* trim) {
  std::size_t begun = 0;
  for (; begun < steps.size() && steps[begun].frame < frame + frames; ++begun) {
    const auto before = static_cast<std::size_t>(steps[begun].frame - frame);
    trim->Apply(interleaved, before);
    trim->Begin(steps[begun].gain);
    interleaved += kChannels * before;
    frame += before;
    frames -= before;
  }
  trim->Apply(interleaved, frames);
  return begun;
}

}  // namespace kelda::tools
