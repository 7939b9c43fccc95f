#include "tools/report/mode_change.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>
#include <utility>

#include "tools/core/decibels.h"
#include "tools/core/interruption.h"
#include "tools/framework/effect_session.h"
#include "tools/measure/frequency_response.h"
#include "tools/measure/step_detector.h"
#include "tools/measure/stereo_system.h"
#include "tools/measure/test_signal.h"

namespace kelda::tools {
namespace {

constexpr int kBlockMs = 20;
constexpr std::size_t kBlockFrames = std::size_t{kBlockMs} * kSampleRateHz / 1000;
constexpr std::size_t kSettlingBlocks = 500;  // 10 s, for the level control

// The output of `blocks` blocks of the noise, beginning with block `first`.
std::vector<float> Play(const std::vector<float>& noise, std::size_t first, std::size_t blocks,
                        EffectSession* session) {
  std::vector<float> out;
  for (std::size_t block = first; block < first + blocks; ++block) {
    CheckInterruption();
    std::vector<float> frames(kChannels * kBlockFrames);
    for (std::size_t i = 0; i < frames.size(); ++i) {
      frames[i] = noise[(block * frames.size() + i) % noise.size()];
    }
    session->Process(frames.data(), kBlockFrames);
    out.insert(out.end(), frames.begin(), frames.end());
  }
  return out;
}

double LevelDb(std::span<const float> samples) {
  return PowerToDb(Energy(samples) / static_cast<double>(samples.size()));
}

double LongestSilenceMs(std::span<const float> stereo) {
  std::size_t longest = 0;
  std::size_t length = 0;
  for (std::size_t i = 0; i < stereo.size(); i += kChannels) {
    length = stereo[i] == 0 && stereo[i + 1] == 0 ? length + 1 : 0;
    longest = std::max(longest, length);
  }
  return 1000.0 * static_cast<double>(longest) / kSampleRateHz;
}

int CountSteps(std::span<const float> stereo) {
  int steps = 0;
  for (std::size_t channel = 0; channel < kChannels; ++channel) {
    StepDetector detector;
    for (std::size_t i = channel; i < stereo.size(); i += kChannels) {
      steps += detector.Add(static_cast<double>(stereo[i])) ? 1 : 0;
    }
  }
  return steps;
}

// The output around the change, and the noise that was played.
class Recording {
 public:
  static constexpr int kBeginMs = -1000;
  static constexpr int kEndMs = 6000;

  Recording(std::vector<float> in, std::vector<float> out)
      : in_(std::move(in)), out_(std::move(out)) {}

  std::span<const float> Out(double begin_ms, double length_ms) const {
    return Part(out_, begin_ms, length_ms);
  }

  LevelCurve Curve(double begin_ms, double end_ms, double window_ms) const {
    LevelCurve curve{begin_ms, window_ms, {}};
    for (double at_ms = begin_ms; at_ms < end_ms; at_ms += window_ms) {
      curve.level_db.push_back(LevelDb(Out(at_ms, window_ms)));
    }
    return curve;
  }

  double Level(double begin_ms) const {
    return LevelDb(Out(begin_ms, ModeChange::kLevelMs)) -
           LevelDb(Part(in_, begin_ms, ModeChange::kLevelMs)) + LevelDb(in_);
  }

 private:
  static std::span<const float> Part(const std::vector<float>& stereo, double begin_ms,
                                     double length_ms) {
    const auto samples = [](double ms) {
      return kChannels * static_cast<std::size_t>(std::lround(ms * kSampleRateHz / 1000));
    };
    return std::span(stereo).subspan(samples(begin_ms - kBeginMs), samples(length_ms));
  }

  std::vector<float> in_;
  std::vector<float> out_;
};

}  // namespace

ModeChange MeasureModeChange(const EffectLibrary& library, const std::vector<Setting>& settings,
                             const std::string& from, const std::string& to) {
  constexpr std::size_t kBlocksBefore = -Recording::kBeginMs / kBlockMs;
  constexpr std::size_t kBlocksAfter = Recording::kEndMs / kBlockMs;
  const std::vector<float> noise = HalfCentredNoise(0.05);
  EffectSession session(library);
  session.Enable();
  for (const Setting& setting : settings) {
    Apply(setting, &session);
  }
  Apply(ParseSetting("mode=" + from), &session);
  Play(noise, 0, kSettlingBlocks, &session);
  std::vector<float> out = Play(noise, kSettlingBlocks, kBlocksBefore, &session);
  Apply(ParseSetting("mode=" + to), &session);
  const std::vector<float> after =
      Play(noise, kSettlingBlocks + kBlocksBefore, kBlocksAfter, &session);
  out.insert(out.end(), after.begin(), after.end());
  std::vector<float> in(out.size());
  for (std::size_t i = 0; i < in.size(); ++i) {
    in[i] = noise[(kSettlingBlocks * kBlockFrames * kChannels + i) % noise.size()];
  }
  const Recording recording(std::move(in), std::move(out));

  constexpr double kFadeBeginMs = -100;
  constexpr double kFadeEndMs = 500;
  const std::span<const float> fade = recording.Out(kFadeBeginMs, kFadeEndMs - kFadeBeginMs);
  return {from,
          to,
          recording.Curve(kFadeBeginMs, kFadeEndMs, 5),
          recording.Curve(Recording::kBeginMs, Recording::kEndMs, 100),
          recording.Level(ModeChange::kBeforeMs),
          recording.Level(ModeChange::kJustAfterMs),
          recording.Level(ModeChange::kLaterMs),
          LongestSilenceMs(fade),
          CountSteps(fade)};
}

}  // namespace kelda::tools
