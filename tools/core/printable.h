// Text that comes from files, made safe to show.
#ifndef KELDA_TOOLS_CORE_PRINTABLE_H_
#define KELDA_TOOLS_CORE_PRINTABLE_H_

#include <string>
#include <string_view>

namespace kelda::tools {

// `text` as one line that no terminal takes a command from: a tab becomes a blank, other
// control characters (line ends, C0, DEL, C1) and bytes that are no UTF-8 are written "\x1b".
std::string Printable(std::string_view text);

// Likewise, but line ends stay: for whole lines, at the place where they are printed.
std::string PrintableLines(std::string_view lines);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_PRINTABLE_H_
