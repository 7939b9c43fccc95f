// What a listener hears when the mode changes.
#ifndef KELDA_TOOLS_MODE_CHANGE_H_
#define KELDA_TOOLS_MODE_CHANGE_H_

#include <string>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"

namespace kelda::tools {

// The change takes place at 0 s: the first host block behind the command begins there.
struct ModeChange {
  static constexpr int kWindowMs = 5;
  static constexpr int kBeforeMs = 100;
  static constexpr int kAfterMs = 500;

  std::string from;
  std::string to;
  std::vector<double> level_db;  // RMS of both ears in windows of kWindowMs
  double silence_ms = 0;         // all samples 0, in one piece at most
  double recovered_ms = 0;       // when the level is back within 3 dB of what it settles at
  int steps = 0;                 // that a listener may hear as clicks (step_detector.h)
};

// Plays pink noise, half centred and half diffuse, in host blocks of 20 ms and changes the
// mode. `settings` come first. Throws Failure (refused), Interrupted.
ModeChange MeasureModeChange(const EffectLibrary& library, const std::vector<Setting>& settings,
                             const std::string& from, const std::string& to);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MODE_CHANGE_H_
