// Whether an output may take the place of a file.
#ifndef KELDA_TOOLS_CORE_REPLACEMENT_H_
#define KELDA_TOOLS_CORE_REPLACEMENT_H_

#include <filesystem>

namespace kelda::tools {

// The help of the option that is `replace` below.
inline constexpr const char* kReplaceHelp = "Replace an output that exists without asking";

// Lets pass an output that does not exist yet, or may be replaced: because of `replace`, or because
// the user says so, who is asked if there is a terminal. Never the input itself, by whatever name
// or link. Throws Failure (usage) for the input, (output) for a file that is to stay, Interrupted.
void CheckReplacement(const std::filesystem::path& input, const std::filesystem::path& output,
                      bool replace);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_REPLACEMENT_H_
