// Finds steps that do not fit the signal around them.
#ifndef KELDA_TOOLS_MEASURE_STEP_DETECTOR_H_
#define KELDA_TOOLS_MEASURE_STEP_DETECTOR_H_

#include <array>
#include <cstdint>
#include <optional>

namespace kelda::tools {

struct Step {
  int64_t frame;  // the first one after the step
  double size;    // by how much the signal jumps
};

// Looks at the second difference d[n] = x[n] - 2 x[n-1] + x[n-2], which is small in smooth sound
// and as high as the step at a step:
//
//   kWindow frames   kGuard      step      kGuard   kWindow frames
//   ---- before ---|---------|-----x-----|--------|---- after ----
//
// A step is reported if |d| is at least kFactor times the RMS of d before it and after it, and the
// next d is its opposite. The attack of a drum is not reported, because the sound after it is as
// rough as the attack. Noise does not reach the factor (8 standard deviations).
class StepDetector {
 public:
  static constexpr int kWindow = 64;
  static constexpr int kGuard = 4;
  static constexpr double kFactor = 8;
  static constexpr double kSmallest = 1e-3;  // -60 dBFS; smaller ones cannot be heard
  static constexpr double kLargest = 100;    // |d| is limited to it

  // Takes the next sample, which is finite. Returns a step if there was one kWindow + kGuard frames
  // ago.
  std::optional<Step> Add(double sample);

  // Called instead of Add after the last sample: kFlushFrames calls return the steps that Add could
  // not return yet.
  std::optional<Step> Flush();
  static constexpr int kFlushFrames = kWindow + kGuard;

 private:
  static constexpr int kHistory = 256;
  static_assert(kHistory > 2 * (kWindow + kGuard) + 1);

  struct Frame {
    double sample = 0;
    double difference = 0;
  };
  Frame& At(int64_t frame) { return history_[static_cast<uint64_t>(frame) % kHistory]; }
  double Energy(int64_t frame) {
    return frame < 0 ? 0 : At(frame).difference * At(frame).difference;
  }
  std::optional<Step> Judge();

  std::array<Frame, kHistory> history_{};
  int64_t frames_ = 0;
  double before_ = 0;  // sums of d * d over the windows
  double after_ = 0;
  int64_t last_step_ = -kHistory;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_STEP_DETECTOR_H_
