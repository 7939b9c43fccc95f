#include "upmix-lib/upmix/dialogue.h"

#include <algorithm>
#include <cmath>

#include "platform/math_constants.h"
#include "upmix-lib/base/decibels.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {
namespace {

constexpr int kPoints = 2 * kBlockFrames;
constexpr int kBins = kPoints / 2 + 1;
constexpr float kDialogueBlockS = static_cast<float>(kBlockFrames) / kSampleRateHz;

constexpr int Bin(int hz) { return (hz * kPoints + kSampleRateHz / 2) / kSampleRateHz; }

// Pitch is heard from the harmonics of a voice, above bass and drums.
constexpr int kPitchLowBin = Bin(200), kPitchHighBin = Bin(1200);
constexpr int kShortestPeriod = kSampleRateHz / 400, kLongestPeriod = kSampleRateHz / 75;
// Loudness is that of the range of speech.
constexpr int kSpeechLowBin = Bin(300), kSpeechHighBin = Bin(4000);

constexpr float kClear = 0.7f;         // clarity of a pitch that counts
constexpr float kGlideLeast = 0.004f;  // octaves a block: less is a held note,
constexpr float kGlideMost = 0.06f;    // more another one
constexpr float kHeldWeight = 0.5f;    // of held notes against gliding ones
constexpr float kGap = 0.08f;          // of the mean power: a gap between words, -11 dB

// Shares of time: where speech begins and where it ends.
constexpr float kGlideOn = 0.14f, kGlideOff = 0.07f;
constexpr float kGapsOn = 0.3f, kGapsOff = 0.12f;
constexpr float kEvidenceS = 1.0f;  // time constant of these and of the mean power
constexpr int kFewestBlocks = 28;   // of sound before anything counts as speech: 0.6 s
constexpr int kAllBlocks = 1000;
constexpr int kHoldBlocks = 19;  // 0.4 s

constexpr float kAttackS = 0.01f, kReleaseS = 0.3f;
constexpr float kFocusSlack = 1e-4f;
// A front plane of this share of the voice's power is held back by half as much: what is louder, an
// effect or an instrument, would be heard to be turned down, and the voice gained nothing.
constexpr float kLoudFront = 0.3f;
constexpr float kMostLift = 1.7f;  // of the centre: 4.6 dB
// What the others lose counts twice: they are louder at an ear than the centre of the same power.
constexpr float kLiftPerLoss = 2.0f;
constexpr float kBalanceS = 1.0f;  // time constant of the powers that the lift balances
constexpr float kForgetS = 0.1f;  // the same while nobody speaks, where less would be lost than was
constexpr float kNoPower = 1e-10f;  // of a plane; -100 dBFS

constexpr float kSilence = 4e-3f;  // power of a spectrum of no interest; -83 dBFS for a sine

float StepOf(float seconds) { return 1.0f - std::exp(-kDialogueBlockS / seconds); }

float MeanPower(const float* plane) {
  float sum = 0.0f;
#pragma omp simd reduction(+ : sum)
  for (int n = 0; n < kBlockFrames; ++n) {
    sum += plane[n] * plane[n];
  }
  return sum / kBlockFrames;
}

// Ends a decay.
float Settled(float value, float target, float slack) {
  return std::fabs(value - target) < slack ? target : value;
}

}  // namespace

struct SpeechTables {
  alignas(kSimdAlignmentBytes) float window[kPoints];
  float per_overlap[kLongestPeriod + 2];  // 1 over the window's own autocorrelation
  float evidence_step = StepOf(kEvidenceS);
  const RealFft& fft = SharedRealFft<kPoints>();

  SpeechTables() {
    for (int n = 0; n < kPoints; ++n) {
      window[n] = static_cast<float>(0.5 - 0.5 * std::cos(2.0 * kPi * (n + 0.5) / kPoints));
    }
    double all = 0.0;
    for (int lag = 0; lag < kLongestPeriod + 2; ++lag) {
      double sum = 0.0;
      for (int n = lag; n < kPoints; ++n) {
        sum += static_cast<double>(window[n]) * static_cast<double>(window[n - lag]);
      }
      all = lag == 0 ? sum : all;
      per_overlap[lag] = static_cast<float>(all / sum);
    }
  }
};

