#ifndef KELDA_TOOLS_CORE_JSON_H_
#define KELDA_TOOLS_CORE_JSON_H_

#include <nlohmann/json.hpp>
#include <string>

namespace kelda::tools {

// Members stay in the order in which they are written.
using Json = nlohmann::ordered_json;

// As text, with a line end. DEL and everything beyond ASCII is escaped, so that a script gets the
// text of a file whole and a terminal never takes it for a command. Bytes that are not UTF-8, which
// file names may hold, are replaced; NaN and infinity become null.
inline std::string ToText(const Json& json) {
  return json.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_JSON_H_
