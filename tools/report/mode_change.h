// What a listener hears when the mode changes.
#ifndef KELDA_TOOLS_REPORT_MODE_CHANGE_H_
#define KELDA_TOOLS_REPORT_MODE_CHANGE_H_

#include <string>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"

namespace kelda::tools {

// The level over time: RMS of both ears, in dBFS, in windows that follow each other.
struct LevelCurve {
  double begin_ms;  // of the first window
  double window_ms;
  std::vector<double> level_db;
};

// The change is at 0 ms, where the first host block after the command begins.
struct ModeChange {
  // Three levels are measured over kLevelMs, from these times in ms: before the change; just after
  // it, when the new mode has faded in; and 5 s later, as a level control may take that long to
  // settle.
  static constexpr int kLevelMs = 400;
  static constexpr int kBeforeMs = -400;
  static constexpr int kJustAfterMs = 200;
  static constexpr int kLaterMs = 5000;

  std::string from;
  std::string to;
  LevelCurve fade;      // -100 to 500 ms, every 5 ms
  LevelCurve settling;  // -1 to 6 s, every 100 ms
  // In dBFS. The level of the noise itself in each window is subtracted, so that they differ only
  // by what the effect does.
  double before_db = 0;
  double just_after_db = 0;
  double later_db = 0;
  double silence_ms = 0;  // the longest run in which all samples are 0; of `fade`
  int steps = 0;          // that a listener may hear as clicks (step_detector.h); of `fade`
};

// Plays pink noise, half centred and half diffuse, in host blocks of 20 ms and changes the
// mode. `settings` are applied first. Throws Failure (refused), Interrupted.
ModeChange MeasureModeChange(const EffectLibrary& library, const std::vector<Setting>& settings,
                             const std::string& from, const std::string& to);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPORT_MODE_CHANGE_H_
