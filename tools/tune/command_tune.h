// kelda tune: makes the files that the phone reads from files that people have.
#ifndef KELDA_TOOLS_TUNE_COMMAND_TUNE_H_
#define KELDA_TOOLS_TUNE_COMMAND_TUNE_H_

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>

namespace kelda::tools {

// The sub-commands, each in a file of its name. They run when the arguments are parsed, and throw
// Failure or Interrupted.
void AddTuneEqCommand(CLI::App* tune);
void AddTunePresetCommands(CLI::App* tune);  // upmix, cinema, level
void AddTuneHrtfCommand(CLI::App* tune);
void AddTuneAppsCommand(CLI::App* tune);
void AddTuneBuildCommand(CLI::App* tune);

// What they share: the option -o, and the end of a help text.
CLI::Option* AddOutputOption(CLI::App* command, std::filesystem::path* output,
                             const std::string& help);
std::string TuneFooter(const std::string& text, const std::string& example);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNE_COMMAND_TUNE_H_
