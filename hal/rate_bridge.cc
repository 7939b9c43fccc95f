#include "hal/rate_bridge.h"

#include <algorithm>
#include <cmath>

#include "platform/audio_format.h"

namespace kelda::hal {
namespace {

// Converted at a time. At 44.1 kHz it becomes 279 frames, which a converter takes in one call.
constexpr std::size_t kPieceFrames = 256;

// What one frame of the effect becomes at the highest rate, and two that were rounded up.
constexpr std::size_t kMostLeft = 192000 / kSampleRateHz + 2;

// Half the length of both filters, in frames of the lower rate. At 44.1 kHz there is less room
// between what is let through and what is stopped.
double HalfFrames(int32_t rate_hz) { return rate_hz < kSampleRateHz ? 32.0 : 16.0; }

double LowerHz(int32_t rate_hz) { return std::min(rate_hz, kSampleRateHz); }

// What the first filter delays, in frames of `rate_hz`.
double ToEffectDelay(int32_t rate_hz) { return HalfFrames(rate_hz) * rate_hz / LowerHz(rate_hz); }

// What the second one delays, in frames of 48000 Hz: a little less, so that all in all it is a
// whole number of the stream's frames.
double FromEffectDelay(int32_t rate_hz) {
  const double frames_of_stream =
      static_cast<double>(RateBridge::LatencyFrames(rate_hz)) - ToEffectDelay(rate_hz);
  return frames_of_stream * kSampleRateHz / rate_hz - changeover::Session::kLatencyFrames;
}

}  // namespace

std::size_t RateBridge::LatencyFrames(int32_t rate_hz) {
  const double longest = HalfFrames(rate_hz) * kSampleRateHz / LowerHz(rate_hz);
  const double frames = ToEffectDelay(rate_hz) +
                        (changeover::Session::kLatencyFrames + longest) * rate_hz / kSampleRateHz;
  return static_cast<std::size_t>(frames + 1e-6);
}

RateBridge::RateBridge(int32_t rate_hz)
    : to_effect_(rate_hz, kSampleRateHz, ToEffectDelay(rate_hz)),
      from_effect_(kSampleRateHz, rate_hz, FromEffectDelay(rate_hz)),
      at_effect_(2 * RateConverter::kMostFrames),
      ready_(2 * (kPieceFrames + kMostLeft)) {}

void RateBridge::Clear() {
  to_effect_.Clear();
  from_effect_.Clear();
  ready_frames_ = 0;
}

void RateBridge::Process(changeover::Session* session, const float* in, float* out,
                         std::size_t frames) {
  while (frames > 0) {
    const std::size_t piece = std::min(frames, kPieceFrames);
    const std::size_t produced = to_effect_.Convert(in, piece, at_effect_.data());
    session->Process(at_effect_.data(), at_effect_.data(), produced);
    ready_frames_ +=
        from_effect_.Convert(at_effect_.data(), produced, ready_.data() + 2 * ready_frames_);
    std::copy_n(ready_.data(), 2 * piece, out);
    ready_frames_ -= piece;  // a few are left
    std::copy_n(ready_.data() + 2 * piece, 2 * ready_frames_, ready_.data());
    in += 2 * piece;
    out += 2 * piece;
    frames -= piece;
  }
}

}  // namespace kelda::hal
