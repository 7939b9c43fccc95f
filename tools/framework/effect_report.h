// What the text of the effect's dump says about its stages.
#ifndef KELDA_TOOLS_FRAMEWORK_EFFECT_REPORT_H_
#define KELDA_TOOLS_FRAMEWORK_EFFECT_REPORT_H_

#include <string>
#include <string_view>
#include <vector>

namespace kelda::tools {

// A file of a stage. A configuration file ("hki", "ba") names the data file to load; any other
// ("bin") is the data itself.
struct StageFile {
  std::string role;
  std::string file;
  std::string names;  // the first line of a configuration file

  bool operator==(const StageFile&) const = default;
};

struct Stage {
  std::string name;  // "pass", "upmm", "upmc", "hpeq", "upl"
  bool runs = false;
  std::vector<StageFile> files;  // those that are set

  bool operator==(const Stage&) const = default;
};

// The stages in the order of the chain, from lines like
//       [*] upmm: hki=wired.hki.config:standard.hki, bin=upmix.music.hps.bin
std::vector<Stage> ParseStages(std::string_view dump);

// The mode that the running stages belong to: "music", "cinema", else "off".
std::string RunningMode(const std::vector<Stage>& stages);

// What the stage `name` does: "music upmix".
std::string StageTitle(const std::string& name);

// Whether the stage logs under the tag. It repeats errors from the layers below it.
bool IsStageLog(std::string_view stage_name, std::string_view tag);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_EFFECT_REPORT_H_
