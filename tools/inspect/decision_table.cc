#include "tools/inspect/decision_table.h"

#include <algorithm>
#include <array>

#include "tools/core/interruption.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/log_capture.h"
#include "tools/framework/setting.h"

namespace kelda::tools {
namespace {

constexpr const char* kDevices[] = {"other", "wired", "bluetooth"};
constexpr const char* kHrtfs[] = {"tuned", "standard", "personalized"};
constexpr const char* kModes[] = {"off", "music", "cinema", "auto"};

// Every device of a kind is treated alike; these stand for theirs.
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

std::string ModeFor(const std::string& package, bool flag, EffectSession* session) {
  session->SetParam(EffectParam::kAppPackage, package + (flag ? "&1" : "&0"));
  return RunningMode(ParseStages(session->Dump()));
}

// One instance per device, in mode auto.
class AppAsker {
 public:
  explicit AppAsker(const EffectLibrary& library)
      : sessions_{EffectSession(library), EffectSession(library), EffectSession(library)} {
    for (size_t i = 0; i < std::size(kDevices); ++i) {
      Apply(DeviceSetting(kDevices[i]), &sessions_[i]);
      Apply("mode=auto", &sessions_[i]);
    }
  }

  AppDecision Ask(const std::string& package) {
    AppDecision decision{package, false, "", "", "", "", ""};
    decision.other = ModeFor(package, false, &sessions_[0]);
    decision.wired = ModeFor(package, false, &sessions_[1]);
    decision.bluetooth = ModeFor(package, false, &sessions_[2]);
    decision.flagged_wired = ModeFor(package, true, &sessions_[1]);
    decision.flagged_bluetooth = ModeFor(package, true, &sessions_[2]);
    decision.known = decision.wired == decision.flagged_wired;
    return decision;
  }

 private:
  std::array<EffectSession, 3> sessions_;
};

// What the engine says when it is made: it reads both HRTF configurations, and twice each,
// as its initialisation makes it anew. Then it reads the list once more.
std::vector<std::string> Warnings(const EffectLibrary& library, LogCapture* log) {
  log->Take();
  EffectSession session(library);
  const std::vector<LogLine> made = log->Take();
  session.SetParam(EffectParam::kReloadTunedAppList, uint32_t{0});
  std::vector<std::string> warnings;
  for (const LogLine& line : made) {
    if (line.tag == "KelApVirCommon" &&
        std::find(warnings.begin(), warnings.end(), line.message) == warnings.end()) {
      warnings.push_back(line.message);
    }
  }
  for (const LogLine& line : log->Take()) {
    if (line.tag == "EffectUpmix") {
      warnings.push_back("tunedapp_list: " + line.message);
    }
  }
  return warnings;
}

}  // namespace

DecisionTable AskDecisions(const EffectLibrary& library, const std::vector<std::string>& packages) {
  LogCapture log;
  DecisionTable table;
  for (const char* device : kDevices) {
    for (const char* hrtf : kHrtfs) {
      for (const char* mode : kModes) {
        CheckInterruption();
        table.decisions.push_back(Ask(library, &log, device, hrtf, mode));
      }
    }
  }
  table.warnings = Warnings(library, &log);
  AppAsker asker(library);
  // A text with a comma cannot be in the list.
  table.apps.push_back(asker.Ask("not,listed"));
  table.apps.back().package.clear();
  for (const std::string& package : packages) {
    CheckInterruption();
    if (package.find('&') != std::string::npos) {
      table.unaskable.push_back(package);
    } else {
      const AppDecision decision = asker.Ask(package);
      if (decision.known) {
        table.apps.push_back(decision);
      }
    }
  }
  return table;
}

}  // namespace kelda::tools
