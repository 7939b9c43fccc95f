// kelda tune upmix, cinema, level: parameter files from presets.
#include <memory>

#include "settings/tuning_directory.h"
#include "tools/core/failure.h"
#include "tools/core/output_file.h"
#include "tools/core/replacement.h"
#include "tools/core/standard_output.h"
#include "tools/presets/parameter_sets.h"
#include "tools/presets/preset_toml.h"
#include "tools/tune/command_tune.h"

namespace kelda::tools {
namespace {

struct PresetArguments {
  std::filesystem::path preset;
  std::filesystem::path output;
  bool show_template = false;
};

void Run(const ParameterSet& set, const PresetArguments& arguments) {
  if (arguments.show_template) {
    PrintToStandardOutput(PresetTemplate(set));
    return;
  }
  if (arguments.preset.empty() || arguments.output.empty()) {
    throw Failure(ExitCode::kUsage, "PRESET.toml and -o FILE are required, or --template");
  }
  CheckReplacement(arguments.preset, arguments.output, /*replace=*/true);
  WriteWholeFile(arguments.output, ReadPreset(arguments.preset, set));
}

void AddCommand(CLI::App* tune, const ParameterSet& set, const std::string& help,
                const kelda::TuningFile& file) {
  CLI::App* const command = tune->add_subcommand(set.name, help);
  const auto arguments = std::make_shared<PresetArguments>();
  command->add_option("PRESET.toml", arguments->preset, "File with the keys that --template shows")
      ->type_name("");
  AddOutputOption(command, &arguments->output, "The parameter file");
  command->add_flag("--template", arguments->show_template,
                    "Print a preset with every key, its range and default, and do nothing else");
  const std::string name = set.name;
  command->footer(TuneFooter("", "kelda tune " + name + " --template > my.toml\n  kelda tune " +
                                     name + " my.toml -o " + file.name));
  command->callback([&set, arguments] { Run(set, *arguments); });
}

}  // namespace

void AddTunePresetCommands(CLI::App* tune) {
  AddCommand(tune, MusicParameterSet(), "Music upmix parameters from a preset",
             tuning_file::kPersonalizedMusic);
  AddCommand(tune, CinemaParameterSet(), "Cinema upmix parameters from a preset",
             tuning_file::kPersonalizedCinema);
  AddCommand(tune, LevelParameterSet(), "Level control parameters from a preset",
             tuning_file::kMusicLevel);
}

}  // namespace kelda::tools
