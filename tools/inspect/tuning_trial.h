// What a listener hears with a directory of tuning files.
#ifndef KELDA_TOOLS_INSPECT_TUNING_TRIAL_H_
#define KELDA_TOOLS_INSPECT_TUNING_TRIAL_H_

#include <string>
#include <vector>

#include "tools/framework/effect_library.h"

namespace kelda::tools {

struct Heard {
  enum class Sound {
    kUpmixed,      // processed as the mode is meant to
    kUnprocessed,  // the stereo input, but for the level
    kSilence,
    kRepetition,  // one period of earlier sound, again and again
  };
  std::string situation;  // "music, wired, standard ears"
  Sound sound;
  std::vector<std::string> missing;  // stages that could not be loaded
};

// Whether everything that belongs to the mode was heard.
bool AsItShouldBe(const Heard& heard);

// "as it should be", "PROCESSED IN PART; without level control".
std::string Verdict(const Heard& heard);

struct TuningTrial {
  std::vector<Heard> heard;
  std::vector<std::string> log;  // the effect's warnings and errors, without repetitions
};

// Has the effect play noise in every mode, on both outputs, with both kinds of ears: each mode
// after off, as a listener would switch. The tuning directory is the one that UseTuningDirectory
// chose before `library` was loaded. Throws Failure (refused), Interrupted.
TuningTrial TryTuning(const EffectLibrary& library);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_TUNING_TRIAL_H_
