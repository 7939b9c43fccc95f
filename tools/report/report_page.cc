#include "tools/report/report_page.h"

#include <cstddef>
#include <string_view>

#include "tools/core/embedded_text.h"

namespace kelda::tools {

std::span<const EmbeddedText>
ReportTexts();  // the page, its style, the plotting library, its script

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
  const std::span<const EmbeddedText> texts = ReportTexts();
  const std::pair<std::string_view, std::string_view> parts[] = {{"@STYLE@", texts[1].text},
                                                                 {"@DATA@", json},
                                                                 {"@CHART@", texts[2].text},
                                                                 {"@SCRIPT@", texts[3].text}};
  // The marks are in this order in the page. The inserted text is not searched for marks.
  std::string page;
  std::string_view rest = texts[0].text;
  for (const auto& [mark, part] : parts) {
    const std::size_t at = rest.find(mark);
    page.append(rest.substr(0, at)).append(part);
    rest.remove_prefix(at + mark.size());
  }
  return page.append(rest);
}

}  // namespace kelda::tools
