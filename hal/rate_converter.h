// Interleaved stereo from one sample rate to another, by a polyphase filter.
#ifndef KELDA_HAL_RATE_CONVERTER_H_
#define KELDA_HAL_RATE_CONVERTER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/nonblocking.h"

namespace kelda::hal {

// The rates stand to each other as two whole numbers, so that the filter has as many phases as one
// of them, and every output frame is one of these over the last input frames: at a fixed cost, and
// later by the same time for ever. A window of Kaiser's around a sinc that is cut at half the lower
// rate (J. F. Kaiser, "Nonrecursive digital filter design using the I0-sinh window function", 1974;
// for the phases R. E. Crochiere and L. R. Rabiner, "Multirate Digital Signal Processing", 1983).
//
//   RateConverter to_effect(96000, 48000, 40.0);
//   const std::size_t produced = to_effect.Convert(in, frames, out);
class RateConverter {
 public:
  static constexpr std::size_t kMostFrames = 512;  // of input, in one call

  // `delay_frames`, in frames of `from_hz`, is half the filter's length, too: the longer, the
  // steeper. Throws std::bad_alloc. Control.
  RateConverter(int32_t from_hz, int32_t to_hz, double delay_frames);

  // Forgets all audio, and begins with the first output frame again. Control.
  void Clear();

  // Converts up to kMostFrames interleaved stereo frames. After `n` input frames in all, it has
  // produced n * to / from, rounded up. `out` has room for what that makes of them, and is not
  // `in`. Returns the frames produced. Audio.
  std::size_t Convert(const float* in, std::size_t frames, float* out) KELDA_NONBLOCKING;

 private:
  // Sums of products are made in one order on every processor, so that they are the same, bit for
  // bit.
  static constexpr std::size_t kLanes = 8;
  void Frame(const float* row, const float* in, float* out) const KELDA_NONBLOCKING;

  const std::size_t phases_, step_;  // a step of 1 / to_hz is step_ / phases_ input frames
  const std::size_t taps_;           // of one phase, a multiple of 2 * kLanes
  // By phase: taps in the order of the input, the last for the newest frame, each twice, for left
  // and right.
  std::vector<float> rows_;
  std::vector<float>
      input_;  // interleaved; from begin_ on the last taps_ - 1 frames, then new ones
  std::size_t begin_ = 0;
  std::size_t phase_ = 0;  // of the next output frame
  std::size_t skip_ = 0;   // input frames before the newest that it needs
};

}  // namespace kelda::hal

#endif  // KELDA_HAL_RATE_CONVERTER_H_
