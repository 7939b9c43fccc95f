#include "hal/rate_converter.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "platform/math_constants.h"

namespace kelda::hal {
namespace {

// Of Kaiser's window: what the filter lets through of that which it stops is below -86 dB.
constexpr double kBeta = 8.6;

// Input that fits between two moves of what is kept.
constexpr std::size_t kMoveFrames = 4 * RateConverter::kMostFrames;

// The modified Bessel function of the first kind and order zero, by its power series.
double BesselI0(double x) {
  double sum = 1.0, term = 1.0;
  for (int k = 1; term > 1e-17 * sum; ++k) {
    const double factor = x / (2 * k);
    term *= factor * factor;
    sum += term;
  }
  return sum;
}

// The filter, which is not zero between -half and half input frames; `cut` in cycles a frame.
double Kernel(double frame, double half, double cut) {
  if (std::fabs(frame) >= half) {
    return 0.0;
  }
  const double x = 2 * kPi * cut * frame;
  const double sinc = x == 0 ? 1.0 : std::sin(x) / x;
  const double part = frame / half;
  return sinc * BesselI0(kBeta * std::sqrt(1 - part * part));
}

std::size_t Divided(int32_t rate_hz, int32_t other_hz) {
  return static_cast<std::size_t>(rate_hz / std::gcd(rate_hz, other_hz));
}

std::size_t RoundedUp(double frames, std::size_t multiple) {
  return (static_cast<std::size_t>(std::ceil(frames)) + multiple - 1) / multiple * multiple;
}

}  // namespace

RateConverter::RateConverter(int32_t from_hz, int32_t to_hz, double delay_frames)
    : phases_(Divided(to_hz, from_hz)),
      step_(Divided(from_hz, to_hz)),
      taps_(RoundedUp(2 * delay_frames, 2 * kLanes)),
      rows_(2 * taps_ * phases_),
      input_(2 * (taps_ - 1 + kMoveFrames)) {
  const double cut = 0.5 * std::min(1.0, static_cast<double>(to_hz) / from_hz);
  std::vector<double> row(taps_);
  for (std::size_t phase = 0; phase < phases_; ++phase) {
    for (std::size_t tap = 0; tap < taps_; ++tap) {
      const double age = static_cast<double>(taps_ - 1 - tap) +
                         static_cast<double>(phase) / static_cast<double>(phases_);
      row[tap] = Kernel(age - delay_frames, delay_frames, cut);
    }
    const double sum = std::accumulate(row.begin(), row.end(), 0.0);
    for (std::size_t tap = 0; tap < taps_; ++tap) {
      float* const pair = &rows_[2 * (taps_ * phase + tap)];
      pair[0] = pair[1] = static_cast<float>(row[tap] / sum);
    }
  }
}

void RateConverter::Clear() {
  std::fill(input_.begin(), input_.end(), 0.0f);
  begin_ = phase_ = skip_ = 0;
}

std::size_t RateConverter::Convert(const float* in, std::size_t frames, float* out) {
  if (begin_ + frames > kMoveFrames) {
    std::copy_n(input_.data() + 2 * begin_, 2 * (taps_ - 1), input_.data());
    begin_ = 0;
  }
  float* const window = input_.data() + 2 * begin_;
  std::copy_n(in, 2 * frames, window + 2 * (taps_ - 1));
  const std::size_t whole = step_ / phases_, part = step_ % phases_;
  std::size_t produced = 0;
  for (; skip_ < frames; ++produced) {
    Frame(rows_.data() + 2 * taps_ * phase_, window + 2 * skip_, out + 2 * produced);
    skip_ += whole;
    phase_ += part;
    if (phase_ >= phases_) {
      phase_ -= phases_;
      ++skip_;
    }
  }
  skip_ -= frames;
  begin_ += frames;
  return produced;
}

// Compilers make vectors of the lanes, which are left and right in turn, and the sum of four
// products at a time does not wait for the one before.
void RateConverter::Frame(const float* row, const float* in, float* out) const {
  float sums[kLanes] = {};
  for (std::size_t i = 0; i < 2 * taps_; i += 4 * kLanes) {
    const float* const h = row + i;
    const float* const x = in + i;
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      sums[lane] += (h[lane] * x[lane] + h[lane + kLanes] * x[lane + kLanes]) +
                    (h[lane + 2 * kLanes] * x[lane + 2 * kLanes] +
                     h[lane + 3 * kLanes] * x[lane + 3 * kLanes]);
    }
  }
  for (std::size_t side = 0; side < 2; ++side) {
    out[side] = (sums[side] + sums[side + 2]) + (sums[side + 4] + sums[side + 6]);
  }
}

}  // namespace kelda::hal
