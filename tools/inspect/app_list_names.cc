#include "tools/inspect/app_list_names.h"

#include <algorithm>
#include <cstddef>
#include <unordered_set>

#include "tools/core/text_file.h"

namespace kelda::tools {

std::vector<std::string> PossiblePackages(std::string_view list) {
  constexpr std::string_view kTrimmed = " \"\t\v\r\n";
  std::vector<std::string> packages;
  std::unordered_set<std::string> seen;
  while (!list.empty()) {
    const std::string_view line = TakeLine(&list);
    const std::size_t comma = line.find(',');
    if (comma == std::string_view::npos) {
      continue;
    }
    std::string_view name = line.substr(0, comma);
    name.remove_prefix(std::min(name.find_first_not_of(kTrimmed), name.size()));
    name = name.substr(0, name.find_last_not_of(kTrimmed) + 1);
    if (seen.emplace(name).second) {
      packages.emplace_back(name);
    }
  }
  return packages;
}

}  // namespace kelda::tools
