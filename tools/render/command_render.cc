#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tools/audio/audio_sink.h"
#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/replacement.h"
#include "tools/core/standard_output.h"
#include "tools/core/status_line.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/setting_options.h"
#include "tools/render/render_summary.h"
#include "tools/render/renderer.h"
#include "tools/replay/turn_log.h"

namespace kelda::tools {
namespace {

struct RenderArguments {
  std::filesystem::path input;
  std::filesystem::path output;
  SettingOptions setting;
  std::string block = "960";
  std::optional<uint64_t> seed;
  std::filesystem::path replay;
  std::vector<std::pair<std::string, std::string>> changes;
  std::filesystem::path scenario;
  bool raw_timing = false;
  bool host = false;
  bool dump = false;
  bool replace = false;
  bool quiet = false;
};

std::vector<TimedSetting> Timeline(const RenderArguments& arguments) {
  std::vector<TimedSetting> changes;
  if (!arguments.scenario.empty()) {
    changes = ReadScenario(arguments.scenario);
  }
  for (const auto& [seconds, setting] : arguments.changes) {
    std::string origin = "--at ";
    origin.append(seconds).append(" ").append(setting);
    changes.push_back(ParseTimedSetting(seconds, setting, origin));
  }
  return InOrder(std::move(changes));
}

uint64_t DrawSeed() {
  const uint32_t seed = std::random_device()();
  ShowMessage("block sizes drawn with --seed " + std::to_string(seed));
  return seed;
}

void Run(const RenderArguments& arguments) {
  RenderJob job;
  job.input = arguments.input;
  job.output = arguments.output;
  if (!arguments.replay.empty()) {
    job.replay = ReadTurnLog(arguments.replay);
  } else {
    job.settings = arguments.setting.Settings();
  }
  job.timeline = Timeline(arguments);
  job.block = ParseBlockRange(arguments.block);
  job.raw_timing = arguments.raw_timing;
  job.host = arguments.host;
  job.dump = arguments.dump;
  static_cast<void>(AudioFormat(job.output));  // refuses a wrong ending before anything is loaded
  CheckReplacement(job.input, job.output, arguments.replace);
  const std::filesystem::path effect_library = arguments.setting.Prepare();
  std::optional<Tunings> tunings;
  if (!arguments.replay.empty() && arguments.setting.tuning.empty()) {
    job.tunings = &tunings.emplace(job.replay.tunings.front());
    std::for_each(job.replay.tunings.begin() + 1, job.replay.tunings.end(),
                  [&](const std::filesystem::path& tuning) { tunings->Add(tuning); });
  } else if (job.replay.tunings.size() > 1) {
    throw Failure(ExitCode::kUsage, "--tuning: the tuning changes in " + arguments.replay.string());
  }
  if (job.block.random()) {
    job.seed = arguments.seed ? *arguments.seed : DrawSeed();
  }

  const EffectLibrary library(effect_library);
  const RenderResult result = Render(library, job);
  PrintToStandardOutput(result.dump);
  for (const std::string& note : result.notes) {
    ShowMessage(job.input.string() + ": " + note);
  }
  for (const std::string& warning : RenderWarnings(job, result)) {
    ShowMessage("warning: " + warning);
  }
  if (!arguments.quiet) {
    ShowMessage(SummaryLine(job, result));
  }
  if (!result.input_fault.empty()) {
    throw Failure(ExitCode::kIncomplete, "warning: " + job.input.string() + ": " +
                                             result.input_fault +
                                             "; what was there is in the output");
  }
}

void AddOptions(CLI::App* command, RenderArguments* arguments) {
  command
      ->add_option("IN", arguments->input,
                   "Audio file of any rate; more than two channels are folded to stereo")
      ->required()
      ->type_name("");
  command->add_option("OUT", arguments->output, "Result: .wav (32-bit float) or .flac (24 bit)")
      ->required()
      ->type_name("");
  const auto option = [&](const char* name, auto& value, const char* form,
                          const std::string& help) {
    return command->add_option(name, value, help)->type_name(form);
  };
  arguments->setting.AddTo(command);
  option("--block", arguments->block, "FRAMES",
         "Host block, 1 to 65536, or random[:MIN-MAX] (960)");
  option("--seed", arguments->seed, "NUMBER", "Seed of random blocks, to repeat their sequence")
      ->check(CLI::Range(int64_t{0}, INT64_MAX).description(""));
  option("--at", arguments->changes, "SECONDS KEY=VALUE",
         "Change a setting while the audio runs, at 150 or 2:30; may be repeated")
      ->allow_extra_args(false);
  option("--scenario", arguments->scenario, "FILE",
         "Lines of SECONDS KEY=VALUE, as for --at; # begins a comment");
  command->add_flag("--raw-timing", arguments->raw_timing,
                    "Keep the latency at the start and the tail at the end, as the host gets them");
  CLI::Option* const host = command->add_flag(
      "--host", arguments->host,
      "Change settings by a crossfade, as doors do that own their side of the effect");
  CLI::Option* const replay =
      option("--replay", arguments->replay, "LOG",
             "With --host: make the changes that a log of kelda live tells, in place of settings");
  replay->needs(host);
  for (const char* const setting :
       {"--mode", "--device", "--wired-hrtf", "--bluetooth-hrtf", "--app", "--at", "--scenario"}) {
    replay->excludes(setting);
  }
  command->add_flag("-y,--yes", arguments->replace, kReplaceHelp);
  command->add_flag("-q,--quiet", arguments->quiet, "Do not sum up the result at the end");
  command->add_flag("--dump", arguments->dump, "Print the effect's report after the render");
}

}  // namespace

void AddRenderCommand(CLI::App* program) {
  CLI::App* const command =
      program->add_subcommand("render", "Run an audio file through the effect");
  const auto arguments = std::make_shared<RenderArguments>();
  AddOptions(command, arguments.get());
  command->footer(
      "The output is as long as the input (at 48 kHz) and in time with it: the latency at the\n"
      "start is taken off and the tail is fetched at the end. A change takes effect with the\n"
      "first host block that starts at its time or after it, as on a phone; with blocks of 960\n"
      "frames every multiple of 0.02 s is exact.\n\n"
      "Keys of --at and --scenario:\n" +
      SettingHelp() +
      "\nWith --property ro.debuggable=1 --property vendor.kelda.pcmdump=SECONDS the effect "
      "captures\n"
      "its output, in the tuning directory (see kelda capture).\n"
      "\nExample:\n"
      "  kelda render song.flac out.wav --mode music --device wired \\\n"
      "      --at 2.5 mode=cinema --at 5 device=bluetooth --dump\n\n" +
      kExitCodeHelp);
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
