#include "tools/measure/step_detector.h"

#include <algorithm>
#include <cmath>

namespace kelda::tools {

std::optional<Step> StepDetector::Add(double sample) {
  const int64_t now = frames_++;
  // 0 at first, so that a capture that begins in the middle of sound does not begin with a step.
  const double difference = now < 2 ? 0 : sample - 2 * At(now - 1).sample + At(now - 2).sample;
  // Limited, because one absurd sample would spoil the running sums for good.
  At(now) = {sample, std::clamp(difference, -kLargest, kLargest)};
  return Judge();
}

std::optional<Step> StepDetector::Flush() {
  const int64_t now = frames_++;
  At(now) = {At(now - 1).sample, 0};
  return Judge();
}

std::optional<Step> StepDetector::Judge() {
  const int64_t now = frames_ - 1;
  const int64_t middle = now - kWindow - kGuard;
  // The running sums keep the rounding errors of loud frames, which may make them negative. The
  // errors are far below kSmallest.
  after_ = std::max(0.0, after_ + Energy(now) - Energy(now - kWindow));
  before_ = std::max(0.0, before_ + Energy(middle - kGuard) - Energy(middle - kGuard - kWindow));
  if (middle < 1) {
    return std::nullopt;
  }
  const double difference = std::abs(At(middle).difference);
  const double around = std::sqrt(std::max(before_, after_) / kWindow);
  if (difference < kSmallest || difference < kFactor * around || middle - last_step_ < kGuard) {
    return std::nullopt;
  }
  // After a step the next difference is its opposite. After a mere bend, as at the sudden start of
  // a tone, it is not.
  if (At(middle + 1).difference * At(middle).difference > -0.5 * difference * difference) {
    return std::nullopt;
  }
  last_step_ = middle;
  return Step{middle, At(middle).sample - At(middle - 1).sample};
}

}  // namespace kelda::tools
