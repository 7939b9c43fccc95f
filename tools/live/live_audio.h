#ifndef KELDA_TOOLS_LIVE_LIVE_AUDIO_H_
#define KELDA_TOOLS_LIVE_LIVE_AUDIO_H_

#include <cstddef>

#include "platform/nonblocking.h"
#include "tools/live/cycle_meter.h"

namespace kelda::tools {

// What the audio server calls on its data thread.
class LiveAudio {
 public:
  virtual ~LiveAudio() = default;

  // `frames` interleaved stereo frames at 48 kHz, of any number. `in` and `out` may be the same;
  // `in` is null where nothing is captured. Audio.
  virtual void Process(const float* in, float* out, std::size_t frames) KELDA_NONBLOCKING = 0;

  virtual CycleMeter& cycles() = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_LIVE_AUDIO_H_
