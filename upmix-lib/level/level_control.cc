#include "upmix-lib/level/level_control.h"

#include "upmix-lib/base/decibels.h"
#include "upmix-lib/base/input_guard.h"

namespace kelda::upmix_lib {
namespace {

constexpr double kBlockS = static_cast<double>(kBlockFrames) / kSampleRateHz;

// Multiplies interleaved frames by a gain that moves evenly from `from` to `to`.
void Ramp(float* frames, float from, float to) {
  const float step = (to - from) / kBlockFrames;
#pragma omp simd
  for (std::size_t i = 0; i < kBlockFrames; ++i) {
    const float gain = from + step * static_cast<float>(static_cast<int>(i) + 1);
    frames[2 * i] *= gain;
    frames[2 * i + 1] *= gain;
  }
}

}  // namespace

LevelControl::LevelControl(const LevelParameters& parameters)
    : parameters_(parameters),
      meter_(static_cast<double>(parameters.window_s)),
      limiter_(parameters.ceiling_dbtp, parameters.limiter_release_ms) {}

void LevelControl::UpdateWantedGain() {
  if (meter_.sounding() && meter_.programme_s() >= kEvidenceS) {
    const double peak_dbfs = DbFromAmplitude(static_cast<double>(meter_.Peak()));
    wanted_gain_db_ = WantedGainDb(parameters_, meter_.LoudnessLufs(), peak_dbfs);
  }
}

void LevelControl::Process(const float* in, float* out) {
  float* frames = limiter_.input();
  GuardSamples(in, frames, 2 * kBlockFrames);
  if (meter_.Process(frames, kBlockFrames)) {
    UpdateWantedGain();
  }
  const auto before = static_cast<float>(AmplitudeFromDb(gain_.gain_db()));
  if (meter_.sounding()) {
    gain_.Approach(wanted_gain_db_, kBlockS, parameters_);
  }
  Ramp(frames, before, static_cast<float>(AmplitudeFromDb(gain_.gain_db())));
  limiter_.Process(out);
}

}  // namespace kelda::upmix_lib
