// What a listener hears of sounds that are made to show how the chain sounds.
#ifndef KELDA_TOOLS_REPORT_SOUND_MEASUREMENT_H_
#define KELDA_TOOLS_REPORT_SOUND_MEASUREMENT_H_

#include <filesystem>
#include <functional>
#include <string>

#include "tools/core/json.h"
#include "tools/framework/effect_library.h"
#include "tools/inspect/decision_table.h"

namespace kelda::tools {

// The figures and curves of music and cinema on wired headphones with standard ears, by the
// functions of tools/measure, which define them:
//
//   {"modes": [{"mode", "problems", "lines", "colour", "coherence", "room", "loudness"}, ...],
//    "handovers": [{"from", "to", "short_db", "times_s", "gain_db"}, ...]}
//
// A mode whose stages cannot load has its problems and nothing else, and no change leads to it.
// `tuning` is the directory that `decisions` are about. Calls `progress` with what is being
// measured. Takes some seconds. Throws Failure (refused), Interrupted.
Json MeasureSound(const EffectLibrary& library, const DecisionTable& decisions,
                  const std::filesystem::path& tuning,
                  const std::function<void(const std::string&)>& progress);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPORT_SOUND_MEASUREMENT_H_
