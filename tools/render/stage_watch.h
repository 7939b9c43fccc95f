// Which stages of the effect run, and whether they can.
//
// A second instance is told every setting that the rendering one gets, and asked for its report
// after each: so the rendering one is told no more than a phone tells it.
#ifndef KELDA_TOOLS_RENDER_STAGE_WATCH_H_
#define KELDA_TOOLS_RENDER_STAGE_WATCH_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/framework/effect_report.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/setting.h"

namespace kelda::tools {

// What ran from a frame of the input on.
struct StagesFrom {
  int64_t frame = 0;
  bool enabled = true;
  bool upmix_wanted = false;           // a mode other than off was asked for
  std::vector<std::string> stages;     // those that are switched on, in their order
  std::vector<std::string> not_ready;  // those of them that could not load their files

  bool operator==(const StagesFrom& other) const {
    return enabled == other.enabled && upmix_wanted == other.upmix_wanted &&
           stages == other.stages && not_ready == other.not_ready;
  }
};

class StageWatch {
 public:
  // `library` outlives it. Throws Failure (refused), like Follow.
  explicit StageWatch(const EffectLibrary& library);
  ~StageWatch();

  // Follows a setting that was carried out before the frame of the input.
  void Follow(const Setting& setting, int64_t frame);

  // In order of time, one entry a change; from frame 0 on what the last setting there made.
  const std::vector<StagesFrom>& history() const { return history_; }

 private:
  std::optional<EffectSession> session_;  // empty only in the destructor
  bool enabled_ = true;
  bool upmix_wanted_ = false;
  std::map<std::string, std::vector<StageFile>> failed_;  // by stage: what it could not load
  std::vector<StagesFrom> history_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_RENDER_STAGE_WATCH_H_
