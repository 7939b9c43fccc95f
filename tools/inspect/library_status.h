#ifndef KELDA_TOOLS_INSPECT_LIBRARY_STATUS_H_
#define KELDA_TOOLS_INSPECT_LIBRARY_STATUS_H_

#include <string>

#include "upmix-lib/base/status.h"

namespace kelda::tools {

// What a status of the open signal library means for a file, and its number.
std::string DescribeStatus(upmix_lib::Status status);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_LIBRARY_STATUS_H_
