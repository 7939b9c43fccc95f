#include "tools/tune/command_tune.h"

#include "tools/commands.h"
#include "tools/core/failure.h"

namespace kelda::tools {

CLI::Option* AddOutputOption(CLI::App* command, std::filesystem::path* output,
                             const std::string& help) {
  return command->add_option("-o,--output", *output, help)->type_name("");
}

std::string TuneFooter(const std::string& text, const std::string& example) {
  return text + "\nExample:\n  " + example + "\n\n" + kExitCodeHelp;
}

void AddTuneCommand(CLI::App* program) {
  CLI::App* const tune = program->add_subcommand("tune", "Make tuning files");
  tune->require_subcommand(1);
  tune->footer(TuneFooter("", "kelda tune eq ParametricEQ.txt -o personalized.ba"));
  AddTuneHrtfCommand(tune);
  AddTuneEqCommand(tune);
  AddTunePresetCommands(tune);
  AddTuneAppsCommand(tune);
  AddTuneBuildCommand(tune);
}

}  // namespace kelda::tools
