// kelda: the workstation's program around the effect library.
#include <android/log.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/file_problems.h"
#include "tools/core/interruption.h"
#include "tools/core/standard_output.h"
#include "tools/core/status_line.h"
#include "tools/core/usage_message.h"

namespace kelda::tools {
namespace {

// The arguments in the order in which CLI11 takes them, the last first. "help COMMAND" becomes
// "COMMAND --help".
std::vector<std::string> Arguments(int argc, char** argv) {
  std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  if (!arguments.empty() && arguments.front() == "help") {
    arguments.erase(arguments.begin());
    arguments.emplace_back("--help");
  }
  std::reverse(arguments.begin(), arguments.end());
  return arguments;
}

int Run(int argc, char** argv) {
  CLI::App program("Kelda Upmix on a workstation.", "kelda");
  program.require_subcommand(1);
  program.set_version_flag("-V,--version", KELDA_VERSION);
  program.footer(std::string("kelda help COMMAND and kelda COMMAND --help say more.\n\n"
                             "Example:\n  kelda render song.flac out.wav\n\n") +
                 kExitCodeHelp);
  AddRenderCommand(&program);
#ifdef KELDA_LIVE
  AddLiveCommand(&program, MakeCockpit);
  AddPlayCommand(&program, MakeCockpit);
#endif
  AddDoctorCommand(&program);
  AddTuneCommand(&program);
  AddCaptureCommand(&program);
  AddInspectCommand(&program);
  AddReportCommand(&program);
  try {
    program.parse(Arguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0 || NamesUnknownCommand(program)) {
      throw Failure(ExitCode::kUsage, UsageMessage(program, error));
    }
    std::ostringstream answer;  // to --help, --version
    program.exit(error, answer);
    PrintToStandardOutput(answer.str());
  }
  return static_cast<int>(ExitCode::kSuccess);
}

}  // namespace
}  // namespace kelda::tools

int main(int argc, char** argv) {
  using kelda::tools::ExitCode;
  try {
    kelda::tools::InstallSignalHandlers();
    kelda::tools::ShowLog(ANDROID_LOG_WARN);
    return kelda::tools::Run(argc, argv);
  } catch (const kelda::tools::Interrupted& interrupted) {
    return interrupted.exit_code();
  } catch (const kelda::tools::FileFailure& failure) {
    kelda::tools::ShowLines(failure.what());
    return static_cast<int>(failure.code());
  } catch (const kelda::tools::Failure& failure) {
    kelda::tools::ShowMessage(failure.what());
    return static_cast<int>(failure.code());
  } catch (const std::exception& error) {
    kelda::tools::ShowMessage(error.what());
    return static_cast<int>(ExitCode::kUnexpected);
  }
}
