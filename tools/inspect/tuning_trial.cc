#include "tools/inspect/tuning_trial.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <numeric>
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

struct Played {
  std::vector<Period> in, out;
};

// Plays kPeriods of noise.
Played Play(EffectSession* session, std::minstd_rand* random) {
  Played played;
  for (int i = 0; i < kPeriods; ++i) {
    CheckInterruption();
    Period period(kPeriodFrames * kChannels);
    for (float& sample : period) {
      sample = static_cast<float>((*random)()) / static_cast<float>(random->max()) * 0.5f - 0.25f;
    }
    played.in.push_back(period);
    session->Process(period.data(), kPeriodFrames);
    played.out.push_back(period);
  }
  return played;
}

// Whether `heard` is the period at `of`, perhaps later by the latency of the level control, and
// with a gain that it changes slowly. `of` is not the first of its periods.
bool Alike(const Period& heard, std::vector<Period>::const_iterator of) {
  constexpr std::size_t kMostSamples = 48 * kChannels;
  constexpr double kAlike = 0.9;  // as a correlation; noise has next to none with other noise
  Period earlier = *(of - 1);
  earlier.insert(earlier.end(), of->begin(), of->end());
  for (std::size_t lag = 0; lag <= kMostSamples; lag += kChannels) {
    const auto from = earlier.end() - static_cast<std::ptrdiff_t>(heard.size() + lag);
    const double both = std::inner_product(heard.begin(), heard.end(), from, 0.0);
    const double powers = std::inner_product(heard.begin(), heard.end(), heard.begin(), 0.0) *
                          std::inner_product(from, from + std::ssize(heard), from, 0.0);
    if (both > kAlike * std::sqrt(powers)) {
      return true;
    }
  }
  return false;
}

Heard::Sound Classify(const Played& played) {
  const Period& last = played.out.back();
  const bool silent =
      std::all_of(last.begin(), last.end(), [](float sample) { return std::fabs(sample) < 1e-6f; });
  if (silent) {
    return Heard::Sound::kSilence;
  }
  if (Alike(last, played.in.end() - 1)) {
    return Heard::Sound::kUnprocessed;
  }
  if (Alike(last, played.out.end() - 2)) {
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
        Play(&session, &random);
        session.SetParam(UpmixParam::Mode, mode.value);
        const Played played = Play(&session, &random);
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
             Classify(played), MissingStages(lines, other)});
      }
    }
  }
  return trial;
}

}  // namespace kelda::tools
