#include "tools/render/render_summary.h"

#include <algorithm>
#include <optional>

#include "settings/tuning_directory.h"
#include "tools/audio/sound_stream.h"
#include "tools/core/format.h"
#include "tools/framework/effect_report.h"
#include "tools/framework/effect_session.h"

namespace kelda::tools {
namespace {

constexpr uint32_t kAuto = 3;

std::string LevelText(const std::optional<double>& value) {
  return value ? Format("%.1f", *value) : "-inf";
}

std::string Titles(const std::vector<std::string>& stages) {
  std::string titles;
  for (const std::string& stage : stages) {
    titles += (titles.empty() ? "" : ", ") + StageTitle(stage);
  }
  return titles;
}

bool Upmixes(const StagesFrom& now) {
  return std::any_of(now.stages.begin(), now.stages.end(), [](const std::string& stage) {
    return stage == FactsOf(kelda::Stage::Music).name ||
           stage == FactsOf(kelda::Stage::Cinema).name;
  });
}

std::string Ran(const std::vector<StagesFrom>& history) {
  std::string text;
  for (const StagesFrom& now : history) {
    if (now.stages.empty()) {
      return "";
    }
    text += text.empty() ? "; ran: " : "; from " + SoundTime(now.frame, kSampleRateHz) + " ";
    text += now.enabled ? Titles(now.stages) : "nothing, it was disabled";
  }
  return text;
}

// Whether the condition is true for any setting of the job, at its start or later.
template <typename Condition>
bool AnySetting(const RenderJob& job, Condition condition) {
  return std::any_of(job.settings.begin(), job.settings.end(), condition) ||
         std::any_of(job.timeline.begin(), job.timeline.end(),
                     [&](const TimedSetting& change) { return condition(change.setting); });
}

}  // namespace

std::string SummaryLine(const RenderJob& job, const RenderResult& result) {
  const double speed =
      result.seconds > 0 ? static_cast<double>(result.frames) / kSampleRateHz / result.seconds : 0;
  return job.output.string() + ": " + SoundTime(result.frames, kSampleRateHz) + "; loudness " +
         LevelText(result.input.loudness_lufs) + " LUFS in, " +
         LevelText(result.output.loudness_lufs) + " out; true peak " +
         LevelText(result.input.true_peak_db) + " dBTP in, " +
         LevelText(result.output.true_peak_db) + " out; " +
         Format("%.*fx real time", speed < 10 ? 1 : 0, speed) + Ran(result.history);
}

std::vector<std::string> RenderWarnings(const RenderJob& job, const RenderResult& result) {
  std::vector<std::string> warnings;
  const bool automatic = AnySetting(job, [](const Setting& setting) {
    return setting.key == Setting::Key::kMode && setting.number == kAuto;
  });
  const bool named =
      AnySetting(job, [](const Setting& setting) { return setting.key == Setting::Key::kApp; });
  bool upmixed = false;
  for (const StagesFrom& now : result.history) {
    const std::string from =
        now.frame == 0 ? "" : "from " + SoundTime(now.frame, kSampleRateHz) + " ";
    if (!now.enabled || now.stages.empty()) {
      continue;
    }
    upmixed = upmixed || Upmixes(now);
    if (now.upmix_wanted && !Upmixes(now)) {
      warnings.push_back(from + "the upmix did not run: the device is no headphone" +
                         (automatic && named ? ", or the application is listed as OFF" : ""));
    }
    if (!now.not_ready.empty()) {
      warnings.push_back(from + "not ready: " + Titles(now.not_ready) +
                         "; 'kelda doctor' says what is wrong with the tuning and what is heard");
    }
  }
  if (upmixed && automatic && !named) {
    warnings.push_back("mode auto got no application (--app), so it upmixed music");
  }
  if (result.input.not_finite != 0) {
    warnings.push_back(job.input.string() + ": " + std::to_string(result.input.not_finite) +
                       " samples were NaN or infinite and were taken as 0");
  }
  if (result.output.not_finite != 0) {
    warnings.push_back(job.output.string() + ": " + std::to_string(result.output.not_finite) +
                       " samples are NaN or infinite: the effect made them");
  }
  if (result.input.true_peak_db && !result.output.true_peak_db) {
    warnings.push_back(job.output.string() + ": the output is silent, and the input is not");
  }
  for (const TimedSetting& change : result.unreached) {
    warnings.push_back(change.origin + ": not reached, the audio ended before");
  }
  if (result.clipped_samples != 0) {
    warnings.push_back(std::to_string(result.clipped_samples) +
                       " samples beyond full scale were clipped; a WAV file keeps them");
  }
  return warnings;
}

}  // namespace kelda::tools
