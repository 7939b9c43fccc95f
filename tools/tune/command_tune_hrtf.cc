// kelda tune hrtf: an HRIR set from measured ears.
#include <memory>

#include "tools/core/failure.h"
#include "tools/core/output_file.h"
#include "tools/core/replacement.h"
#include "tools/core/standard_output.h"
#include "tools/ears/tuned_hrirs.h"
#include "tools/presets/parameter_sets.h"
#include "tools/presets/preset_toml.h"
#include "tools/tune/command_tune.h"

namespace kelda::tools {
namespace {

struct HrtfArguments {
  std::filesystem::path sofa;
  std::filesystem::path output;
  std::filesystem::path room;
  HrirOptions options;
  bool room_template = false;
};

void Run(HrtfArguments arguments) {
  if (arguments.room_template) {
    PrintToStandardOutput(PresetTemplate(RoomParameterSet()));
    return;
  }
  if (arguments.sofa.empty() || arguments.output.empty()) {
    throw Failure(ExitCode::kUsage, "EARS.sofa and -o FILE are required, or --room-template");
  }
  CheckReplacement(arguments.sofa, arguments.output, /*replace=*/true);
  CheckReplacement(arguments.room, arguments.output, /*replace=*/true);
  arguments.options.room = ReadRoom(arguments.room);
  const TunedHrirs tuned = TuneHrirs(arguments.sofa, arguments.options);
  WriteWholeFile(arguments.output, tuned.file);
  PrintToStandardOutput(tuned.report);
}

}  // namespace

void AddTuneHrtfCommand(CLI::App* tune) {
  CLI::App* const command = tune->add_subcommand("hrtf", "An HRIR set (.hki) from measured ears");
  const auto arguments = std::make_shared<HrtfArguments>();
  HrirOptions& options = arguments->options;
  command
      ->add_option("EARS.sofa", arguments->sofa,
                   "SOFA file (AES69) of the conventions SimpleFreeFieldHRIR")
      ->type_name("");
  AddOutputOption(command, &arguments->output, "The HRIR set");
  command
      ->add_option("--room", arguments->room, "Preset of the room; if not given, the default room")
      ->type_name("ROOM.toml");
  command->add_option("--taps", options.taps, "Length of each response, 64 to 1024 (256)")
      ->type_name("COUNT")
      ->check(CLI::Range(kMinHrirTaps, kMaxFreeFieldTaps));
  command->add_flag("--symmetric", options.symmetric,
                    "Make the left and the right half of the head alike");
  command
      ->add_option("--less-colour", options.colour_removed,
                   "Share of the colour common to both ears to remove, 0 to 1 (0); about 0.9 for\n"
                   "ears that are not the listener's own")
      ->type_name("SHARE")
      ->check(CLI::Range(0.0, 1.0));
  command
      ->add_option("--source", options.source, "Who measured what; if not given, as the file says")
      ->type_name("TEXT");
  command
      ->add_option("--licence", options.licence,
                   "Licence of the measurement; if not given, as the file says")
      ->type_name("TEXT");
  command->add_flag("--room-template", arguments->room_template,
                    "Print a preset of the room with every key, its range and default, and do\n"
                    "nothing else");
  command->footer(
      TuneFooter("Prints an acceptance report. Ears that cannot be used are refused, with the "
                 "reason and the limit.\n",
                 "kelda tune hrtf my-ears.sofa -o personalized.hki"));
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
