// kelda: the workstation's program around the effect library.
#include <android/log.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <string>

#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/file_problems.h"
#include "tools/core/interruption.h"
#include "tools/core/status_line.h"

namespace kelda::tools {
namespace {

int Run(int argc, char** argv) {
  CLI::App program("Kelda Upmix on a workstation.", "kelda");
  program.require_subcommand(1);
  program.set_version_flag("--version", KELDA_VERSION);
  program.footer(std::string("Example:\n  kelda render song.flac out.wav\n\n") + kExitCodeHelp);
  AddRenderCommand(&program);
  AddDoctorCommand(&program);
  AddTuneCommand(&program);
  AddCaptureCommand(&program);
  AddInspectCommand(&program);
  AddReportCommand(&program);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool asked = error.get_exit_code() == 0;  // --help, --version
    program.exit(error);
    return static_cast<int>(asked ? ExitCode::kSuccess : ExitCode::kUsage);
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
