// Finds out which frame of its input the effect delivers in each frame of its output.
//
// The effect cuts host blocks into periods of its own. It delivers silence until enough audio has
// gathered, and again whenever a block asks for more than is ready. The framework's interface does
// not distinguish this silence from silent music. So a second instance, in pass-through, runs with
// the same block sizes and the same resets. Its input is not audio but the number of each frame,
// and pass-through delivers these numbers unchanged.
#ifndef KELDA_TOOLS_FRAMEWORK_FRAME_TRACKER_H_
#define KELDA_TOOLS_FRAMEWORK_FRAME_TRACKER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/framework/effect_session.h"
#include "tools/framework/setting.h"

namespace kelda::tools {

class FrameTracker {
 public:
  static constexpr int64_t kSilence = -1;

  // A second instance of `library`, enabled, at frame 0.
  explicit FrameTracker(const EffectLibrary& library);
  ~FrameTracker();

  // Repeats a setting of the rendering instance if it affects the buffering (reset, enable,
  // disable).
  void Apply(const Setting& setting);

  // Runs the next block of `frames`. Returns, for each frame delivered, the
  // number of the input frame, or kSilence; valid until the next call. Throws
  // Failure (refused).
  const std::vector<int64_t>& Advance(std::size_t frames);

 private:
  std::optional<EffectSession> session_;  // empty only in the destructor
  int64_t next_frame_ = 0;
  std::vector<float> block_;
  std::vector<int64_t> delivered_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_FRAME_TRACKER_H_
