// Files that were compiled into the program, by cmake/embed_texts.cmake.
#ifndef KELDA_TOOLS_CORE_EMBEDDED_TEXT_H_
#define KELDA_TOOLS_CORE_EMBEDDED_TEXT_H_

#include <span>
#include <string_view>

namespace kelda::tools {

struct EmbeddedText {
  std::string_view name;  // of the file, without a folder
  std::string_view text;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_EMBEDDED_TEXT_H_
