#include "tools/report/mode_change.h"

#include <algorithm>
#include <cmath>

#include "tools/core/decibels.h"
#include "tools/core/interruption.h"
#include "tools/framework/effect_session.h"
#include "tools/measure/frequency_response.h"
#include "tools/measure/step_detector.h"
#include "tools/measure/test_signal.h"

namespace kelda::tools {
namespace {

constexpr size_t kBlockMs = 20;
constexpr size_t kBlockFrames = kBlockMs * kSampleRateHz / 1000;
constexpr size_t kSettlingBlocks = 500;  // 10 s, for the level control

std::vector<float> Noise() {
  constexpr double kRms = 0.05;
  std::vector<float> noise = TestSignal(Image::kCentre, Waveform::kNoise, kRms).frames();
  // Other phases than those of the centre: the same noise later.
  const std::vector<float> diffuse = TestSignal(Image::kDiffuse, Waveform::kNoise, kRms).frames();
  for (size_t i = 0; i < noise.size(); ++i) {
    noise[i] += diffuse[(i + noise.size() / 2) % noise.size()];
  }
  return noise;
}

// What comes out of the blocks from `first` on, the noise going on in time.
std::vector<float> Play(const std::vector<float>& noise, size_t first, size_t blocks,
                        EffectSession* session) {
  std::vector<float> out;
  for (size_t block = first; block < first + blocks; ++block) {
    CheckInterruption();
    std::vector<float> frames(kChannels * kBlockFrames);
    for (size_t i = 0; i < frames.size(); ++i) {
      frames[i] = noise[(block * frames.size() + i) % noise.size()];
    }
    session->Process(frames.data(), kBlockFrames);
    out.insert(out.end(), frames.begin(), frames.end());
  }
  return out;
}

double LevelDb(std::span<const float> samples) {
  double sum = 0;
  for (const float sample : samples) {
    sum += static_cast<double>(sample) * static_cast<double>(sample);
  }
  return ToDb(std::sqrt(sum / static_cast<double>(samples.size())));
}

double LongestSilenceMs(const std::vector<float>& stereo) {
  size_t longest = 0;
  size_t length = 0;
  for (size_t i = 0; i < stereo.size(); i += kChannels) {
    length = stereo[i] == 0 && stereo[i + 1] == 0 ? length + 1 : 0;
    longest = std::max(longest, length);
  }
  return 1000.0 * static_cast<double>(longest) / kSampleRateHz;
}

int CountSteps(const std::vector<float>& stereo) {
  int steps = 0;
  for (size_t channel = 0; channel < kChannels; ++channel) {
    StepDetector detector;
    for (size_t i = channel; i < stereo.size(); i += kChannels) {
      steps += detector.Add(static_cast<double>(stereo[i])) ? 1 : 0;
    }
  }
  return steps;
}

}  // namespace

ModeChange MeasureModeChange(const EffectLibrary& library, const std::vector<Setting>& settings,
                             const std::string& from, const std::string& to) {
  constexpr size_t kBlocksBefore = ModeChange::kBeforeMs / kBlockMs;
  constexpr size_t kBlocksAfter = ModeChange::kAfterMs / kBlockMs;
  constexpr size_t kWindow = kChannels * (kBlockFrames / kBlockMs) * ModeChange::kWindowMs;
  const std::vector<float> noise = Noise();
  EffectSession session(library);
  session.Enable();
  for (const Setting& setting : settings) {
    Apply(setting, &session);
  }
  Apply(ParseSetting("mode=" + from), &session);
  Play(noise, 0, kSettlingBlocks, &session);
  std::vector<float> out = Play(noise, kSettlingBlocks, kBlocksBefore, &session);
  const size_t changed = out.size();
  Apply(ParseSetting("mode=" + to), &session);
  const std::vector<float> after =
      Play(noise, kSettlingBlocks + kBlocksBefore, kBlocksAfter, &session);
  out.insert(out.end(), after.begin(), after.end());

  ModeChange change{from, to, {}, LongestSilenceMs(out), 0, CountSteps(out)};
  for (size_t at = 0; at + kWindow <= out.size(); at += kWindow) {
    change.level_db.push_back(LevelDb(std::span(out).subspan(at, kWindow)));
  }
  // Settled is what the last fifth of a second sounds like; windows of noise vary by 3 dB.
  const double settled_db = LevelDb(std::span(out).last(out.size() / 3));
  constexpr double kNear = 3;
  for (size_t i = change.level_db.size(); i > changed / kWindow; --i) {
    if (change.level_db[i - 1] < settled_db - 2 * kNear) {
      change.recovered_ms =
          ModeChange::kWindowMs * static_cast<double>(i) - double{ModeChange::kBeforeMs};
      break;
    }
  }
  return change;
}

}  // namespace kelda::tools
