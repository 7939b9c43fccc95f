#include "upmix-lib/binaural/virtualizer.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "upmix-lib/base/input_guard.h"

namespace kelda::upmix_lib {
namespace {

// How much of the centre plane reaches the room, as an amplitude: 1.5 dB less than of the others.
constexpr float kRoomCentreShare = 0.85f;

// 0 to 1 over the block, level at both ends: a fade without a corner.
float Rise(int n) {
  const float t = (static_cast<float>(n) + 0.5f) / static_cast<float>(kBlockFrames);
  return t * t * (3.0f - 2.0f * t);
}

}  // namespace

Virtualizer::Virtualizer(const HrirSet& hrirs)
    : renderer_(std::make_unique<PlaneRenderer>(hrirs, hrirs.room, kRoomCentreShare)),
      fading_out_(kEars * kBlockFrames) {}

Status Virtualizer::Load(const std::string& path, std::unique_ptr<Virtualizer>& virtualizer) {
  HrirSet hrirs;
  if (const Status status = LoadHrirSet(path, hrirs); status != kOk) {
    return status;
  }
  virtualizer = std::make_unique<Virtualizer>(hrirs);
  return kOk;
}

void Virtualizer::Flush() {
  renderer_->Clear();
  previous_.reset();
  fading_ = false;
  running_ = false;
}

void Virtualizer::CrossfadeTo(std::unique_ptr<Virtualizer> next) {
  // Data that were replaced before a block of them was heard need no fade.
  if (!fading_) {
    previous_ = std::move(renderer_);
  }
  renderer_ = std::move(next->renderer_);
  fading_ = running_;
}

void Virtualizer::FillInput(int plane, int frames, const float* from, bool muted, float* to) {
  bool& was_muted = muted_[static_cast<std::size_t>(plane)];
  const bool fade = running_ && muted != was_muted;
  was_muted = muted;
  if (muted && !fade) {
    std::fill_n(to, kBlockFrames, 0.0f);
    return;
  }
  GuardSamples(from, to, static_cast<std::size_t>(frames));
  std::fill(to + frames, to + kBlockFrames, 0.0f);
  for (int n = 0; fade && n < kBlockFrames; ++n) {
    to[n] *= muted ? 1.0f - Rise(n) : Rise(n);
  }
}

void Virtualizer::Process(int frames, const float* planes, const int32_t* channel_flags,
                          float* left, float* right) {
  const bool flags_rest =
      std::equal(muted_.begin(), muted_.end(), channel_flags,
                 [](bool was_muted, int32_t flag) { return was_muted == (flag != 0); });
  if (running_ && !fading_ && flags_rest && renderer_->at_rest() &&
      IsSilent(planes, std::size_t{kPlanes} * kBlockFrames)) {
    std::fill_n(left, kBlockFrames, 0.0f);
    std::fill_n(right, kBlockFrames, 0.0f);
    return;
  }
  alignas(kSimdAlignmentBytes) float samples[kPlanes][kBlockFrames];
  const float* inputs[kPlanes];
  for (int plane = 0; plane < kPlanes; ++plane) {
    FillInput(plane, frames, planes + plane * kBlockFrames, channel_flags[plane] != 0,
              samples[plane]);
    inputs[plane] = samples[plane];
  }
  running_ = true;
  renderer_->Process(inputs, left, right);
  if (!fading_) {
    return;
  }

  fading_ = false;
  float* old_left = fading_out_.data();
  float* old_right = fading_out_.data() + kBlockFrames;
  previous_->Process(inputs, old_left, old_right);
  for (int n = 0; n < kBlockFrames; ++n) {
    left[n] = old_left[n] + Rise(n) * (left[n] - old_left[n]);
    right[n] = old_right[n] + Rise(n) * (right[n] - old_right[n]);
  }
}

}  // namespace kelda::upmix_lib
