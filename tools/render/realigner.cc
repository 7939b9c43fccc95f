#include "tools/render/realigner.h"

#include <cstddef>
#include <string>

#include "tools/core/failure.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/frame_tracker.h"

namespace kelda::tools {

void Realigner::Push(const float* block, const std::vector<int64_t>& delivered,
                     std::vector<float>* output) {
  for (std::size_t i = 0; i < delivered.size(); ++i) {
    const int64_t input = delivered[i];
    if (input == FrameTracker::kSilence) {
      continue;
    }
    if (input <= last_) {
      throw Failure(ExitCode::kRefused, "the effect delivered frame " + std::to_string(input) +
                                            " after frame " + std::to_string(last_));
    }
    last_ = input;
    if (input < next_input_) {
      continue;
    }
    output->resize(output->size() + static_cast<std::size_t>(input - next_input_) * kChannels,
                   0.0f);
    output->insert(output->end(), block + kChannels * i, block + kChannels * (i + 1));
    next_input_ = input + 1;
  }
}

}  // namespace kelda::tools
