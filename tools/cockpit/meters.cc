#include "tools/cockpit/meters.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "tools/measure/band_power.h"
#include "upmix-lib/base/decibels.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::tools {
namespace {

constexpr double kSilent = 1e-12;  // power, -120 dB

double Db(double power) {
  return power > kSilent ? 10 * std::log10(power) : -std::numeric_limits<double>::infinity();
}

}  // namespace

Json Rounded(double value) {
  constexpr double kPlaces = 100;
  return std::isfinite(value) ? Json(std::round(kPlaces * value) / kPlaces) : Json(nullptr);
}

// ---- Loudness.

void RunningLoudness::Add(const float* stereo, std::size_t frames) {
  while (frames > 0) {
    const std::size_t piece = std::min(frames, kHopFrames - frames_);
    energy_ += weighting_.Energy(stereo, piece);
    frames_ += piece;
    stereo += 2 * piece;
    frames -= piece;
    if (frames_ == kHopFrames) {
      energies_[next_] = energy_;
      next_ = (next_ + 1) % kMostHops;
      count_ = std::min(count_ + 1, kMostHops);
      energy_ = 0;
      frames_ = 0;
    }
  }
}

void RunningLoudness::Restart() {
  count_ = 0;
  frames_ = 0;
  energy_ = 0;
}

double RunningLoudness::Lufs(std::size_t hops) const {
  double energy = 0;
  for (std::size_t age = 1; age <= hops; ++age) {
    energy += energies_[(next_ + kMostHops - age) % kMostHops];
  }
  constexpr double kOffset = -0.691;  // BS.1770-4
  return kOffset + Db(energy / static_cast<double>(hops * kHopFrames));
}

// ---- A signal.

void SignalMeter::Add(const float* stereo, std::size_t frames) {
  constexpr std::size_t kReach = upmix_lib::TruePeak::kReachFrames;
  constexpr std::size_t kChunk = upmix_lib::TruePeak::kChunkFrames;
  loudness_.Add(stereo, frames);
  for (std::size_t i = 0; i < frames; ++i) {
    last_[2 * at_] = stereo[2 * i];
    last_[2 * at_ + 1] = stereo[2 * i + 1];
    at_ = (at_ + 1) % kShownFrames;
  }
  if (waiting_.empty()) {
    waiting_.assign(2 * kReach, 0.0f);
  }
  waiting_.insert(waiting_.end(), stereo, stereo + 2 * frames);
  std::size_t from = kReach;
  for (; from + kChunk + kReach <= waiting_.size() / 2; from += kChunk) {
    peak_ = std::max(peak_, true_peak_.OfChunk(&waiting_[2 * from]));
  }
  waiting_.erase(waiting_.begin(),
                 waiting_.begin() + static_cast<std::ptrdiff_t>(2 * (from - kReach)));
}

Json SignalMeter::Spectrum() const {
  using Fft = upmix_lib::RealFft;
  constexpr auto kSize = static_cast<int>(kWindowFrames);
  static const Fft& fft = upmix_lib::SharedRealFft<kSize>();
  static const std::vector<double> window = HannWindow(kWindowFrames);
  static const std::vector<double> centres = ThirdOctaves(20, 20000);
  // Parseval's theorem, both signs of the frequency, and the mean of the window's square.
  constexpr double kScale = 2 / (0.375 * double{kSize} * double{kSize});
  std::vector<float> samples(kWindowFrames), re(fft.bins()), im(fft.bins()),
      scratch(fft.scratch_floats());
  Power power(static_cast<std::size_t>(fft.bins()));
  for (std::size_t channel = 0; channel < 2; ++channel) {
    for (std::size_t n = 0; n < kWindowFrames; ++n) {
      const std::size_t frame = (at_ + kShownFrames - kWindowFrames + n) % kShownFrames;
      samples[n] = static_cast<float>(window[n]) * last_[2 * frame + channel];
    }
    fft.Forward(samples.data(), re.data(), im.data(), scratch.data());
    for (std::size_t k = 0; k < power.size(); ++k) {
      power[k] += kScale * static_cast<double>(re[k] * re[k] + im[k] * im[k]);
    }
  }
  Json bands = Json::array();
  for (const double band : ThirdOctavePowers(power, kWindowFrames, centres)) {
    bands.push_back(Rounded(Db(band)));
  }
  return bands;
}

Json SignalMeter::Take() {
  double left = 0, right = 0, both = 0;
  for (std::size_t i = 0; i < kShownFrames; ++i) {
    const double l = last_[2 * i], r = last_[2 * i + 1];
    left += l * l;
    right += r * r;
    both += l * r;
  }
  const bool sounds = left + right > kSilent * kShownFrames;
  const auto loudness = [&](std::size_t hops) {
    return loudness_.hops() < hops ? Json(nullptr) : Rounded(loudness_.Lufs(hops));
  };
  const double peak = std::exchange(peak_, 0.0f);
  return {{"momentary", loudness(RunningLoudness::kMomentaryHops)},
          {"short", loudness(RunningLoudness::kShortHops)},
          {"true_peak", Rounded(Db(peak * peak))},
          {"correlation", left > 0 && right > 0 && sounds ? Rounded(both / std::sqrt(left * right))
                                                          : Json(nullptr)},
          {"balance", sounds ? Rounded((right - left) / (right + left)) : Json(nullptr)},
          {"spectrum", sounds ? Spectrum() : Json(nullptr)}};
}

}  // namespace kelda::tools
