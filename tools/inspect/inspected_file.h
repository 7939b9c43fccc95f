// A tuning file in readable form.
#ifndef KELDA_TOOLS_INSPECT_INSPECTED_FILE_H_
#define KELDA_TOOLS_INSPECT_INSPECTED_FILE_H_

#include <filesystem>
#include <string>

#include "tools/core/json.h"

namespace kelda::tools {

// The names of the kinds of tuning files.
namespace file_kind {
inline constexpr char kHrirs[] = "HRIR set";
inline constexpr char kEqualizer[] = "headphone equalizer";
inline constexpr char kMusic[] = "music parameters";
inline constexpr char kCinema[] = "cinema parameters";
inline constexpr char kLevel[] = "level parameters";
inline constexpr char kConfig[] = "configuration";
inline constexpr char kAppList[] = "tuned applications";
}  // namespace file_kind

struct InspectedFile {
  std::string kind;     // of file_kind; empty if the engine knows no such kind
  std::string problem;  // what is wrong with it; empty if the engine can use it
  std::string text;     // its contents for a person, as whole lines; empty if it has a problem
  Json json;            // the same for a script
  // The kind, the size and the source on one line: "HRIR set, 256 taps, SOURCE". Empty if the file
  // has a problem.
  std::string summary = {};
};

// Reads a tuning file of any kind. The first bytes of a data file show its kind; of a text it is
// the name. The signal library's own readers check it. Whatever is in the file, this does not
// throw.
InspectedFile InspectFile(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_INSPECTED_FILE_H_