const SpeechTables* SharedSpeechTables() {
  static const SpeechTables tables;
  return &tables;
}

// Periodicity by the autocorrelation, the window's own divided out (P. Boersma, "Accurate
// short-term analysis of the fundamental frequency", IFA Proceedings 17, 1993).
SpeechDetector::Pitch SpeechDetector::Listen(const float* block, float& power) {
  std::copy_n(frames_ + kBlockFrames, kBlockFrames, frames_);
  std::copy_n(block, kBlockFrames, frames_ + kBlockFrames);
  alignas(kSimdAlignmentBytes) float time[kPoints];
  alignas(kSimdAlignmentBytes) float re[kBins + kLanes], im[kBins + kLanes];
  alignas(kSimdAlignmentBytes) float scratch[RealFft::ScratchFloats(kPoints)];
#pragma omp simd
  for (int n = 0; n < kPoints; ++n) {
    time[n] = tables_->window[n] * frames_[n];
  }
  tables_->fft.Forward(time, re, im, scratch);
  for (int k = 0; k < kBins; ++k) {
    re[k] = re[k] * re[k] + im[k] * im[k];
    im[k] = 0.0f;
  }
  power = 0.0f;
  for (int k = kSpeechLowBin; k < kSpeechHighBin; ++k) {
    power += re[k];
  }
  if (power < kSilence) {
    power = 0.0f;
    return {};
  }
  std::fill(re, re + kPitchLowBin, 0.0f);
  std::fill(re + kPitchHighBin, re + kBins, 0.0f);
  tables_->fft.Inverse(re, im, time, scratch);
  const float scale = 1.0f / (time[0] + kSilence);
  for (int lag = kShortestPeriod - 1; lag <= kLongestPeriod + 1; ++lag) {
    time[lag] *= scale * tables_->per_overlap[lag];
  }
  const float* const best = std::max_element(time + kShortestPeriod, time + kLongestPeriod + 1);
  const float before = best[-1], after = best[1];
  if (before > *best || after > *best) {
    return {};  // The maximum lies outside of the lags.
  }
  const float bend = before - 2.0f * *best + after;
  const float beside = bend < 0.0f ? 0.5f * (before - after) / bend : 0.0f;
  return {std::log2(static_cast<float>(best - time) + beside), *best};
}

bool SpeechDetector::Process(const float* block, bool silent) {
  silent_blocks_ = silent ? std::min(silent_blocks_ + 1, kFrames / kBlockFrames) : 0;
  if (at_rest()) {
    return false;
  }
  float power;
  const Pitch pitch = Listen(block, power);
  // Averages of what there was since the last silence, until they last kEvidenceS.
  blocks_ = mean_power_ + power > 0.0f ? std::min(blocks_ + 1, kAllBlocks) : 0;
  const float step =
      std::max(tables_->evidence_step, 1.0f / static_cast<float>(std::max(blocks_, 1)));
  mean_power_ = Settled(mean_power_ + step * (power - mean_power_), 0.0f, kSilence);
  const bool gap = power < kGap * mean_power_;
  const bool clear = !gap && pitch.clarity > kClear && last_.clarity > kClear;
  const float moved = std::fabs(pitch.octaves - last_.octaves);
  last_ = pitch;
  const auto follow = [step](float& share, bool now) {
    share = Settled(share + step * ((now ? 1.0f : 0.0f) - share), 0.0f, 1e-4f);
  };
  follow(gliding_, clear && moved > kGlideLeast && moved < kGlideMost);
  follow(steady_, clear && moved <= kGlideLeast);
  follow(gaps_, gap);
  const float glides = gliding_ - kHeldWeight * steady_;
  speech_ = blocks_ >= kFewestBlocks && glides > (speech_ ? kGlideOff : kGlideOn) &&
            gaps_ > (speech_ ? kGapsOff : kGapsOn);
  if (speech_ && !gap) {
    hold_blocks_ = kHoldBlocks;
  } else if (hold_blocks_ > 0) {
    --hold_blocks_;
  }
  return hold_blocks_ > 0;
}

DialogueFocus::DialogueFocus(float ducking_db)
    : attack_(StepOf(kAttackS)),
      release_(StepOf(kReleaseS)),
      balance_step_(StepOf(kBalanceS)),
      forget_step_(StepOf(kForgetS)),
      ducking_(AmplitudeFromDb(-ducking_db) - 1.0f) {}

