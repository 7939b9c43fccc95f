// Writes a side's changes to its tuning project.
#ifndef KELDA_TOOLS_COCKPIT_PROJECT_SAVE_H_
#define KELDA_TOOLS_COCKPIT_PROJECT_SAVE_H_

#include "tools/cockpit/tuning_model.h"

namespace kelda::tools {

// Edits the presets and the project of `side` in place (see TomlEdit). A preset that the project
// does not name is made beside the project and named there, and so is a file that was dropped. All
// files are made ready before the first is replaced, and if one cannot be replaced the others are
// put back. Returns what the side's origin is from now on. Throws Failure, with every file as it
// was: if the side has no project, if a file on the disk is not as it was read, if a file that is
// to be made exists.
TuningOrigin SaveSide(const Side& side);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_PROJECT_SAVE_H_
