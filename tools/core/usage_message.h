#ifndef KELDA_TOOLS_CORE_USAGE_MESSAGE_H_
#define KELDA_TOOLS_CORE_USAGE_MESSAGE_H_

#include <CLI/CLI.hpp>
#include <string>

namespace kelda::tools {

// The message for arguments on which `program.parse` threw `error`. It names the first unknown
// word, the known word that resembles it, and the --help to read.
std::string UsageMessage(const CLI::App& program, const CLI::ParseError& error);

// Whether the arguments of the last `program.parse` hold a word where a command belongs, and it is
// none: also beside a --help, which then has nothing to explain.
bool NamesUnknownCommand(const CLI::App& program);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_USAGE_MESSAGE_H_
