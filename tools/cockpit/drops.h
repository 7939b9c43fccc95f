// Files that were dropped on the page.
#ifndef KELDA_TOOLS_COCKPIT_DROPS_H_
#define KELDA_TOOLS_COCKPIT_DROPS_H_

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tools/cockpit/cockpit_server.h"
#include "tools/cockpit/tuning_model.h"

namespace kelda::tools {

struct Drop {
  std::string did;                          // for people: "ears for personalized: my-ears.sofa"
  std::function<void(TuningModel*)> apply;  // a step of undo, on the side that is edited then
};

// Reads what was dropped and makes of it what `side`, the edited one, can take: a preset (its set
// is told by its keys), an equalizer, a SOFA file for the present HRTF type and device, or a
// project, with the files that it names. A project may name only files that were dropped with it
// and files that the running project names. Works in a new folder in `scratch`, which it removes.
// Takes up to some seconds. Throws Failure, with the dropped files' names and lines.
Drop ReadDrop(const std::vector<DroppedContent>& files, const Side& side,
              const std::filesystem::path& scratch);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_DROPS_H_
