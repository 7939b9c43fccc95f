// kelda tune eq: a headphone equalizer from its text.
#include <memory>

#include "tools/core/output_file.h"
#include "tools/core/replacement.h"
#include "tools/core/standard_output.h"
#include "tools/core/status_line.h"
#include "tools/equalizer/equalizer_design.h"
#include "tools/equalizer/equalizer_text.h"
#include "tools/tune/command_tune.h"
#include "upmix-lib/equalizer/equalizer_file.h"

namespace kelda::tools {
namespace {

struct EqualizerArguments {
  std::filesystem::path preset;
  std::filesystem::path output;
};

void Run(const EqualizerArguments& arguments) {
  CheckReplacement(arguments.preset, arguments.output, /*replace=*/true);
  const EqualizerText text = ReadEqualizerText(arguments.preset);
  if (!text.warnings.empty()) {
    ShowLines(text.warnings);
  }
  const EqualizerDesign design = DesignEqualizer(text, arguments.preset.string());
  if (const std::string warning = ClippingWarning(design, arguments.preset.string());
      !warning.empty()) {
    ShowLines(warning);
  }
  WriteWholeFile(arguments.output, upmix_lib::BuildEqualizerFile(design.tuning));
  PrintToStandardOutput(DescribeEqualizer(design));
}

}  // namespace

void AddTuneEqCommand(CLI::App* tune) {
  CLI::App* const command = tune->add_subcommand("eq", "A headphone equalizer (.ba) from a text");
  const auto arguments = std::make_shared<EqualizerArguments>();
  command
      ->add_option("PRESET.txt", arguments->preset,
                   "AutoEq's ParametricEQ.txt or GraphicEQ.txt, or an Equalizer APO text")
      ->required()
      ->type_name("");
  AddOutputOption(command, &arguments->output, "The equalizer file")->required();
  command->footer(TuneFooter(
      "Known lines: Preamp, Filter (PK, LS, LSC, HS, HSC, LP, HP, BP, NO; Q or BW Oct) and\n"
      "GraphicEQ. Other lines are skipped with a warning. Channel, Device, Include, If, "
      "Convolution\n"
      "and the like are refused, because the other lines would mean something else without them.\n"
      "In a text with decimal commas, 10.000 Hz means ten thousand hertz.\n"
      "Filters become bands; a GraphicEQ, or more than 64 filters, becomes a minimum-phase FIR.\n",
      "kelda tune eq 'HD 600 ParametricEQ.txt' -o personalized.ba"));
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
