// What the engine makes of a list of tuned applications, line by line.
#ifndef KELDA_TOOLS_TUNE_APP_LIST_CHECK_H_
#define KELDA_TOOLS_TUNE_APP_LIST_CHECK_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "tools/core/file_problems.h"

namespace kelda::tools {

inline constexpr std::size_t kMaxAppListBytes = std::size_t{16} << 20;

struct AppListCheck {
  std::string report;     // a line for each line of the list, "name:line: ..."
  std::size_t entries;    // applications that the list tunes
  FileProblems rejected;  // lines that the engine rejects with a warning, and its words
  FileProblems doubtful;  // entries for names that no application has
};

// Has the engine's own reader read every line of `list`, byte for byte what the file
// holds. `name` is the file's, for the report.
AppListCheck CheckAppList(const std::string& name, std::string_view list);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNE_APP_LIST_CHECK_H_
