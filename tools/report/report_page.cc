#include "tools/report/report_page.h"

#include <string_view>

#include "tools/report/report_assets.h"

namespace kelda::tools {
namespace {

// As it may stand between <script> and </script>: there, only "</script" and "<!--" mean
// anything, and inside of JSON's strings '<' can be written otherwise.
std::string ScriptText(const Json& data) {
  const std::string json = data.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::string text;
  for (const char character : json) {
    if (character == '<') {
      text += "\\u003c";
    } else {
      text += character;
    }
  }
  return text;
}

}  // namespace

std::string ReportPage(const Json& data) {
  const std::string json = ScriptText(data);
  const std::pair<std::string_view, std::string_view> kParts[] = {{"@STYLE@", kReportStyle},
                                                                  {"@DATA@", json},
                                                                  {"@CHART@", kReportChart},
                                                                  {"@SCRIPT@", kReportScript}};
  // The marks stand in the page in this order; what is put in is not searched again.
  std::string page;
  std::string_view rest = kReportHtml;
  for (const auto& [mark, part] : kParts) {
    const size_t at = rest.find(mark);
    page.append(rest.substr(0, at)).append(part);
    rest.remove_prefix(at + mark.size());
  }
  return page.append(rest);
}

}  // namespace kelda::tools
