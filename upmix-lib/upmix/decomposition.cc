#include "upmix-lib/upmix/decomposition.h"

#include <algorithm>
#include <cmath>

#include "upmix-lib/base/audio_format.h"

namespace kelda::upmix_lib {
namespace {

// By how much short and long powers may differ before the long ones are corrected: the beats
// of steady tones stay within, so that gains rest.
constexpr float kPowerSlack = 3.0f;
constexpr float kCoherenceSlack = 2.0f;
constexpr float kCoherenceFloor = 0.05f;

// A band attacks when its short power exceeds the long one by more than this.
constexpr float kAttackRatio = 3.0f;
// What the short window leaks from one band into the next, at most: it is not compared.
constexpr float kLeakage = 0.3f;

// How much slower the gains of a bin follow that has the mean power of its last 0.3 s.
constexpr float kSteadyHold = 0.8f;
// And of one that has half of that power or less: what is left of a note stays where it was.
constexpr float kFallHold = 0.5f;

// Gains are decided at once when so much of the short power is in bands that attack. That much
// extra work may be saved up, one for each time that gains are due: dense attacks must not make
// a period much dearer than another.
constexpr float kAttackShare = 0.3f;
constexpr int kMaxAttackCredit = 2;

// Gains below are 0 before they, or what they are multiplied with, turn denormal.
constexpr float kTinyGain = 1e-6f;

constexpr float kRegularisation = 1e-3f;    // of the covariance, re its trace
constexpr float kPannedCentreShare = 0.7f;  // how much less of the common part for hard panning

// How diffuse a mix is of which all ambience is believed, and one that counts as dry: pop and rock
// with a reverberation 8 dB below the direct sound have 0.16 and 0.3, a hall 0.42, film sound 0.52.
constexpr float kDryDiffuseness = 0.3f;
constexpr float kReverberantDiffuseness = 0.52f;
constexpr float kDiffusenessMs = 1000.0f;
constexpr float kDryLateShare = 0.42f;  // of late_share, in a dry mix

// `ratio` less a slack either way.
float Beyond(float ratio, float slack) {
  const float above = ratio / slack, below = ratio * slack;
  return above > 1.0f ? above : (below < 1.0f ? below : 1.0f);
}

float Positive(float value) { return value > 0.0f ? value : 0.0f; }

// Raises each band to what the short window leaks into it from its neighbours, kLeakage of the
// next one, kLeakage squared of the one after that: from 1 band away, then from up to 3, from up to
// 7, so that no band waits for the one before.
void SpreadLeakage(BandValues& bands) {
  constexpr int kFarthest = 16;  // then products of the least powers would be denormal
  alignas(kSimdAlignmentBytes) float padded[kFarthest + kBands + kFarthest] = {};
  alignas(kSimdAlignmentBytes) float spread[kBands];
  float* at = padded + kFarthest;
  std::copy_n(bands.value, kBands, at);
  float leakage = kLeakage;
  for (int away = 1; away <= kFarthest; away *= 2, leakage *= leakage) {
    for (int b = 0; b < kBands; ++b) {
      const float beside = at[b - away] > at[b + away] ? at[b - away] : at[b + away];
      spread[b] = at[b] > leakage * beside ? at[b] : leakage * beside;
    }
    std::copy_n(spread, kBands, at);
  }
  std::copy_n(at, kBands, bands.value);
}

// Straight lines between the bands' centres, on the grid of the long spectrum.
void SpreadToLongBins(const BandValues& bands, float* long_bins) {
  alignas(kSimdAlignmentBytes) float bins[kPaddedShortBins];
  SpreadBands(bands, bins);
  static_assert(kLongPerShort == 4);
  const Vec4 quarters = {0.0f, 0.25f, 0.5f, 0.75f};
  for (int k = 0; k < kShortBins; ++k) {
    Store(long_bins + kLongPerShort * k, bins[k] + quarters * (bins[k + 1] - bins[k]));
  }
  std::fill(long_bins + kLongPerShort * kShortBins, long_bins + kPaddedLongBins, 0.0f);
}

}  // namespace

Diffuseness Steer(const Evidence& evidence, const DecompositionTuning& tuning, float reverberant,
                  float step, ExtractionGains& gains) {
  float* centre_left = gains.curve[kCentreLeft];
  float* centre_right = gains.curve[kCentreRight];
  float* ambience_left = gains.curve[kAmbienceLeft];
  float* ambience_right = gains.curve[kAmbienceRight];
  float* ambience_cross = gains.curve[kAmbienceCross];
  const float emphasis = 4.0f * tuning.direct_emphasis;
  const float centre_noise = tuning.centre_noise;
  const float caution = tuning.centre_caution * (1.0f - reverberant);
  const float chance = tuning.chance * reverberant, chance_scale = 1.0f / (1.0f - chance);
  const float late_share =
      tuning.late_share * (kDryLateShare + (1.0f - kDryLateShare) * reverberant);
  float diffuse = 0.0f, sounding = 0.0f;
#pragma omp simd reduction(+ : diffuse, sounding)
  for (int k = 0; k < kPaddedLongBins; ++k) {
    // In units of the bin's power: the eigenvalues are (1 +- contrast) / 2, and
    // (balance, 2 cross) / contrast is (cos, sin) of twice the panning angle.
    const float sound = evidence.powers.left[k] + evidence.powers.right[k];
    const float power = sound + kTinyPower;
    const float scale = 1.0f / power;
    const float left = evidence.powers.left[k] * scale, right = evidence.powers.right[k] * scale;
    const float most = std::sqrt(left * right);
    float cross = evidence.powers.cross[k] * scale;
    cross = cross > 0.0f ? cross : 0.0f;
    cross = cross < most ? cross : most;
    const float balance = left - right;
    const float contrast2 = balance * balance + 4.0f * cross * cross;
    float contrast = std::sqrt(contrast2);
    contrast = contrast < 1.0f ? contrast : 1.0f;
    const float smaller = 0.5f - 0.5f * contrast;
    const float per_contrast = 1.0f / (contrast + 1e-6f);
    const float cosine = balance * per_contrast, sine = 2.0f * cross * per_contrast;

    const float noise = centre_noise * smaller;
    float shared = cross - caution * smaller;
    shared = shared > 0.0f ? shared : 0.0f;
    float left_target = left - noise, right_target = right - noise;
    left_target = left_target > 0.0f ? left_target : 0.0f;
    right_target = right_target > 0.0f ? right_target : 0.0f;
    left_target = left_target < shared ? left_target : shared;
    right_target = right_target < shared ? right_target : shared;
    const float rl = left + kRegularisation, rr = right + kRegularisation;
    const float taper = (1.0f - kPannedCentreShare * cosine * cosine) * tuning.centre_amount[k] /
                        (rl * rr - cross * cross);
    float to_left = (left_target * rr - right_target * cross) * taper;
    float to_right = (right_target * rl - left_target * cross) * taper;
    to_left = to_left < 1.0f ? to_left : 1.0f;
    to_right = to_right < 1.0f ? to_right : 1.0f;
    to_left = to_left > -1.0f ? to_left : -1.0f;
    to_right = to_right > -1.0f ? to_right : -1.0f;

    float sure2 = (contrast2 - chance) * chance_scale;
    sure2 = sure2 > 0.0f ? sure2 : 0.0f;
    sure2 = sure2 < 1.0f ? sure2 : 1.0f;
    const float ambient = 1.0f - std::sqrt(sure2);
    const float weighted = emphasis * sure2;
    const float direct = 0.5f * weighted / (ambient * ambient + weighted + 1e-9f);
    float bound = late_share * evidence.late[k] / (smaller * power + kTinyPower);
    bound = bound < 1.0f ? bound : 1.0f;
    const float amount = bound * (1.0f - evidence.doubled[k]) * tuning.ambience_amount[k];

    const float presence = sound / (power + kQuietPower);  // none in silence: gains rest
    diffuse += 2.0f * smaller * presence;
    sounding += presence;
    const float late = evidence.late[k] * scale * 2.0f;
    const float alike = late < 1.0f ? late : 1.0f / late;
    const float beyond = late > 1.0f ? late - 1.0f : 0.0f, fall = beyond < 1.0f ? beyond : 1.0f;
    const float calm = step * (1.0f - kSteadyHold * alike * alike) * (1.0f - kFallHold * fall);
    const float move = presence * (calm + (1.0f - calm) * evidence.attack[k]);
    const auto follow = [move](float& gain, float target) {
      const float next = gain + move * (target - gain);
      gain = std::fabs(next) < kTinyGain ? 0.0f : next;
    };
    follow(centre_left[k], to_left);
    follow(centre_right[k], to_right);
    follow(ambience_left[k], amount - amount * direct * (1.0f + cosine));
    follow(ambience_right[k], amount - amount * direct * (1.0f - cosine));
    follow(ambience_cross[k], amount * direct * sine);
  }
  return {diffuse, sounding};
}

struct Decomposition::Corrections {
  BandValues left, right, cross;  // factors of the long powers
  BandPowers instead;             // a long bin's powers in an attack
};

// Which bands attack, and how much of all short power is in these.
float Decomposition::FindAttacks(const BandPowers& now, BandValues& attack) const {
  const BandPowers& before = long_.bands();
  BandValues past;
  for (int b = 0; b < kBands; ++b) {
    past[b] = before.left[b] + before.right[b];
  }
  SpreadLeakage(past);
  float all = 0.0f, attacking = 0.0f;
#pragma omp simd reduction(+ : all, attacking)
  for (int b = 0; b < kBands; ++b) {
    const float power = now.left[b] + now.right[b];
    const float share = 2.0f - 2.0f * kAttackRatio * past[b] / (power + kTinyPower);
    attack[b] = share < 0.0f ? 0.0f : (share > 1.0f ? 1.0f : share);
    all += power;
    attacking += attack[b] * power;
  }
  return attacking / (all + kQuietPower);
}

void Decomposition::Compare(const BandPowers& now, Corrections& c) const {
  const BandPowers& before = long_.bands();
  BandValues left_floor, right_floor;
  for (int b = 0; b < kBands; ++b) {
    left_floor[b] = std::max(now.left[b], before.left[b]);
    right_floor[b] = std::max(now.right[b], before.right[b]);
  }
  SpreadLeakage(left_floor);
  SpreadLeakage(right_floor);
#pragma omp simd
  for (int b = 0; b < kBands; ++b) {
    const float left_leak = kLeakage * left_floor[b] + kTinyPower;
    const float right_leak = kLeakage * right_floor[b] + kTinyPower;
    const float left =
        Beyond((now.left[b] + left_leak) / (before.left[b] + left_leak), kPowerSlack);
    const float right =
        Beyond((now.right[b] + right_leak) / (before.right[b] + right_leak), kPowerSlack);
    const float leak = std::sqrt(left_leak) * std::sqrt(right_leak);
    const float coherence_now =
        Positive(now.cross[b]) / (std::sqrt(now.left[b]) * std::sqrt(now.right[b]) + leak) +
        kCoherenceFloor;
    const float coherence_before =
        Positive(before.cross[b]) /
            (std::sqrt(before.left[b]) * std::sqrt(before.right[b]) + leak) +
        kCoherenceFloor;
    c.left[b] = left;
    c.right[b] = right;
    c.cross[b] =
        std::sqrt(left * right) * Beyond(coherence_now / coherence_before, kCoherenceSlack);
  }
  for (int b = 0; b < kBands; ++b) {
    const float per_bin = 1.0f / static_cast<float>(kLongPerShort * BandBins(b));
    c.instead.left[b] = per_bin * now.left[b];
    c.instead.right[b] = per_bin * now.right[b];
    c.instead.cross[b] = per_bin * now.cross[b];
  }
}

void Decomposition::DecideGains(const Corrections& corrections, const BandValues& attacks) {
  alignas(kSimdAlignmentBytes) float left[kPaddedLongBins], right[kPaddedLongBins],
      cross[kPaddedLongBins], left_now[kPaddedLongBins], right_now[kPaddedLongBins],
      cross_now[kPaddedLongBins];
  Evidence evidence;
  SpreadToLongBins(corrections.left, left);
  SpreadToLongBins(corrections.right, right);
  SpreadToLongBins(corrections.cross, cross);
  SpreadToLongBins(attacks, evidence.attack);
  SpreadToLongBins(corrections.instead.left, left_now);
  SpreadToLongBins(corrections.instead.right, right_now);
  SpreadToLongBins(corrections.instead.cross, cross_now);
  const BinPowers& powers = long_.powers();
#pragma omp simd
  for (int k = 0; k < kPaddedLongBins; ++k) {
    const float attack = evidence.attack[k], steady = 1.0f - attack;
    evidence.powers.left[k] = steady * left[k] * powers.left[k] + attack * left_now[k];
    evidence.powers.right[k] = steady * right[k] * powers.right[k] + attack * right_now[k];
    evidence.powers.cross[k] = steady * cross[k] * powers.cross[k] + attack * cross_now[k];
  }
  std::copy_n(long_.late(), kPaddedLongBins, evidence.late);
  std::copy_n(lags_.doubled(), kPaddedLongBins, evidence.doubled);
  const int hops = std::min(hops_since_gains_, kHopsPerGains);
  const float reverberant = std::clamp(
      (diffuseness_ - kDryDiffuseness) / (kReverberantDiffuseness - kDryDiffuseness), 0.0f, 1.0f);
  const auto [diffuse, sounding] =
      Steer(evidence, tuning_, reverberant, gain_step_[hops - 1], gains_);
  // The 1 keeps silence, which has no weight, from changing anything.
  diffuseness_ +=
      diffuseness_step_[hops - 1] * (diffuse - sounding * diffuseness_) / (sounding + 1.0f);
}

Decomposition::Decomposition(const DecompositionTuning& tuning)
    : tuning_(tuning),
      power_step_(StepForTimeConstant(tuning.power_ms, kHopsPerLong)),
      diffuseness_((kDryDiffuseness + kReverberantDiffuseness) / 2) {
  for (int hops = 1; hops <= kHopsPerGains; ++hops) {
    gain_step_[hops - 1] = StepForTimeConstant(tuning.gain_ms, hops);
    diffuseness_step_[hops - 1] = StepForTimeConstant(kDiffusenessMs, hops);
  }
  Evidence mid = {};
  std::fill_n(mid.powers.left, kPaddedLongBins, 1.0f);
  std::fill_n(mid.powers.right, kPaddedLongBins, 1.0f);
  std::fill_n(mid.powers.cross, kPaddedLongBins, 1.0f);
  gains_ = {};
  Steer(mid, tuning_, 1.0f, 1.0f, gains_);
}

bool Decomposition::silent() const { return short_.silent() && long_.silent() && lags_.silent(); }

void Decomposition::ForgetPast() {
  long_.ForgetLate();
  lags_.Forget();
}

void Decomposition::ProcessSilent() {
  if (hop_ % kHopsPerLong == 0) {
    long_.UpdateSilent();
  }
  ++hops_since_gains_;
  if (hop_ == 0) {
    attack_credit_ = std::min(attack_credit_ + 1, kMaxAttackCredit);
    hops_since_gains_ = 0;
  }
  hop_ = (hop_ + 1) % kHopsPerGains;
}

int Decomposition::Process(const Analysis& left, const Analysis& right) {
  {
    ShortSpectrum left_short, right_short;
    left.Transform(left_short);
    right.Transform(right_short);
    short_.Update(left_short, right_short);
  }
  if (hop_ % kHopsPerLong == 0) {
    LongSpectrum left_long, right_long;
    left.Transform(left_long);
    right.Transform(right_long);
    long_.Update(left_long, right_long, power_step_);
    lags_.Update(left_long, right_long);
  }
  ++hops_since_gains_;
  const BandPowers now = short_.Smooth();
  BandValues attacks;
  const float attack_share = FindAttacks(now, attacks);
  const bool due = hop_ == 0;
  const bool attack = attack_share > kAttackShare && attack_credit_ > 0;
  if (due) {
    lags_.Search();
  }
  if (due && attack_credit_ < kMaxAttackCredit) {
    ++attack_credit_;
  }
  hop_ = (hop_ + 1) % kHopsPerGains;
  if (!due && !attack) {
    return 0;
  }
  Corrections corrections;
  Compare(now, corrections);
  DecideGains(corrections, attacks);
  hops_since_gains_ = 0;
  if (attack) {
    --attack_credit_;
    return 1;
  }
  return kHopsPerMove;
}

}  // namespace kelda::upmix_lib
