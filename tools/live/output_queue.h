#ifndef KELDA_TOOLS_LIVE_OUTPUT_QUEUE_H_
#define KELDA_TOOLS_LIVE_OUTPUT_QUEUE_H_

#include <cstddef>
#include <vector>

#include "platform/nonblocking.h"

namespace kelda::tools {

// Interleaved stereo between two streams of one graph. As many frames come as go, but not always at
// once: while a rate or a quantum changes, one side is ahead. A gap begins and ends with a fade,
// and what waits longer than it must is taken out by a crossfade. One thread: the data thread.
class OutputQueue {
 public:
  // What it delays, so that there is something to fade when nothing comes.
  static constexpr std::size_t kSpareFrames = 96;

  // Throws std::bad_alloc.
  OutputQueue();

  // What waits for more than a second is dropped.
  void Push(const float* in, std::size_t frames) KELDA_NONBLOCKING;

  // Writes `frames`, silence where there are none.
  void Take(float* out, std::size_t frames) KELDA_NONBLOCKING;

  // Drops what waits; what comes next fades in.
  void Clear() KELDA_NONBLOCKING;

 private:
  void Pop(std::size_t frames) KELDA_NONBLOCKING;
  void Copy(float* out, std::size_t frames) KELDA_NONBLOCKING;
  void Watch(std::size_t frames) KELDA_NONBLOCKING;

  std::vector<float> samples_;
  std::size_t waiting_ = 0;  // frames
  bool silent_ = true;
  // In the last second: what was left over at least.
  std::size_t watched_ = 0, least_ = 0;
  // While frames are taken out: how many, and how far the crossfade is.
  std::size_t surplus_ = 0, position_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_OUTPUT_QUEUE_H_
