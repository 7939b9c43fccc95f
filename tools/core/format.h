#ifndef KELDA_TOOLS_CORE_FORMAT_H_
#define KELDA_TOOLS_CORE_FORMAT_H_

#include <string>

namespace kelda::tools {

// What printf would print, however long it is.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_FORMAT_H_
