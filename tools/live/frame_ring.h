#ifndef KELDA_TOOLS_LIVE_FRAME_RING_H_
#define KELDA_TOOLS_LIVE_FRAME_RING_H_

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/nonblocking.h"

namespace kelda::tools {

// Frames on their way from one thread to another, without a lock: one thread pushes, one pops.
// Interleaved, of `width` samples.
template <typename Sample>
class Ring {
 public:
  // Throws std::bad_alloc.
  explicit Ring(std::size_t frames, std::size_t width = 1)
      : width_(width), frames_(frames), samples_(frames * width) {}

  std::size_t width() const { return width_; }

  // Frames pushed since it was made. The one that pushes.
  uint64_t pushed() const KELDA_NONBLOCKING { return pushed_.load(std::memory_order_relaxed); }

  // The one that pushes.
  std::size_t room() const KELDA_NONBLOCKING {
    return frames_ - static_cast<std::size_t>(pushed_.load(std::memory_order_relaxed) -
                                              popped_.load(std::memory_order_acquire));
  }
  // Takes as many of `frames` as there is room for, and returns how many.
  std::size_t Push(const Sample* interleaved, std::size_t frames) KELDA_NONBLOCKING {
    const uint64_t pushed = pushed_.load(std::memory_order_relaxed);
    frames = std::min(frames, room());
    ForPieces(pushed, frames, [&](Sample* at, std::size_t from, std::size_t count) {
      std::copy_n(interleaved + from, count, at);
    });
    pushed_.store(pushed + frames, std::memory_order_release);
    return frames;
  }

  // The one that pops.
  std::size_t ready() const KELDA_NONBLOCKING {
    return static_cast<std::size_t>(pushed_.load(std::memory_order_acquire) -
                                    popped_.load(std::memory_order_relaxed));
  }
  // Gives up to `frames`, and returns how many.
  std::size_t Pop(Sample* interleaved, std::size_t frames) KELDA_NONBLOCKING {
    const uint64_t popped = popped_.load(std::memory_order_relaxed);
    frames = std::min(frames, ready());
    ForPieces(popped, frames, [&](Sample* at, std::size_t from, std::size_t count) {
      std::copy_n(at, count, interleaved + from);
    });
    popped_.store(popped + frames, std::memory_order_release);
    return frames;
  }
  // Forgets what waits, and returns how many frames it was.
  std::size_t Drop() KELDA_NONBLOCKING {
    const std::size_t frames = ready();
    popped_.fetch_add(frames, std::memory_order_release);
    return frames;
  }

 private:
  // The one or two pieces of the ring that hold `frames` from number `begin` on.
  template <typename Use>
  void ForPieces(uint64_t begin, std::size_t frames, const Use& use) KELDA_NONBLOCKING {
    const auto at = static_cast<std::size_t>(begin % frames_);
    const std::size_t first = std::min(frames, frames_ - at);
    use(samples_.data() + width_ * at, 0, width_ * first);
    use(samples_.data(), width_ * first, width_ * (frames - first));
  }

  const std::size_t width_, frames_;
  std::vector<Sample> samples_;
  std::atomic<uint64_t> pushed_{0}, popped_{0};
};

using FrameRing = Ring<float>;

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_FRAME_RING_H_
