#include "tools/live/output_queue.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/math_constants.h"
#include "tools/framework/effect_session.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kMostFrames = std::size_t{8} * 8192;  // of eight of the largest cycles
constexpr std::size_t kEdgeFrames = 64;                     // into a gap and out of it: 1.3 ms
constexpr std::size_t kSpliceFrames = 960;                  // over what is taken out: 20 ms
constexpr std::size_t kWatchedFrames = kSampleRateHz;
constexpr std::size_t kUnheard = 240;  // 5 ms too late are not worth a crossfade

// From 0 to 1, a raised cosine.
float Rise(std::size_t position, std::size_t frames) KELDA_NONBLOCKING {
  constexpr auto kHalfTurn = static_cast<float>(kPi);
  return 0.5f -
         0.5f * std::cos(kHalfTurn * static_cast<float>(position) / static_cast<float>(frames));
}

void Scale(float* frame, float gain) KELDA_NONBLOCKING {
  for (std::size_t channel = 0; channel < kChannels; ++channel) {
    frame[channel] *= gain;
  }
}

}  // namespace

OutputQueue::OutputQueue() : samples_(kChannels * kMostFrames) {}

void OutputQueue::Clear() {
  waiting_ = surplus_ = watched_ = 0;
  silent_ = true;
}

void OutputQueue::Push(const float* in, std::size_t frames) {
  while (frames > 0) {
    if (waiting_ == kMostFrames) {
      Clear();
    }
    const std::size_t piece = std::min(frames, kMostFrames - waiting_);
    std::copy_n(in, kChannels * piece, samples_.data() + kChannels * waiting_);
    waiting_ += piece;
    in += kChannels * piece;
    frames -= piece;
  }
}

void OutputQueue::Take(float* out, std::size_t frames) {
  if (silent_) {
    // As late as it can begin and be followed by the next.
    const std::size_t ready = waiting_ - std::min(waiting_, kSpareFrames);
    const std::size_t silence = frames - std::min(frames, ready);
    std::fill_n(out, kChannels * silence, 0.0f);
    out += kChannels * silence;
    frames -= silence;
    if (frames < kEdgeFrames) {
      std::fill_n(out, kChannels * frames, 0.0f);
      return;
    }
    for (std::size_t i = 0; i < kEdgeFrames; ++i) {
      Scale(samples_.data() + kChannels * i, Rise(i, kEdgeFrames));
    }
    silent_ = false;
  }
  if (waiting_ >= frames + surplus_ + kEdgeFrames) {
    Copy(out, frames);
    return Watch(frames);
  }
  // No more may come in time.
  const std::size_t last = std::min(waiting_ - surplus_, frames);
  const std::size_t fade = std::min(last, kEdgeFrames);
  Copy(out, last);
  Pop(std::exchange(surplus_, 0));
  for (std::size_t i = 0; i < fade; ++i) {
    Scale(out + kChannels * (last - fade + i), 1 - Rise(i + 1, fade));
  }
  std::fill(out + kChannels * last, out + kChannels * frames, 0.0f);
  silent_ = true;
  watched_ = 0;
}

void OutputQueue::Copy(float* out, std::size_t frames) {
  const float* const now = samples_.data();
  const float* const later = now + kChannels * surplus_;
  std::size_t mixed = 0;
  if (surplus_ > 0) {
    mixed = std::min(frames, kSpliceFrames - position_);
    for (std::size_t i = 0; i < kChannels * mixed; ++i) {
      out[i] = now[i] + Rise(position_ + i / kChannels, kSpliceFrames) * (later[i] - now[i]);
    }
    position_ += mixed;
  }
  std::copy(later + kChannels * mixed, later + kChannels * frames, out + kChannels * mixed);
  if (surplus_ > 0 && position_ == kSpliceFrames) {
    frames += std::exchange(surplus_, 0);
    watched_ = 0;
  }
  Pop(frames);
}

void OutputQueue::Watch(std::size_t frames) {
  if (surplus_ > 0) {
    return;
  }
  const std::size_t left = waiting_ - std::min(waiting_, kSpareFrames);
  least_ = watched_ == 0 ? left : std::min(least_, left);
  watched_ += frames;
  if (watched_ >= kWatchedFrames) {
    watched_ = 0;
    surplus_ = least_ > kUnheard ? least_ : 0;
    position_ = 0;
  }
}

void OutputQueue::Pop(std::size_t frames) {
  std::copy(samples_.begin() + static_cast<std::ptrdiff_t>(kChannels * frames),
            samples_.begin() + static_cast<std::ptrdiff_t>(kChannels * waiting_), samples_.begin());
  waiting_ -= frames;
}

}  // namespace kelda::tools
