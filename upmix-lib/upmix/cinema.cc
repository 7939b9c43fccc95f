#include "upmix-lib/upmix/cinema.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <iterator>
#include <new>

#include "platform/math_constants.h"
#include "upmix-lib/base/decibels.h"
#include "upmix-lib/base/input_guard.h"

namespace kelda::upmix_lib {
namespace {

// A living room fitted for films; level and decay come from the parameters.
constexpr float kRoomSizeM = 7.0f;
constexpr float kRoomDampingHz = 4000.0f;
// This much of the centre plane reaches the room, and nothing of it while somebody speaks.
constexpr float kDialogueRoomShare = 0.5f;

// Dialogue moves slowly; steadier gains than music's suit it.
constexpr float kPowerSmoothingMs = 40.0f;
constexpr float kGainSmoothingMs = 15.0f;
constexpr float kDirectEmphasis = 6.0f;
constexpr float kCinemaCentreNoise = 0.6f;  // more keeps instruments out of FC, and some voice
// Lower ambience stays in front, in phase with the bass that goes past the planes. With 0 wide bass
// is 0.6 dB too low; with more than 60 Hz wide sound has a dip at the crossover.
constexpr float kFrontAmbienceHz = 50.0f;
// Outside the range of speech the centre gives some of its share back to left and right.
constexpr float kSpeechLowHz = 120.0f;
constexpr float kSpeechHighHz = 9000.0f;
constexpr float kCentreOutsideSpeech = 0.7f;

RoomParameters CinemaRoom(const CinemaParameters& parameters) {
  RoomParameters room = {};
  room.early_level_db = parameters.room_early_level_db;
  room.late_level_db = parameters.room_level_db;
  room.decay_s = parameters.room_decay_s;
  room.size_m = kRoomSizeM;
  room.damping_hz = kRoomDampingHz;
  return room;
}

// 0 an octave below `crossover_hz` and lower, 1 an octave above and higher, smooth in between.
float HighPassShare(float hz, float crossover_hz) {
  if (hz <= 0.0f) {
    return 0.0f;
  }
  const float at = std::clamp(0.5f + 0.5f * std::log2(hz / crossover_hz), 0.0f, 1.0f);
  return at * at * (3.0f - 2.0f * at);
}

std::complex<double> ResponseAt(std::span<const float> taps, double radians_per_frame) {
  std::complex<double> sum;
  double frame = 0.0;
  for (const float tap : taps) {
    sum += static_cast<double>(tap) * std::polar(1.0, -radians_per_frame * frame);
    frame += 1.0;
  }
  return sum;
}

PlaneTuning CinemaPlaneTuning(const CinemaParameters& parameters) {
  PlaneTuning tuning;
  DecompositionTuning& decomposition = tuning.decomposition;
  for (int k = 0; k < kPaddedLongBins; ++k) {
    const float hz = LongBinHz(k);
    const float speech =
        HighPassShare(hz, kSpeechLowHz) * (1.0f - HighPassShare(hz, kSpeechHighHz));
    decomposition.centre_amount[k] =
        parameters.dialogue_amount * (kCentreOutsideSpeech + (1 - kCentreOutsideSpeech) * speech);
    decomposition.ambience_amount[k] = parameters.surround_amount;
  }
  decomposition.power_ms = kPowerSmoothingMs;
  decomposition.gain_ms = kGainSmoothingMs;
  decomposition.direct_emphasis = kDirectEmphasis;
  decomposition.centre_noise = kCinemaCentreNoise;
  tuning.bass_crossover_hz = kFrontAmbienceHz;
  tuning.back_share = parameters.back_share;
  tuning.decorrelation = 1.0f;
  tuning.wide_amount = 0.0f;  // FrontWidth knows better

  const float output = AmplitudeFromDb(parameters.output_gain_db);
  std::fill_n(tuning.plane_gain, kPlanes, output * AmplitudeFromDb(parameters.surround_level_db));
  tuning.plane_gain[kFL] = tuning.plane_gain[kFR] = output;
  tuning.plane_gain[kFC] = output * AmplitudeFromDb(parameters.dialogue_level_db);
  return tuning;
}

// Gain and delay that the centre plane's HRIRs give the sound at the crossover.
BassPath MatchBass(const HrirSet& hrirs, float crossover_hz) {
  const double radians = 2.0 * kPi * crossover_hz / kSampleRateHz;
  BassPath path = {};
  double phase = 0.0;
  for (int ear = 0; ear < kEars; ++ear) {
    const std::complex<double> response = ResponseAt(hrirs.response(kFC, ear), radians);
    // A mono signal leaves sqrt(2) times itself in the centre plane.
    path.gain[ear] = static_cast<float>(kSqrt2 * std::abs(response));
    phase += std::arg(response) / kEars;
  }
  const int hrir_delay =
      std::clamp(static_cast<int>(std::lround(-phase / radians)), 0, kBlockFrames / 4);
  path.delay_frames = kUpmixLatencyFrames + hrir_delay;
  return path;
}

// Powers of 64 frames tremble; twice 0.1 s leaves no line beside steady tones.
constexpr float kWidthSmoothingMs = 100.0f;

float PowerOf(const float* samples) {
  float sum = 0.0f;
#pragma omp simd reduction(+ : sum)
  for (int n = 0; n < kHopFrames; ++n) {
    sum += samples[n] * samples[n];
  }
  return sum;
}

}  // namespace

FrontWidth::FrontWidth(float width, float surround_gain)
    : width_(width),
      surround_gain_(surround_gain),
      step_(StepForTimeConstant(kWidthSmoothingMs, 1)) {}

void FrontWidth::Clear() { std::fill_n(sides_, kEars, Side{}); }

void FrontWidth::ProcessHop(Side& side, float* front, float* surround, const float* back) const {
  const float step = step_;
  const auto follow = [step](float(&mean)[2], float now) {
    for (float& value : mean) {
      value += step * (now - value);
      value = value < kTinyPower ? 0.0f : value;
      now = value;
    }
  };
  follow(side.front, PowerOf(front));
  follow(side.surround, (PowerOf(surround) + PowerOf(back)) / (surround_gain_ * surround_gain_));
  const float before = side.share;
  side.share = width_ * std::min(1.0f, side.surround[1] / (side.front[1] + kTinyPower));
  const float slope = (side.share - before) / kHopFrames;
#pragma omp simd
  for (int n = 0; n < kHopFrames; ++n) {
    const float share = before + slope * (static_cast<float>(n) + 1.0f);
    surround[n] += surround_gain_ * share * front[n];
    front[n] -= share * front[n];
  }
}

bool FrontWidth::at_rest() const {
  return std::all_of(std::begin(sides_), std::end(sides_),
                     [](const Side& side) { return side.at_rest(); });
}

void FrontWidth::Process(float* const (&planes)[kPlanes], bool silent) {
  for (int ear = 0; ear < kEars; ++ear) {
    Side& side = sides_[ear];
    if (silent && side.at_rest()) {
      continue;
    }
    for (int at = 0; at < kBlockFrames; at += kHopFrames) {
      ProcessHop(side, planes[kFL + ear] + at, planes[kSL + ear] + at, planes[kBL + ear] + at);
    }
  }
}

Cinema::Cinema(const CinemaParameters& parameters, const HrirSet& hrirs)
    : plane_tuning_(CinemaPlaneTuning(parameters)),
      splitter_(parameters.bass_crossover_hz),
      upmix_(plane_tuning_),
      width_(parameters.width, plane_tuning_.plane_gain[kSL]),
      focus_(parameters.dialogue_ducking_db),
      renderer_(hrirs, CinemaRoom(parameters), kDialogueRoomShare),
      bass_path_(MatchBass(hrirs, parameters.bass_crossover_hz)) {
  for (AlignedBuffer& bass : bass_) {
    bass = AlignedBuffer(static_cast<std::size_t>(bass_path_.delay_frames + kBlockFrames));
  }
  const float bass_gain = AmplitudeFromDb(parameters.bass_level_db + parameters.output_gain_db);
  for (float& gain : bass_path_.gain) {
    gain *= bass_gain;
  }
}

void Cinema::Flush() {
  splitter_.Clear();
  new (&upmix_) PlaneUpmix(plane_tuning_);  // In place: it is large for a stack.
  width_.Clear();
  focus_.Clear();
  renderer_.MoveCentreShare(kDialogueRoomShare);
  renderer_.Clear();
  for (AlignedBuffer& bass : bass_) {
    bass.Clear();
  }
  at_rest_ = false;
}

bool Cinema::AtRest() const {
  return splitter_.at_rest() && upmix_.at_rest() && width_.at_rest() && focus_.at_rest() &&
         renderer_.at_rest() &&
         std::all_of(std::begin(bass_), std::end(bass_),
                     [](const AlignedBuffer& bass) { return IsSilent(bass.data(), bass.size()); });
}

// Returns whether that was so.
bool Cinema::ProcessAtRest(const float* const* in, float* const* out) {
  if (!at_rest_ || !IsSilent(in[0], kBlockFrames) || !IsSilent(in[1], kBlockFrames)) {
    return false;
  }
  upmix_.ProcessSilentBlock();
  std::fill_n(out[0], kBlockFrames, 0.0f);
  std::fill_n(out[1], kBlockFrames, 0.0f);
  return true;
}

void Cinema::Process(const float* const* in, float* const* out) {
  if (!ProcessAtRest(in, out)) {
    alignas(kSimdAlignmentBytes) float planes[kPlanes * kBlockFrames];
    ProcessSound(in, planes, out);
  }
}

void Cinema::Process(const float* const* in, float* planes, float* const* out) {
  if (ProcessAtRest(in, out)) {
    std::fill_n(planes, kPlanes * kBlockFrames, 0.0f);
  } else {
    ProcessSound(in, planes, out);
  }
}

void Cinema::ProcessSound(const float* const* in, float* samples, float* const* out) {
  float* planes[kPlanes];
  for (int at = 0; at < kBlockFrames; at += kHopFrames) {
    alignas(kSimdAlignmentBytes) float high[2][kHopFrames];
    const bool left_sounds = GuardSamples(in[0] + at, high[0], kHopFrames);
    const bool right_sounds = GuardSamples(in[1] + at, high[1], kHopFrames);
    const int now = bass_path_.delay_frames + at;
    float* const bass[2] = {bass_[0].data() + now, bass_[1].data() + now};
    if (left_sounds || right_sounds || !splitter_.at_rest()) {
      splitter_.Process(high[0], high[1], kHopFrames, {high[0], high[1]}, bass);
    } else {
      std::fill_n(bass[0], kHopFrames, 0.0f);
      std::fill_n(bass[1], kHopFrames, 0.0f);
    }
    const float* stereo[2] = {high[0], high[1]};
    for (int plane = 0; plane < kPlanes; ++plane) {
      planes[plane] = samples + plane * kBlockFrames + at;
    }
    upmix_.Process(stereo, planes);
  }
  for (int plane = 0; plane < kPlanes; ++plane) {
    planes[plane] = samples + plane * kBlockFrames;
  }
  const bool silent = IsSilent(samples, std::size_t{kPlanes} * kBlockFrames);
  width_.Process(planes, silent);
  focus_.Process(planes, silent);
  renderer_.MoveCentreShare(kDialogueRoomShare * (1.0f - focus_.focus()));
  renderer_.Process(planes, out[0], out[1]);
  AddBass(out);
  at_rest_ = silent && AtRest();
}

void Cinema::AddBass(float* const* out) {
  for (int ear = 0; ear < kEars; ++ear) {
    float* bass = bass_[ear].data();
    float* to = out[ear];
    const float gain = bass_path_.gain[ear];
#pragma omp simd
    for (int n = 0; n < kBlockFrames; ++n) {
      to[n] += gain * bass[n];
    }
    std::copy_n(bass + kBlockFrames, bass_path_.delay_frames, bass);
  }
}

}  // namespace kelda::upmix_lib
