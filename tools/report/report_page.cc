#include "tools/report/report_page.h"

#include <cstddef>
#include <string_view>

#include "tools/report/report_assets.h"

namespace kelda::tools {
namespace {

// JSON that may stand between <script> and </script>. Only "</script" and "<!--" have a meaning
// there, and a string of JSON may hold '<' as an escape.
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
  const std::pair<std::string_view, std::string_view> parts[] = {{"@STYLE@", kReportStyle},
                                                                 {"@DATA@", json},
                                                                 {"@CHART@", kReportChart},
                                                                 {"@SCRIPT@", kReportScript}};
  // The marks are in this order in the page. The inserted text is not searched for marks.
  std::string page;
  std::string_view rest = kReportHtml;
  for (const auto& [mark, part] : parts) {
    const std::size_t at = rest.find(mark);
    page.append(rest.substr(0, at)).append(part);
    rest.remove_prefix(at + mark.size());
  }
  return page.append(rest);
}

}  // namespace kelda::tools
