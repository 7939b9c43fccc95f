// Everything that the report shows.
#ifndef KELDA_TOOLS_REPORT_REPORT_DATA_H_
#define KELDA_TOOLS_REPORT_REPORT_DATA_H_

#include <functional>
#include <string>

#include "tools/core/json.h"
#include "tools/framework/effect_library.h"
#include "tools/inspect/inspected_directory.h"

namespace kelda::tools {

// Measures the tuning in `directory`, which the effect uses. Calls `progress` with what is being
// measured. Takes some seconds. Throws Failure (refused), Interrupted.
Json CollectReport(const InspectedDirectory& directory, const EffectLibrary& library,
                   const std::function<void(const std::string&)>& progress);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPORT_REPORT_DATA_H_
