// kelda tune build: a whole tuning directory from a project.
#include <memory>

#include "tools/core/failure.h"
#include "tools/core/standard_output.h"
#include "tools/core/status_line.h"
#include "tools/tune/command_tune.h"
#include "tools/tune/tuning_build.h"
#include "tools/tune/tuning_directory.h"
#include "tools/tune/tuning_project.h"

namespace kelda::tools {
namespace {

struct BuildArguments {
  std::filesystem::path project;
  std::filesystem::path output;
  bool show_template = false;
  bool quiet = false;
};

void Run(const BuildArguments& arguments) {
  if (arguments.show_template) {
    PrintToStandardOutput(ProjectTemplate());
    return;
  }
  if (arguments.project.empty() || arguments.output.empty()) {
    throw Failure(ExitCode::kUsage, "PROJECT.toml and -o DIR are required, or --template");
  }
  const TuningBuild build = BuildTuning(ReadTuningProject(arguments.project), ShowLines);
  WriteTuningDirectory(arguments.output, build.files);
  if (!arguments.quiet) {
    PrintToStandardOutput(arguments.output.string() + ": " + std::to_string(build.files.size()) +
                          " files\n" + build.report);
  }
}

}  // namespace

void AddTuneBuildCommand(CLI::App* tune) {
  CLI::App* const command =
      tune->add_subcommand("build", "A whole tuning directory from a project");
  const auto arguments = std::make_shared<BuildArguments>();
  command
      ->add_option("PROJECT.toml", arguments->project,
                   "File that names the ears, equalizers, presets and applications")
      ->type_name("");
  AddOutputOption(command, &arguments->output, "The directory");
  command->add_flag("--template", arguments->show_template,
                    "Print a commented project, and do nothing else");
  command->add_flag("--quiet", arguments->quiet, "Print no report");
  command->footer(TuneFooter(
      "The directory is written whole or not at all. An existing directory is replaced only if\n"
      "every file in it is as an earlier build left it.\n",
      "kelda tune build --template > project.toml\n  kelda tune build project.toml -o tuning"));
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
