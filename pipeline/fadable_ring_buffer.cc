#include "pipeline/fadable_ring_buffer.h"

#include <algorithm>
#include <cmath>

#include "platform/log.h"
#include "platform/math_constants.h"
#include "platform/may_block.h"

namespace kelda {
namespace {

// Raised cosine: 0 at position 0, one step short of 1 at the last of `length`.
float FadeInGain(unsigned position, unsigned length) {
  const double phase = kPi * static_cast<float>(position) / length;
  return static_cast<float>((1.0 - std::cos(phase)) * 0.5);
}

// Raised cosine, counted from the newest frame: 0 at age 0, 1 at age `length`.
float FadeOutGain(unsigned age, unsigned length) {
  const double phase = kPi * static_cast<float>(length - age) / length;
  return static_cast<float>((std::cos(phase) + 1.0) * 0.5);
}

void Scale(float* frame, unsigned channels, float gain) {
  for (unsigned c = 0; c < channels; ++c) {
    frame[c] *= gain;
  }
}

}  // namespace

FadableRingBuffer::FadableRingBuffer(unsigned channels, unsigned capacity_bytes,
                                     int ready_threshold_bytes)
    : RingBuffer(static_cast<int>(capacity_bytes), ready_threshold_bytes), channels_(channels) {}

void FadableRingBuffer::Init() {
  RingBuffer::Init();
  silence_remaining_ = 0;
  fade_in_pending_ = false;
}

void FadableRingBuffer::FadableEnqueue(char* data, int bytes) {
  if (fade_in_pending_) {
    FadeIn(data, bytes);
    if (fade_position_ >= fade_length_) {
      fade_in_pending_ = false;
    }
  }
  Enqueue(data, bytes);
}

void FadableRingBuffer::FadeIn(char* data, int bytes) {
  const unsigned frames = channels_ == 0 ? 0 : static_cast<unsigned>(bytes / frame_bytes());
  float* const samples = reinterpret_cast<float*>(data);
  unsigned frame = 0;
  if (silence_remaining_ > 0) {
    frame = std::min(frames, silence_remaining_);
    std::fill_n(samples, frame * channels_, 0.0f);
    silence_remaining_ -= frame;
    if (silence_remaining_ > 0) {
      MayBlock(BlockingReason::SilenceWarning, [&] {
        LogWarning(log_tag::kFade,
                   "Number of frames %u is shorter than delayed frames and remaining: %u.", frames,
                   silence_remaining_);
      });
      return;
    }
  }
  for (; frame < frames && fade_position_ < fade_length_; ++frame, ++fade_position_) {
    Scale(samples + frame * channels_, channels_, FadeInGain(fade_position_, fade_length_));
  }
}

void FadableRingBuffer::RequestFadingFrames(unsigned fade_frames, unsigned silence_frames) {
  fade_position_ = 0;
  fade_in_pending_ = true;
  silence_remaining_ = silence_frames;
  fade_length_ = fade_frames;
  const unsigned queued = channels_ == 0 ? 0 : static_cast<unsigned>(Size() / frame_bytes());
  FadeOut(std::min(queued, fade_frames));
}

void FadableRingBuffer::FadeOut(unsigned frames) {
  if (frames == 0) {
    return;
  }
  char* const write = write_position() > begin() ? write_position() : end();
  float* frame = reinterpret_cast<float*>(write - frame_bytes());
  // Takes one step more than there are faded frames. The gain of that step is exactly 1, so
  // the frame keeps its value, wherever in the ring it is.
  for (unsigned age = 0; age <= frames; ++age) {
    Scale(frame, channels_, FadeOutGain(age, frames));
    frame = PrevFrame(frame);
  }
}

float* FadableRingBuffer::PrevFrame(float* frame) const {
  float* const first = reinterpret_cast<float*>(begin());
  float* const last = reinterpret_cast<float*>(end());
  return (frame > first ? frame : last) - channels_;
}

}  // namespace kelda
