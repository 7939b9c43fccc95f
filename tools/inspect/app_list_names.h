#ifndef KELDA_TOOLS_INSPECT_APP_LIST_NAMES_H_
#define KELDA_TOOLS_INSPECT_APP_LIST_NAMES_H_

#include <string>
#include <string_view>
#include <vector>

namespace kelda::tools {

// Every text in a list of tuned applications that the engine may read as the name of a package,
// once each and in the order of the list. The engine is then asked about each.
std::vector<std::string> PossiblePackages(std::string_view list);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_APP_LIST_NAMES_H_
