#include "tools/live/live_keys.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "tools/core/decibels.h"
#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/status_line.h"
#include "tools/framework/host_session.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

constexpr uint32_t kOff = 0, kMusic = 1, kCinema = 2, kAuto = 3;

// Sets it in the place of the setting of the same key.
void Replace(std::vector<Setting>* settings, const Setting& setting) {
  const auto same = std::find_if(settings->begin(), settings->end(),
                                 [&](const Setting& other) { return other.key == setting.key; });
  if (same != settings->end()) {
    *same = setting;
  } else {
    settings->push_back(setting);
  }
}

std::string PeakText(float peak) {
  constexpr double kSilence = -99.0;
  const double db = ToDb(peak);
  return db < kSilence ? "-inf" : Format("%.1f", db);
}

}  // namespace

LiveKeys::LiveKeys(LiveEngine* engine, const std::vector<Setting>& settings,
                   const std::filesystem::path& tuning, const std::vector<std::string>& b)
    : engine_(engine), a_{settings, tuning}, b_(a_) {
  constexpr std::string_view kTuning = "tuning=";
  for (const std::string& text : b) {
    if (text.starts_with(kTuning)) {
      b_.tuning = text.substr(kTuning.size());
      CheckTuningDirectory(b_.tuning);
      continue;
    }
    const Setting setting = ParseSetting(text);
    if (!HostSetting(setting)) {
      throw Failure(ExitCode::kUsage, "--b " + text + ": not while it plays");
    }
    Replace(&b_.settings, setting);
  }
  if (b.empty()) {
    Replace(&b_.settings, {Setting::Key::kMode, kOff, ""});
  }
}

bool LiveKeys::Press(char key) {
  if (key == 'b') {
    ChangeSides();
    return true;
  }
  if (key == 'r') {
    LoadTuning();
    return true;
  }
  constexpr struct {
    char key;
    uint32_t mode;
  } kModes[] = {{'m', kMusic}, {'c', kCinema}, {'o', kOff}, {'a', kAuto}};
  const auto* const known = std::find_if(std::begin(kModes), std::end(kModes),
                                         [&](const auto& entry) { return entry.key == key; });
  if (known == std::end(kModes)) {
    return false;
  }
  const Setting setting{Setting::Key::kMode, known->mode, ""};
  Replace(&heard().settings, setting);
  engine_->Set(setting);
  return true;
}

// What they have in common is left as it is.
void LiveKeys::ChangeSides() {
  const Side before = heard();
  on_b_ = !on_b_;
  for (const Setting& setting : heard().settings) {
    if (std::find(before.settings.begin(), before.settings.end(), setting) ==
        before.settings.end()) {
      engine_->Set(setting);
    }
  }
  if (heard().tuning != before.tuning) {
    LoadTuning();
  }
}

void LiveKeys::LoadTuning() {
  try {
    engine_->SetTuning(heard().tuning);
  } catch (const Failure& failure) {
    ShowMessage(failure.what());
  }
}

std::string LiveStatus(char side, const LiveState& state, const Peaks& peaks) {
  constexpr float kPercent = 100.0f;
  std::string text = Format("%c %s%s  %s > %s dB  %.1f %%", side, state.plays.c_str(),
                            state.changing ? " ..." : "", PeakText(peaks.in).c_str(),
                            PeakText(peaks.out).c_str(), kPercent * state.cycles.load);
  if (state.cycles.slow + state.cycles.xruns > 0) {
    text += Format("  %llu slow, %llu xruns", static_cast<unsigned long long>(state.cycles.slow),
                   static_cast<unsigned long long>(state.cycles.xruns));
  }
  if (!state.trouble.empty()) {
    text += "  " + state.trouble;
  }
  return text;
}

}  // namespace kelda::tools
