#ifndef KELDA_TOOLS_AUDIO_LOUDNESS_METER_H_
#define KELDA_TOOLS_AUDIO_LOUDNESS_METER_H_

#include <ebur128.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "tools/audio/rate_converter.h"

namespace kelda::tools {

struct Levels {
  std::optional<double> loudness_lufs;  // empty for silence and for less than 0.4 s
  std::optional<double> true_peak_db;   // dBTP; empty for silence
  int64_t not_finite = 0;               // samples that were NaN or infinite
};

// Integrated loudness and true peak of 48 kHz stereo, by ITU-R BS.1770-4, annexes 1 and 2.
// libebur128 measures the loudness. Its true peak would take longer than the effect itself, so the
// true peak is the largest sample after libsoxr has converted to four times the rate.
class LoudnessMeter {
 public:
  // Throws std::bad_alloc, as Add does.
  LoudnessMeter();

  // Takes interleaved stereo frames. Samples that are NaN or infinite count as 0.
  void Add(const float* stereo, std::size_t frames);

  // The result. Called once, after the last frame.
  Levels Finish();

 private:
  struct Deleter {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
  };
  void TakePeak(const float* samples, std::size_t count);

  std::unique_ptr<ebur128_state, Deleter> state_;
  RateConverter oversampling_;
  std::vector<float> finite_;
  std::vector<float> oversampled_;
  float peak_ = 0;
  int64_t not_finite_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_LOUDNESS_METER_H_
