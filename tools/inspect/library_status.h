#ifndef KELDA_TOOLS_INSPECT_LIBRARY_STATUS_H_
#define KELDA_TOOLS_INSPECT_LIBRARY_STATUS_H_

#include <string>

#include "upmix-lib/base/status.h"

namespace kelda::tools {

// What a status of the open signal library says about a file, with its number.
std::string DescribeStatus(upmix_lib::Status status);

// Whether it says that a file is not there.
inline bool IsMissing(upmix_lib::Status status) {
  return status == upmix_lib::kConfigMissing || status == upmix_lib::kDataMissing;
}

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_LIBRARY_STATUS_H_
