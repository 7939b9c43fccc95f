#include "tools/render/stage_watch.h"

#include <algorithm>

#include "tools/framework/log_capture.h"
#include "tools/framework/side_instance.h"

namespace kelda::tools {

StageWatch::StageWatch(const EffectLibrary& library) {
  const SideInstanceScope scope;
  session_.emplace(library);
}

StageWatch::~StageWatch() {
  const SideInstanceScope scope;
  session_.reset();
}

void StageWatch::Follow(const Setting& setting, int64_t frame) {
  std::vector<Stage> stages;
  std::vector<LogLine> lines;
  if (setting.key == Setting::Key::kEnable || setting.key == Setting::Key::kDisable) {
    enabled_ = setting.key == Setting::Key::kEnable;
  } else if (setting.key == Setting::Key::kMode) {
    upmix_wanted_ = setting.number != 0;
  }
  {
    const SideInstanceScope scope;
    LogCapture log;
    if (!TouchesBuffering(setting) && setting.key != Setting::Key::kProperty) {
      Apply(setting, &*session_);
    }
    stages = ParseStages(session_->Dump());
    lines = log.Take();
  }
  StagesFrom now{frame, enabled_, upmix_wanted_, {}, {}};
  for (const Stage& stage : stages) {
    // A stage loads its files when they change or when the setting that names them is repeated. If
    // it cannot, it logs an error then.
    if (std::any_of(lines.begin(), lines.end(),
                    [&](const LogLine& line) { return IsStageLog(stage.name, line.tag); })) {
      failed_[stage.name] = stage.files;
    } else if (const auto failed = failed_.find(stage.name);
               failed != failed_.end() && failed->second != stage.files) {
      failed_.erase(failed);
    }
    if (stage.runs) {
      now.stages.push_back(stage.name);
      if (failed_.contains(stage.name)) {
        now.not_ready.push_back(stage.name);
      }
    }
  }
  if (!history_.empty() && history_.back().frame == frame) {
    history_.pop_back();
  }
  if (history_.empty() || !(history_.back() == now)) {
    history_.push_back(std::move(now));
  }
}

}  // namespace kelda::tools
