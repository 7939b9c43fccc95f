#ifndef KELDA_TOOLS_REPORT_REPORT_PAGE_H_
#define KELDA_TOOLS_REPORT_REPORT_PAGE_H_

#include <string>

#include "tools/core/json.h"

namespace kelda::tools {

// The report as one page of HTML that loads nothing from a network.
std::string ReportPage(const Json& data);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPORT_REPORT_PAGE_H_