void DialogueFocus::Clear() {
  detector_ = {};
  focus_ = voice_power_ = lost_power_ = 0.0f;
  quiet_[0] = quiet_[1] = 1.0f;
  gains_ = {};
}

// Also while nobody speaks, so that the first word finds the balance; but that of its own scene,
// and not of a louder one before.
void DialogueFocus::Weigh(const float* const (&planes)[kPlanes], bool silent) {
  const auto power_of = [&planes, silent](int plane) {
    return silent ? 0.0f : MeanPower(planes[plane]);
  };
  const auto follow = [](float& mean, float now, float step) {
    mean = Settled(mean + step * (now - mean), 0.0f, kNoPower);
  };
  follow(voice_power_, power_of(kFC), balance_step_);
  float lost = 0.0f;
  const auto hold_back = [&lost, this](float power, float share) {
    const float gain = 1.0f + share * ducking_;
    lost += (1.0f - gain * gain) * power;
  };
  for (int ear = 0; ear < kEars; ++ear) {
    const float power = power_of(kFL + ear);
    const float loud = power / (kLoudFront * voice_power_ + kNoPower);
    const float quiet = 1.0f / (1.0f + loud * loud);
    quiet_[ear] = std::min(quiet, quiet_[ear] + release_ * (quiet - quiet_[ear]));
    hold_back(power, quiet_[ear]);
  }
  for (const int plane : {kSL, kSR, kBL, kBR}) {
    hold_back(power_of(plane), 1.0f);
  }
  follow(lost_power_, lost, focus_ == 0.0f && lost < lost_power_ ? forget_step_ : balance_step_);
}

DialogueFocus::Gains DialogueFocus::Balance() const {
  const float lift = std::sqrt(1.0f + kLiftPerLoss * lost_power_ / (voice_power_ + kNoPower));
  Gains gains;
  for (int ear = 0; ear < kEars; ++ear) {
    gains.front[ear] = 1.0f + focus_ * quiet_[ear] * ducking_;
  }
  gains.surround = 1.0f + focus_ * ducking_;
  gains.centre = 1.0f + focus_ * (std::min(lift, kMostLift) - 1.0f);
  gains.shared = focus_ * std::min(quiet_[0], quiet_[1]);
  return gains;
}

void DialogueFocus::Process(float* const (&planes)[kPlanes], bool silent) {
  const float before = focus_;
  const float target = detector_.Process(planes[kFC], silent) ? 1.0f : 0.0f;
  focus_ = Settled(before + (target > before ? attack_ : release_) * (target - before), target,
                   kFocusSlack);
  Weigh(planes, silent);
  if (before == 0.0f && focus_ == 0.0f) {
    if (silent && voice_power_ == 0.0f && lost_power_ == 0.0f) {
      quiet_[0] = quiet_[1] = 1.0f;
    }
    return;
  }
  const Gains from = gains_;
  gains_ = Balance();
  const Gains& to = gains_;
  constexpr float kStep = 1.0f / kBlockFrames;
  float *left = planes[kFL], *right = planes[kFR], *centre = planes[kFC];
#pragma omp simd
  for (int n = 0; n < kBlockFrames; ++n) {
    const float at = kStep * (static_cast<float>(n) + 1.0f);
    const float shared = 0.5f * (from.shared + at * (to.shared - from.shared));
    const float middle = shared * (left[n] + right[n]);
    left[n] = (from.front[0] + at * (to.front[0] - from.front[0])) * (left[n] - middle);
    right[n] = (from.front[1] + at * (to.front[1] - from.front[1])) * (right[n] - middle);
    centre[n] = (from.centre + at * (to.centre - from.centre)) *
                (centre[n] + static_cast<float>(kSqrt2) * middle);
  }
  for (const int plane : {kSL, kSR, kBL, kBR}) {
    float* samples = planes[plane];
#pragma omp simd
    for (int n = 0; n < kBlockFrames; ++n) {
      const float at = kStep * (static_cast<float>(n) + 1.0f);
      samples[n] *= from.surround + at * (to.surround - from.surround);
    }
  }
}

}  // namespace kelda::upmix_lib
