// The parts of the report's page, compiled into the program: files of tools/report/ and the
// plotting library.
#ifndef KELDA_TOOLS_REPORT_REPORT_ASSETS_H_
#define KELDA_TOOLS_REPORT_REPORT_ASSETS_H_

#include <string_view>

namespace kelda::tools {

extern const std::string_view kReportHtml;  // with @STYLE@, @DATA@, @CHART@ and @SCRIPT@ in it
extern const std::string_view kReportStyle;
extern const std::string_view kReportScript;
extern const std::string_view kReportChart;  // Chart.js

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPORT_REPORT_ASSETS_H_
