#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/standard_output.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/installation.h"
#include "tools/framework/setting.h"
#include "tools/inspect/inspected_directory.h"
#include "tools/inspect/inspected_file.h"
#include "tools/inspect/inspection_text.h"
#include "tools/inspect/tuning_verdict.h"

namespace kelda::tools {
namespace {

struct InspectArguments {
  std::filesystem::path path;
  std::filesystem::path library;
  bool json = false;
};

void InspectOne(const InspectArguments& arguments) {
  const InspectedFile file = InspectFile(arguments.path);
  if (!file.problem.empty()) {
    throw Failure(ExitCode::kInput, arguments.path.string() + ": " + file.problem);
  }
  if (arguments.json) {
    Json json{{"file", arguments.path.string()}, {"kind", file.kind}};
    json.update(file.json);
    PrintToStandardOutput(ToText(json));
  } else {
    PrintToStandardOutput(arguments.path.string() + ": " + file.text);
  }
}

void InspectAll(const InspectArguments& arguments) {
  SetProperty("vendor.kelda.effect=1");
  const std::filesystem::path tuning = UseTuningDirectory(arguments.path);
  const EffectLibrary library(arguments.library.empty() ? DefaultEffectLibrary()
                                                        : arguments.library);
  const InspectedDirectory directory = InspectDirectory(tuning, library);
  PrintToStandardOutput(arguments.json ? ToText(DirectoryJson(directory))
                                       : FormatDirectory(directory));
  if (const std::string problems = Problems(directory); !problems.empty()) {
    throw Failure(ExitCode::kInput, problems);
  }
}

void Run(const InspectArguments& arguments) {
  std::error_code error;
  if (std::filesystem::is_directory(arguments.path, error)) {
    InspectAll(arguments);
  } else {
    InspectOne(arguments);
  }
}

}  // namespace

void AddInspectCommand(CLI::App* program) {
  CLI::App* const command =
      program->add_subcommand("inspect", "Show what tuning files hold and what the engine does");
  const auto arguments = std::make_shared<InspectArguments>();
  command
      ->add_option("FILE|DIR", arguments->path, "A tuning file of any kind, or a directory of them")
      ->required()
      ->type_name("");
  command->add_option("--library", arguments->library, "Effect library; else the installed one")
      ->type_name("FILE");
  command->add_flag("--json", arguments->json, "Print JSON, for scripts");
  command->footer(
      "A file is shown in readable form after its checksum and every value in it were checked; an\n"
      "asterisk marks values that are not the default. For a directory you see which files\n"
      "are there or missing, and which stages run with which files for every device, HRTF, mode\n"
      "and listed application, as the effect library itself reports them.\n\n"
      "Examples:\n"
      "  kelda inspect upmix.music.hps.bin\n"
      "  kelda inspect --json /data/vendor/kelda\n\n" +
      std::string(kExitCodeHelp) +
      "  A faulty file, or a stage that the tuning wants and that cannot load, is 3.\n");
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
