#ifndef KELDA_TOOLS_CORE_USAGE_MESSAGE_H_
#define KELDA_TOOLS_CORE_USAGE_MESSAGE_H_

#include <CLI/CLI.hpp>
#include <string>

namespace kelda::tools {

// What is wrong with the arguments on which `program.parse` threw `error`: names the first
// word that is not known and the known one that it resembles, and the help to ask for.
std::string UsageMessage(const CLI::App& program, const CLI::ParseError& error);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_USAGE_MESSAGE_H_
