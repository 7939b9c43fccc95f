#include "upmix-lib/level/limiter.h"

#include <algorithm>
#include <cmath>

#include "platform/math_constants.h"
#include "upmix-lib/base/decibels.h"
#include "upmix-lib/base/input_guard.h"

namespace kelda::upmix_lib {
namespace {

// Recovery of limiting that lasts, as a multiple of the release time: a gain that rose
// between the peaks of a bass note would distort it.
constexpr double kSustainedRelease = 8;

// The limiter stays this much below the ceiling: a meter after it may interpolate otherwise,
// and near 20 kHz interpolators of finite length differ by this much.
constexpr double kMarginDb = 0.25;

// A released gain this close to 1 is 1.
constexpr double kReleased = 1 - 1e-5;

double ShareOfChunk(double time_s) {
  return 1 - std::exp(-static_cast<double>(TruePeak::kChunkFrames) / (time_s * kSampleRateHz));
}

}  // namespace

Limiter::Limiter(float ceiling_dbtp, float release_ms)
    : weights_{},
      ceiling_(static_cast<float>(AmplitudeFromDb(static_cast<double>(ceiling_dbtp) - kMarginDb))),
      release_(ShareOfChunk(static_cast<double>(release_ms) / 1000)),
      sustained_release_(ShareOfChunk(kSustainedRelease * static_cast<double>(release_ms) / 1000)) {
  allowed_.fill(1);
  smoothed_.fill(1);
  // A Hann window, its taps added up by the chunk that each one meets.
  double sum = 0;
  std::array<double, kSmoothFrames> window;
  for (std::size_t k = 0; k < kSmoothFrames; ++k) {
    const double place = static_cast<double>(k + 1) / (kSmoothFrames + 1);
    window[k] = std::pow(std::sin(kPi * place), 2);
    sum += window[k];
  }
  for (std::size_t i = 0; i < kChunkFrames; ++i) {
    for (std::size_t k = 0; k < kSmoothFrames; ++k) {
      const std::size_t chunks_ago = (k + kChunkFrames - 1 - i) / kChunkFrames;
      for (std::size_t channel = 0; channel < 2; ++channel) {
        weights_[chunks_ago][2 * i + channel] += static_cast<float>(window[k] / sum);
      }
    }
  }
}

// The gain of the next chunk, at most `allowed`: falls at once; rises fast back to its mean
// over the last time and slowly beyond (two-stage release).
double Limiter::Released(double allowed) {
  if (allowed < gain_) {
    gain_ = allowed;
  } else {
    const double lag = std::max(std::min(allowed, mean_gain_) - gain_, 0.0);
    gain_ = std::min(allowed, gain_ + release_ * lag + sustained_release_ * (allowed - gain_));
    gain_ = gain_ > kReleased ? 1 : gain_;
  }
  mean_gain_ += sustained_release_ * (gain_ - mean_gain_);
  mean_gain_ = mean_gain_ > kReleased && gain_ == 1 ? 1 : mean_gain_;
  return gain_;
}

bool Limiter::at_rest() const {
  const auto is_one = [](float gain) { return gain == 1.0f; };
  return gain_ == 1 && mean_gain_ == 1 && std::all_of(allowed_.begin(), allowed_.end(), is_one) &&
         std::all_of(smoothed_.begin(), smoothed_.end(), is_one) &&
         IsSilent(signal_.data(), 2 * kLevelLatencyFrames);
}

void Limiter::Process(float* out) {
  least_gain_ = 1;
  for (std::size_t frame = 0; frame < kBlockFrames; frame += kChunkFrames) {
    // The newest chunk whose following frames the interpolator can see, too.
    const float* seen = input() + 2 * frame - 2 * kChunkFrames;
    newest_allowed_ = (newest_allowed_ + 1) % kHeldChunks;
    allowed_[newest_allowed_] = ceiling_ / std::max(ceiling_, true_peak_.OfChunk(seen));

    std::copy_backward(smoothed_.begin(), smoothed_.end() - 1, smoothed_.end());
    smoothed_[0] = static_cast<float>(
        Released(static_cast<double>(*std::min_element(allowed_.begin(), allowed_.end()))));

    least_gain_ = std::min(least_gain_, smoothed_[0]);
    const float* delayed = &signal_[2 * frame];
    if (*std::min_element(smoothed_.begin(), smoothed_.end()) == 1) {
      std::copy_n(delayed, 2 * kChunkFrames, out + 2 * frame);
      continue;
    }
    ChunkWeights gains{};
    for (std::size_t d = 0; d < kSpannedChunks; ++d) {
#pragma omp simd
      for (std::size_t i = 0; i < gains.size(); ++i) {
        gains[i] += smoothed_[d] * weights_[d][i];
      }
    }
#pragma omp simd
    for (std::size_t i = 0; i < gains.size(); ++i) {
      out[2 * frame + i] = delayed[i] * gains[i];
    }
  }
  std::copy(signal_.end() - 2 * kLevelLatencyFrames, signal_.end(), signal_.begin());
}

}  // namespace kelda::upmix_lib
