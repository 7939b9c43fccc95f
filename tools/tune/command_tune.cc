#include "tools/tune/command_tune.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/output_file.h"

namespace kelda::tools {

CLI::Option* AddOutputOption(CLI::App* command, std::filesystem::path* output,
                             const std::string& help) {
  return command->add_option("-o,--output", *output, help)->type_name("");
}

std::string TuneFooter(const std::string& text, const std::string& example) {
  return text + "\nExample:\n  " + example + "\n\n" + kExitCodeHelp;
}

void WriteWholeFile(const std::filesystem::path& path, std::span<const std::byte> bytes) {
  OutputFile file(path);
  while (!bytes.empty()) {
    const ssize_t count = write(file.descriptor(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      throw Failure(ExitCode::kOutput,
                    path.string() + ": cannot be written: " + std::strerror(errno));
    }
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  file.Commit();
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
