#include "upmix-lib/level/loudness_meter.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <span>

#include "upmix-lib/base/decibels.h"
#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {
namespace {

double LoudnessOf(double mean_square) { return -0.691 + DbFromPower(mean_square); }
double MeanSquareOf(double lufs) { return PowerFromDb(lufs + 0.691); }

float PeakOf(const float* samples, std::size_t count) {
  Vec peaks{};
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    const Vec now = Load<Vec>(samples + i);
    peaks = now > peaks ? now : peaks;
    peaks = -now > peaks ? -now : peaks;
  }
  float peak = 0;
  for (; i < count; ++i) {
    peak = std::max(peak, std::fabs(samples[i]));
  }
  for (int lane = 0; lane < kLanes; ++lane) {
    peak = std::max(peak, peaks[lane]);
  }
  return peak;
}

}  // namespace

LoudnessMeter::LoudnessMeter(double window_s)
    : window_hops_(static_cast<std::size_t>(std::lround(window_s / kHopS))) {}

bool LoudnessMeter::Process(const float* frames, std::size_t count) {
  const std::size_t now = std::min(count, kHopFrames - hop_frames_);
  const auto take = [this](const float* from, std::size_t frame_count) {
    hop_energy_ += weighting_.Energy(from, frame_count);
    hop_peak_ = std::max(hop_peak_, PeakOf(from, 2 * frame_count));
    hop_frames_ += frame_count;
  };
  take(frames, now);
  const bool hop_ends = hop_frames_ == kHopFrames;
  if (hop_ends) {
    EndHop();
  }
  take(frames + 2 * now, count - now);
  return hop_ends;
}

void LoudnessMeter::EndHop() {
  newest_hop_ = (newest_hop_ + 1) % kHopsPerBlock;
  hops_[newest_hop_] = hop_energy_;
  const double power = std::accumulate(hops_.begin(), hops_.end(), 0.0) /
                       static_cast<double>(kHopsPerBlock * kHopFrames);
  sounding_ = power > MeanSquareOf(kAbsoluteGateLufs);
  if (!sounding_) {
    silent_hops_ = std::min(silent_hops_ + 1, kPauseHops);
  } else {
    if (silent_hops_ >= kPauseHops) {
      size_ = next_ = 0;
      incomplete_blocks_ = kHopsPerBlock - 1;
    }
    silent_hops_ = 0;
    if (incomplete_blocks_ > 0) {
      --incomplete_blocks_;
    } else {
      powers_[next_] = power;
      peaks_[next_] = hop_peak_;
      next_ = (next_ + 1) % window_hops_;
      size_ = std::min(size_ + 1, window_hops_);
    }
  }
  hop_frames_ = 0;
  hop_energy_ = 0;
  hop_peak_ = 0;
}

double LoudnessMeter::LoudnessLufs() const {
  const std::span<const double> powers(powers_.data(), size_);
  const double ungated =
      std::accumulate(powers.begin(), powers.end(), 0.0) / static_cast<double>(size_);
  const double gate = ungated * PowerFromDb(kRelativeGateLu);
  double sum = 0;
  double count = 0;
  for (const double power : powers) {
    sum += power > gate ? power : 0;
    count += power > gate ? 1 : 0;
  }
  return LoudnessOf(sum / count);
}

float LoudnessMeter::Peak() const {
  return *std::max_element(peaks_.begin(), peaks_.begin() + static_cast<std::ptrdiff_t>(size_));
}

}  // namespace kelda::upmix_lib
