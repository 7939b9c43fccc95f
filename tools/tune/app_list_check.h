// Checks a list of tuned applications: what the engine does with each line.
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
  FileProblems rejected;  // lines that the engine rejects, with its warnings
  FileProblems doubtful;  // entries for names that no application has
};

// Reads every line of `list`, which holds the bytes of the file, with the engine's own reader.
// `name` is the name of the file, for the report.
AppListCheck CheckAppList(const std::string& name, std::string_view list);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNE_APP_LIST_CHECK_H_
