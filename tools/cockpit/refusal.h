#ifndef KELDA_TOOLS_COCKPIT_REFUSAL_H_
#define KELDA_TOOLS_COCKPIT_REFUSAL_H_

#include <string>

#include "tools/core/failure.h"

namespace kelda::tools {

// What a page asked for cannot be: it is told `why`, and nothing has changed.
[[noreturn]] inline void Refuse(const std::string& why) { throw Failure(ExitCode::kUsage, why); }

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_REFUSAL_H_
