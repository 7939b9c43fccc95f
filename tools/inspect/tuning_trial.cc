#include "tools/inspect/tuning_trial.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>

#include "settings/tuning_directory.h"
#include "tools/core/interruption.h"
#include "tools/framework/block_sizes.h"
#include "tools/framework/effect_report.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/log_capture.h"

namespace kelda::tools {
namespace {

constexpr int kPeriods = 24;  // half a second
using Period = std::vector<float>;

// Plays kPeriods of noise. Returns the output periods; *last_input becomes the last input period.
std::vector<Period> Play(EffectSession* session, std::minstd_rand* random, Period* last_input) {
  std::vector<Period> out;
  for (int i = 0; i < kPeriods; ++i) {
    CheckInterruption();
    Period period(kPeriodFrames * kChannels);
    for (float& sample : period) {
      sample = static_cast<float>((*random)()) / static_cast<float>(random->max()) * 0.5f - 0.25f;
    }
    *last_input = period;
    session->Process(period.data(), kPeriodFrames);
    out.push_back(period);
  }
  return out;
}

Heard::Sound Classify(const std::vector<Period>& out, const Period& last_input) {
  const Period& last = out.back();
  const bool silent =
      std::all_of(last.begin(), last.end(), [](float sample) { return std::fabs(sample) < 1e-6f; });
  if (silent) {
    return Heard::Sound::kSilence;
  }
  if (last == last_input) {
    return Heard::Sound::kUnprocessed;
  }
  if (last == out[out.size() - 2]) {
    return Heard::Sound::kRepetition;
  }
  return Heard::Sound::kUpmixed;
}

// The titles of the stages that the log says could not be loaded, without `other`.
std::vector<std::string> MissingStages(const std::vector<LogLine>& log, kelda::Stage other) {
  std::vector<std::string> missing;
  for (const StageFacts& stage : kStages) {
    const bool logged = std::any_of(log.begin(), log.end(), [&](const LogLine& line) {
      return IsStageLog(stage.name, line.tag);
    });
    if (logged && &stage != &FactsOf(other)) {
      missing.emplace_back(stage.title);
    }
  }
  return missing;
}

}  // namespace

bool AsItShouldBe(const Heard& heard) {
  return heard.sound == Heard::Sound::kUpmixed && heard.missing.empty();
}

std::string Verdict(const Heard& heard) {
  std::string text;
  switch (heard.sound) {
    case Heard::Sound::kUpmixed:
      text = "as it should be";
      break;
    case Heard::Sound::kUnprocessed:
      text = "STEREO, UNPROCESSED";
      break;
    case Heard::Sound::kSilence:
      text = "SILENCE";
      break;
    case Heard::Sound::kRepetition:
      text = "A BUZZ: 21 ms of what played before, over and over";
      break;
  }
  if (heard.missing.empty()) {
    return text;
  }
  if (heard.sound == Heard::Sound::kUpmixed) {
    text = "PROCESSED IN PART";
  }
  text += "; without";
  for (std::size_t i = 0; i < heard.missing.size(); ++i) {
    text += (i == 0 ? " " : ", ") + heard.missing[i];
  }
  return text;
}

TuningTrial TryTuning(const EffectLibrary& library) {
  LogCapture log;
  TuningTrial trial;
  struct Named {
    const char* name;
    uint32_t value;
  };
  for (const Named output : {Named{"wired", AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
                             Named{"bluetooth", AUDIO_DEVICE_OUT_BLUETOOTH_A2DP}}) {
    for (const Named ears : {Named{"standard", 1}, Named{"personalized", 2}}) {
      for (const Named mode : {Named{"music", 1}, Named{"cinema", 2}}) {
        log.Take();
        EffectSession session(library);
        session.SetParam(UpmixParam::WiredHrtf, ears.value);
        session.SetParam(UpmixParam::BluetoothHrtf, ears.value);
        session.SetDevice(static_cast<audio_devices_t>(output.value));
        session.Enable();
        std::minstd_rand random(1);
        Period last_input;
        Play(&session, &random, &last_input);
        session.SetParam(UpmixParam::Mode, mode.value);
        const std::vector<Period> out = Play(&session, &random, &last_input);
        const std::vector<LogLine> lines = log.Take();
        for (const LogLine& line : lines) {
          const std::string text = line.tag + ": " + line.message;
          if (std::find(trial.log.begin(), trial.log.end(), text) == trial.log.end()) {
            trial.log.push_back(text);
          }
        }
        // This mode does not use the stage of the other one.
        const kelda::Stage other = mode.value == 1 ? kelda::Stage::Cinema : kelda::Stage::Music;
        trial.heard.push_back(
            {std::string(mode.name) + ", " + output.name + ", " + ears.name + " ears",
             Classify(out, last_input), MissingStages(lines, other)});
      }
    }
  }
  return trial;
}

}  // namespace kelda::tools
