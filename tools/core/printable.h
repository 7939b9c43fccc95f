// Text that comes from files, made safe to show.
#ifndef KELDA_TOOLS_CORE_PRINTABLE_H_
#define KELDA_TOOLS_CORE_PRINTABLE_H_

#include <string>
#include <string_view>

namespace kelda::tools {

// `text` as one line that holds no command for a terminal: a tab becomes a blank; other control
// characters (line ends, C0, DEL, C1) and bytes that are not UTF-8 become text like "\x1b".
std::string Printable(std::string_view text);

// The same, but line ends stay. For whole lines, at the moment when they are printed.
std::string PrintableLines(std::string_view lines);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_PRINTABLE_H_
