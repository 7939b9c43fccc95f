#include "tools/audio/loudness_meter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>

#include "tools/framework/effect_session.h"

namespace kelda::tools {
namespace {

constexpr int kOversampling = 4;

}  // namespace

LoudnessMeter::LoudnessMeter()
    : state_(ebur128_init(kChannels, kSampleRateHz, EBUR128_MODE_I)),
      oversampling_(kSampleRateHz, kOversampling * kSampleRateHz, SOXR_HQ) {
  if (state_ == nullptr) {
    throw std::bad_alloc();
  }
}

void LoudnessMeter::TakePeak(const float* samples, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    peak_ = std::max(peak_, std::abs(samples[i]));
  }
}

void LoudnessMeter::Add(const float* stereo, std::size_t frames) {
  finite_.assign(stereo, stereo + kChannels * frames);
  for (float& sample : finite_) {
    if (!std::isfinite(sample)) {
      sample = 0;
      ++not_finite_;
    }
  }
  if (ebur128_add_frames_float(state_.get(), finite_.data(), frames) != EBUR128_SUCCESS) {
    throw std::bad_alloc();
  }
  oversampled_.clear();
  oversampling_.Push(finite_.data(), frames, &oversampled_);
  TakePeak(finite_.data(), finite_.size());
  TakePeak(oversampled_.data(), oversampled_.size());
}

Levels LoudnessMeter::Finish() {
  oversampled_.clear();
  oversampling_.Finish(&oversampled_);
  TakePeak(oversampled_.data(), oversampled_.size());
  Levels levels;
  double lufs = 0;
  if (ebur128_loudness_global(state_.get(), &lufs) == EBUR128_SUCCESS && std::isfinite(lufs)) {
    levels.loudness_lufs = lufs;
  }
  if (peak_ > 0) {
    levels.true_peak_db = 20 * std::log10(peak_);
  }
  levels.not_finite = not_finite_;
  return levels;
}

}  // namespace kelda::tools
