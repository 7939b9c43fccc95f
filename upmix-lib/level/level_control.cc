#include "upmix-lib/level/level_control.h"

#include <algorithm>

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
      input_gain_(AmplitudeFromDb(parameters.gain_db)),
      meter_(static_cast<double>(parameters.window_s)),
      limiter_(parameters.ceiling_dbtp, parameters.limiter_release_ms) {}

void LevelControl::ContinueWith(const LevelParameters& parameters) {
  // What the fixed gain adds, levelling takes back: at once, because it is no change of the
  // programme.
  const auto more_db = static_cast<double>(parameters.gain_db - parameters_.gain_db);
  if (more_db != 0) {
    gain_.Jump(std::clamp(gain_.gain_db() - static_cast<double>(parameters.strength) * more_db,
                          -static_cast<double>(parameters.max_cut_db),
                          static_cast<double>(parameters.max_boost_db)));
    wanted_gain_db_ = gain_.gain_db();
  }
  parameters_ = parameters;
  input_gain_ = AmplitudeFromDb(parameters.gain_db);
  meter_.ContinueWith(static_cast<double>(parameters.window_s), AmplitudeFromDb(more_db));
  limiter_ = Limiter(parameters.ceiling_dbtp, parameters.limiter_release_ms);
}

double LevelControl::GainFor(double loudness_lufs) const {
  return WantedGainDb(parameters_, loudness_lufs,
                      DbFromAmplitude(static_cast<double>(meter_.Peak())));
}

Pace LevelControl::CurrentPace() const {
  if (quick_hops_ > 0) {
    return {.boost_db_per_s = 30.0, .cut_db_per_s = 30.0, .ease_s = 0.1};
  }
  return {.boost_db_per_s = double{parameters_.boost_db_per_s},
          .cut_db_per_s = double{parameters_.cut_db_per_s},
          .ease_s = 1.0};
}

// A programme that grows at once is measured from the jump on, and cut at once. If that was only
// a burst, what came before it counts again.
void LevelControl::FollowJump() {
  const double now_lufs = meter_.MomentaryLufs();
  const double now_db = GainFor(now_lufs);
  const bool begins = meter_.programme_s() == 0;
  if (hops_since_jump_ >= kReachingBackHops && gain_.gain_db() > now_db + kJumpDb &&
      (begins || now_lufs > meter_.LoudnessLufs() + kJumpDb)) {
    hops_since_jump_ = 0;
    loudness_before_jump_lufs_ = begins ? now_lufs : meter_.LoudnessLufs();
    quick_hops_ = std::max(quick_hops_, kQuickHopsAfterJump);
    meter_.StartProgramme();
  }
  if (hops_since_jump_ == kBurstHops) {
    return;
  }
  ++hops_since_jump_;
  if (hops_since_jump_ <= kReachingBackHops) {
    if (now_db < gain_.gain_db()) {
      gain_.Jump(now_db);
      wanted_gain_db_ = now_db;
    }
  } else if (now_lufs < loudness_before_jump_lufs_ + kJumpDb) {
    hops_since_jump_ = kBurstHops;
    meter_.TakeBackProgramme();
  }
}

void LevelControl::EndHop() {
  if (!meter_.sounding()) {
    return;
  }
  FollowJump();
  const bool quick = quick_hops_ > 0;
  if (meter_.programme_s() >= (quick ? LoudnessMeter::kHopS : kEvidenceS)) {
    wanted_gain_db_ = GainFor(meter_.LoudnessLufs());
    quick_hops_ -= quick ? 1 : 0;
  }
}

void LevelControl::Process(const float* in, float* out) {
  float* frames = limiter_.input();
  const bool silent = !GuardSamples(in, frames, 2 * kBlockFrames);
  if (!silent) {
#pragma omp simd
    for (std::size_t i = 0; i < 2 * kBlockFrames; ++i) {
      frames[i] *= input_gain_;
    }
  }
  const auto before = static_cast<float>(AmplitudeFromDb(gain_.gain_db()));  // of a jump, too
  if (meter_.Process(frames, kBlockFrames, silent)) {
    EndHop();
  }
  if (silent && !meter_.sounding() && limiter_.at_rest()) {
    std::fill_n(out, 2 * kBlockFrames, 0.0f);
    return;
  }
  if (meter_.sounding()) {
    gain_.Approach(wanted_gain_db_, kBlockS, CurrentPace());
  }
  Ramp(frames, before, static_cast<float>(AmplitudeFromDb(gain_.gain_db())));
  limiter_.Process(out);
}

}  // namespace kelda::upmix_lib
