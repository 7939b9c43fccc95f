#ifndef KELDA_TOOLS_CORE_USAGE_MESSAGE_H_
#define KELDA_TOOLS_CORE_USAGE_MESSAGE_H_

#include <CLI/CLI.hpp>
#include <string>

namespace kelda::tools {

// The message for arguments on which `program.parse` threw `error`. It names the first unknown
// word, the known word that resembles it, and the --help to read.
std::string UsageMessage(const CLI::App& program, const CLI::ParseError& error);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_USAGE_MESSAGE_H_
