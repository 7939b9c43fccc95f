// Which stages of the effect run, and whether they could load their files.
//
// A second instance gets every setting that the rendering instance gets, and is asked for its
// report after each. So the rendering instance gets no command that a phone would not send.
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

// What ran from `frame` of the input to the next change.
struct StagesFrom {
  int64_t frame = 0;
  bool enabled = true;
  bool upmix_wanted = false;           // a mode other than off was asked for
  std::vector<std::string> stages;     // those that are switched on, in their order
  std::vector<std::string> not_ready;  // those of `stages` that could not load their files

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

  // Follows a setting that was applied before `frame` of the input.
  void Follow(const Setting& setting, int64_t frame);

  // One entry for each change, in order of time. The entry of frame 0 is the result of the last
  // setting at that frame.
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
