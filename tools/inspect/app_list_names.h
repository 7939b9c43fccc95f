#ifndef KELDA_TOOLS_INSPECT_APP_LIST_NAMES_H_
#define KELDA_TOOLS_INSPECT_APP_LIST_NAMES_H_

#include <string>
#include <string_view>
#include <vector>

namespace kelda::tools {

// Every text in a list of tuned applications that the engine might take for a package's
// name, once each, in the list's order: to ask the engine about it.
std::vector<std::string> PossiblePackages(std::string_view list);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_APP_LIST_NAMES_H_
