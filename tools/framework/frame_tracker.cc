#include "tools/framework/frame_tracker.h"

#include <cstddef>

#include "tools/framework/side_instance.h"

namespace kelda::tools {
namespace {

// A frame's number is written as two floats, which are exact and never zero: the left channel holds
// 1 + its low 23 bits, the right channel 1 + the bits above them.
constexpr int kLowBits = 23;
constexpr int64_t kLowRange = int64_t{1} << kLowBits;

}  // namespace

FrameTracker::FrameTracker(const EffectLibrary& library) {
  const SideInstanceScope scope;
  session_.emplace(library);
  session_->Enable();
}

FrameTracker::~FrameTracker() {
  const SideInstanceScope scope;
  session_.reset();
}

void FrameTracker::Apply(const Setting& setting) {
  if (TouchesBuffering(setting)) {
    const SideInstanceScope scope;
    tools::Apply(setting, &*session_);
  }
}

const std::vector<int64_t>& FrameTracker::Advance(std::size_t frames) {
  block_.resize(frames * kChannels);
  for (std::size_t i = 0; i < frames; ++i, ++next_frame_) {
    const int64_t low = next_frame_ % kLowRange;
    const int64_t high = next_frame_ / kLowRange;
    block_[kChannels * i] = static_cast<float>(1 + low);
    block_[kChannels * i + 1] = static_cast<float>(1 + high);
  }
  session_->Process(block_.data(), frames);
  delivered_.resize(frames);
  for (std::size_t i = 0; i < frames; ++i) {
    const auto low = static_cast<int64_t>(block_[kChannels * i]);
    const auto high = static_cast<int64_t>(block_[kChannels * i + 1]);
    delivered_[i] = low == 0 ? kSilence : (high - 1) * kLowRange + low - 1;
  }
  return delivered_;
}

}  // namespace kelda::tools
