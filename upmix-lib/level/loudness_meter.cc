#include "upmix-lib/level/loudness_meter.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "upmix-lib/base/decibels.h"
#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {
namespace {

double LoudnessOf(double mean_square) { return -0.691 + DbFromPower(mean_square); }
std::size_t HopsOf(double seconds) {
  return static_cast<std::size_t>(std::lround(seconds / LoudnessMeter::kHopS));
}

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

LoudnessMeter::LoudnessMeter(double window_s) : window_hops_(HopsOf(window_s)) {}

bool LoudnessMeter::Process(const float* frames, std::size_t count, bool silent) {
  const std::size_t now = std::min(count, kHopFrames - hop_frames_);
  const auto take = [this, silent](const float* from, std::size_t frame_count) {
    hop_frames_ += frame_count;
    if (silent && weighting_.at_rest()) {
      return;
    }
    hop_energy_ += weighting_.Energy(from, frame_count);
    hop_peak_ = std::max(hop_peak_, PeakOf(from, 2 * frame_count));
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
  momentary_power_ = std::accumulate(hops_.begin(), hops_.end(), 0.0) /
                     static_cast<double>(kHopsPerBlock * kHopFrames);
  sounding_ = momentary_power_ > MeanSquareOf(kAbsoluteGateLufs);
  if (!sounding_) {
    silent_hops_ = std::min(silent_hops_ + 1, kPauseHops);
  } else {
    if (silent_hops_ >= kPauseHops) {
      StartProgramme();
      set_aside_ = 0;
    }
    silent_hops_ = 0;
    if (incomplete_blocks_ > 0) {
      --incomplete_blocks_;
    } else {
      powers_[next_] = momentary_power_;
      peaks_[next_] = hop_peak_;
      next_ = (next_ + 1) % kMaxHops;
      size_ = std::min(size_ + 1, window_hops_);
    }
  }
  hop_frames_ = 0;
  hop_energy_ = 0;
  hop_peak_ = 0;
}

void LoudnessMeter::ContinueWith(double window_s, double gain) {
  weighting_ = KWeighting();
  hop_frames_ = 0;
  hop_energy_ = 0;
  hop_peak_ = 0;
  hops_.fill(0);
  sounding_ = false;
  incomplete_blocks_ = kHopsPerBlock - 1;
  window_hops_ = HopsOf(window_s);
  size_ = std::min(size_, window_hops_);
  set_aside_ = 0;
  if (gain != 1.0) {
    for (std::size_t i = 0; i < kMaxHops; ++i) {
      powers_[i] *= gain * gain;
      peaks_[i] *= static_cast<float>(gain);
    }
  }
}

void LoudnessMeter::StartProgramme() {
  set_aside_ = size_;
  size_ = 0;
  incomplete_blocks_ = kHopsPerBlock - 1;
}

void LoudnessMeter::TakeBackProgramme() {
  size_ = std::min(size_ + set_aside_, window_hops_);
  set_aside_ = 0;
}

double LoudnessMeter::MomentaryLufs() const { return LoudnessOf(momentary_power_); }

double LoudnessMeter::LoudnessLufs() const {
  double all = 0;
  for (std::size_t age = 0; age < size_; ++age) {
    all += powers_[Index(age)];
  }
  const double gate = all / static_cast<double>(size_) * PowerFromDb(kRelativeGateLu);
  double sum = 0;
  double count = 0;
  for (std::size_t age = 0; age < size_; ++age) {
    const double power = powers_[Index(age)];
    sum += power > gate ? power : 0;
    count += power > gate ? 1 : 0;
  }
  return LoudnessOf(sum / count);
}

float LoudnessMeter::Peak() const {
  float peak = 0;
  for (std::size_t age = 0; age < size_; ++age) {
    peak = std::max(peak, peaks_[Index(age)]);
  }
  return peak;
}

}  // namespace kelda::upmix_lib
