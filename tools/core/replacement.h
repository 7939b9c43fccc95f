// Whether an output may take the place of a file.
#ifndef KELDA_TOOLS_CORE_REPLACEMENT_H_
#define KELDA_TOOLS_CORE_REPLACEMENT_H_

#include <filesystem>

namespace kelda::tools {

// The help text of the option that sets `replace` below.
inline constexpr const char* kReplaceHelp = "Replace an existing output without asking";

// Returns if `output` does not exist yet or may be replaced: because of `replace`, or because the
// user agrees, who is asked if there is a terminal. The input itself is never replaced, under
// whatever name or link. Throws Failure (usage) for the input and (output) for a file that stays,
// and Interrupted.
void CheckReplacement(const std::filesystem::path& input, const std::filesystem::path& output,
                      bool replace);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_REPLACEMENT_H_
