// A stream of another rate through a session of the host, which runs at 48000 Hz.
#ifndef KELDA_HAL_RATE_BRIDGE_H_
#define KELDA_HAL_RATE_BRIDGE_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "changeover/session.h"
#include "hal/rate_converter.h"
#include "platform/nonblocking.h"

namespace kelda::hal {

// The filters let through what is below 19.9 kHz, and stop what would be heard below it as
// something else. After n frames the first converter has given n * 48000 / rate, rounded up, and so
// the second at least n: for blocks of any size as many frames go out as come in, and nothing has
// to wait for that.
class RateBridge {
 public:
  // Of one of kSampleRatesHz but 48000. Throws std::bad_alloc. Control.
  explicit RateBridge(int32_t rate_hz);

  // Forgets all audio. Control.
  void Clear();

  // Interleaved stereo, any number of frames; `in` and `out` may be the same. Audio.
  void Process(changeover::Session* session, const float* in, float* out,
               std::size_t frames) KELDA_NONBLOCKING;

  // From input to output, with the session's own latency, in frames of `rate_hz`.
  static std::size_t LatencyFrames(int32_t rate_hz);

 private:
  RateConverter to_effect_, from_effect_;
  std::vector<float> at_effect_;  // what one piece becomes at 48000 Hz
  std::vector<float> ready_;      // what came out of that, and has not gone out
  std::size_t ready_frames_ = 0;
};

}  // namespace kelda::hal

#endif  // KELDA_HAL_RATE_BRIDGE_H_
