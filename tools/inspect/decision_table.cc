#include "tools/inspect/decision_table.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "engine/plan.h"
#include "platform/log.h"
#include "settings/tuned_app_list.h"
#include "settings/tuning_directory.h"
#include "settings/tuning_files.h"
#include "tools/core/interruption.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/log_capture.h"
#include "tools/framework/setting.h"

namespace kelda::tools {
namespace {

// By AudioDeviceType.
constexpr const char* kDevices[] = {"other", "wired", "bluetooth"};
constexpr const char* kHrtfs[] = {"tuned", "standard", "personalized"};

// The effect treats all devices of a kind alike, so that one of each kind is enough.
std::string DeviceSetting(const std::string& device) {
  return device == "other" ? "device=speaker" : "device=" + device;
}

void Apply(const std::string& setting, EffectSession* session) {
  Apply(ParseSetting(setting), session);
}

bool Concerns(const LogLine& line, const std::vector<Stage>& stages) {
  return std::any_of(stages.begin(), stages.end(), [&](const Stage& stage) {
    return stage.runs && IsStageLog(stage.name, line.tag);
  });
}

// What the engine plans for the device with this HRTF and mode.
Plan PlanFor(std::size_t device, HrtfType hrtf, UpmixMode mode,
             UpmixMode app_mode = UpmixMode::Music) {
  const AudioDeviceType type{static_cast<uint32_t>(device)};
  return MakePlan({mode, app_mode, type, hrtf, hrtf}, UpmixMode::Off, Changed::Device);
}

// The HRTF that a name of kHrtfs stands for with the tuning in `directory`.
HrtfType HrtfOf(const std::string& name, std::size_t device,
                const std::filesystem::path& directory) {
  if (name == "standard") {
    return HrtfType::Standard;
  }
  if (name == "personalized") {
    return HrtfType::Personalized;
  }
  const bool wired = AudioDeviceType{static_cast<uint32_t>(device)} == AudioDeviceType::Wired;
  return GetHrtfType(directory /
                     (wired ? tuning_file::kWiredHki : tuning_file::kBluetoothHki).name);
}

Decision Ask(const EffectLibrary& library, LogCapture* log, const std::string& device,
             const std::string& hrtf, const std::string& mode) {
  Decision decision{device, hrtf, mode, {}, {}};
  log->Take();
  {
    EffectSession session(library);
    if (hrtf != "tuned" && device != "other") {
      Apply(device + "-hrtf=" + hrtf, &session);
    }
    Apply(DeviceSetting(device), &session);
    Apply("mode=" + mode, &session);
    decision.stages = ParseStages(session.Dump());
  }
  for (const LogLine& line : log->Take()) {
    if (Concerns(line, decision.stages)) {
      decision.problems.push_back(line.tag + ": " + line.message);
    }
  }
  return decision;
}

AppDecision DecideApp(const TunedAppList& list, const std::string& package) {
  const auto mode = [&](AudioDeviceType device, bool flag) {
    const Plan plan = PlanFor(static_cast<std::size_t>(device), HrtfType::Standard, UpmixMode::Auto,
                              list.ModeOf(package, flag));
    return kModeNames[static_cast<std::size_t>(plan.mode)];
  };
  return {package,
          list.IsExist(package),
          mode(AudioDeviceType::Other, false),
          mode(AudioDeviceType::Wired, false),
          mode(AudioDeviceType::Bluetooth, false),
          mode(AudioDeviceType::Wired, true),
          mode(AudioDeviceType::Bluetooth, true)};
}

// What the engine logs about its files. It reads both HRTF configurations when it is created and
// again when it is initialised. A command then makes it read the list again.
std::vector<std::string> Warnings(const EffectLibrary& library, LogCapture* log) {
  log->Take();
  EffectSession session(library);
  const std::vector<LogLine> made = log->Take();
  session.SetParam(UpmixParam::ReloadTunedAppList, uint32_t{0});
  std::vector<std::string> warnings;
  for (const LogLine& line : made) {
    if (line.tag == log_tag::kHrtf &&
        std::find(warnings.begin(), warnings.end(), line.message) == warnings.end()) {
      warnings.push_back(line.message);
    }
  }
  for (const LogLine& line : log->Take()) {
    if (line.tag == log_tag::kAppList) {
      warnings.push_back(std::string(tuning_file::kAppList.name) + ": " + line.message);
    }
  }
  return warnings;
}

}  // namespace

DecisionTable AskDecisions(const std::filesystem::path& directory, const EffectLibrary& library,
                           const std::vector<std::string>& packages) {
  LogCapture log;
  DecisionTable table;
  // The library is asked once for each plan, as settings with the same plan sound the same.
  std::vector<Plan> plans;
  std::vector<Decision> answers;
  for (std::size_t device = 0; device < std::size(kDevices); ++device) {
    for (const char* hrtf : kHrtfs) {
      for (std::size_t mode = 0; mode < std::size(kModeNames); ++mode) {
        CheckInterruption();
        const Plan plan = PlanFor(device, HrtfOf(hrtf, device, directory),
                                  UpmixMode{static_cast<uint32_t>(mode)});
        const auto known = std::find(plans.begin(), plans.end(), plan);
        const auto place = known - plans.begin();
        if (known == plans.end()) {
          plans.push_back(plan);
          answers.push_back(Ask(library, &log, kDevices[device], hrtf, kModeNames[mode]));
        }
        const Decision& answer = answers[static_cast<std::size_t>(place)];
        table.decisions.push_back(
            {kDevices[device], hrtf, kModeNames[mode], answer.stages, answer.problems});
      }
    }
  }
  table.warnings = Warnings(library, &log);
  TunedAppList list(directory / tuning_file::kAppList.name);
  list.Reload();
  log.Take();
  // A text with a comma cannot be in the list.
  table.apps.push_back(DecideApp(list, "not,listed"));
  table.apps.back().package.clear();
  for (const std::string& package : packages) {
    CheckInterruption();
    if (package.find('&') != std::string::npos) {
      table.unaskable.push_back(package);
    } else {
      const AppDecision decision = DecideApp(list, package);
      if (decision.known) {
        table.apps.push_back(decision);
      }
    }
  }
  return table;
}

}  // namespace kelda::tools
