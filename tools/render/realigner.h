// Brings delivered audio back in time with its input.
#ifndef KELDA_TOOLS_RENDER_REALIGNER_H_
#define KELDA_TOOLS_RENDER_REALIGNER_H_

#include <cstdint>
#include <vector>

namespace kelda::tools {

// The effect's output without the silence of its buffering:
//
//   delivered  . . . . 0 1 2 . 3 4 ...    (. silence, else the input frame)
//   latency 1          |/ / / / /
//   output             1 2 3 4 ...
//
// Frame n of the input comes out as frame n - latency. Frames that the effect dropped, as in a
// reset, become zeros, so that all later audio keeps its place.
class Realigner {
 public:
  // The processors' latency, in frames, which is taken off the front.
  explicit Realigner(int64_t latency_frames) : next_input_(latency_frames) {}

  // Appends the audio of `block` to `*output`, with zeros for dropped frames. Both are interleaved
  // stereo; `block` has delivered.size() frames, and `delivered` has the input frame of each, as
  // FrameTracker returns it. Throws Failure (refused) if audio comes out of order.
  void Push(const float* block, const std::vector<int64_t>& delivered, std::vector<float>* output);

 private:
  int64_t next_input_;  // the input frame that the next output frame belongs to
  int64_t last_ = -1;   // the input frame delivered last
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_RENDER_REALIGNER_H_
