// Measures the levels of a capture and finds its faults.
#ifndef KELDA_TOOLS_CAPTURE_CAPTURE_ANALYSIS_H_
#define KELDA_TOOLS_CAPTURE_CAPTURE_ANALYSIS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/measure/step_detector.h"

namespace kelda::tools {

struct ChannelLevels {
  double peak = 0;         // magnitude, 1 is full scale
  int64_t peak_frame = 0;  // the first with it
  double rms = 0;
  double mean = 0;     // DC
  int64_t beyond = 0;  // samples beyond full scale
  int64_t nans = 0;
  int64_t infinities = 0;
};

struct CaptureEvent {
  int64_t frame;   // the first
  int64_t frames;  // how many
  int channel;     // -1: all
  double value;    // its meaning depends on the kind of event
};

// Events in order of time. After the first kMost they are only counted, so that a capture that is
// full of them does not fill the memory.
struct CaptureEvents {
  static constexpr std::size_t kMost = 10000;
  std::vector<CaptureEvent> listed;
  int64_t count = 0;

  void Add(const CaptureEvent& event);
};

struct CaptureFindings {
  int64_t frames = 0;
  std::vector<ChannelLevels> channels;
  CaptureEvents not_finite;  // NaN and infinity, each sample; value: the sample
  // Every channel below kSilencePeak for kSilenceFrames or more; value: the peak, 0 if
  // all samples are 0.
  CaptureEvents silence;
  // Beyond full scale, or the same value near full scale several times in a row; spots
  // less than kSpotGapFrames apart are one event; value: the peak.
  CaptureEvents clipping;
  // Steps that do not fit in with what is around them (step_detector.h); value: the step.
  CaptureEvents discontinuities;
};

inline constexpr double kSilencePeak = 3.16e-5;  // -90 dBFS
inline constexpr int64_t kSilenceFrames = 96;    // 2 ms
inline constexpr double kNearFullScale = 0.98;
inline constexpr int64_t kFlatFrames = 4;
inline constexpr int64_t kSpotGapFrames = 480;  // 10 ms

class CaptureAnalysis {
 public:
  explicit CaptureAnalysis(int channels);

  // Takes the next frames and replaces their NaNs and infinities by 0.
  void Add(std::vector<float>* interleaved);

  // Returns everything that was found. To be called once, at the end.
  CaptureFindings Finish();

 private:
  struct Channel {
    double sum = 0;
    double sum_of_squares = 0;
    double last = 0;
    int64_t equal = 0;  // how many times in a row the last value came
    CaptureEvent clipping{0, 0, 0, 0};
    StepDetector steps;
  };

  void AddSample(int channel, float* sample);
  void MarkClipping(int channel, int64_t first, double magnitude);
  void AddStep(int channel, const Step& step);
  void EndSilence();

  CaptureFindings findings_;
  std::vector<Channel> channels_;
  CaptureEvent silence_{0, 0, -1, 0};
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CAPTURE_CAPTURE_ANALYSIS_H_
