#include <android/log.h>

#include <CLI/CLI.hpp>
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
#include "tools/core/text_file.h"
#include "tools/framework/device_name.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/installation.h"
#include "tools/render/render_summary.h"
#include "tools/render/renderer.h"

namespace kelda::tools {
namespace {

struct RenderArguments {
  std::filesystem::path input;
  std::filesystem::path output;
  std::string mode = "music";
  std::string device = "wired";
  std::string wired_hrtf;
  std::string bluetooth_hrtf;
  std::string app;
  std::string app_flag = "0";
  std::string block = "960";
  std::optional<uint64_t> seed;
  std::filesystem::path tuning;
  std::vector<std::string> properties;
  std::string log_level = "warn";
  std::filesystem::path library;
  std::vector<std::pair<std::string, std::string>> changes;
  std::filesystem::path scenario;
  bool raw_timing = false;
  bool host = false;
  bool dump = false;
  bool replace = false;
  bool quiet = false;
};

int ParseLogLevel(const std::string& name) {
  constexpr std::pair<const char*, int> kLevels[] = {
      {"verbose", ANDROID_LOG_VERBOSE}, {"debug", ANDROID_LOG_DEBUG},
      {"info", ANDROID_LOG_INFO},       {"warn", ANDROID_LOG_WARN},
      {"error", ANDROID_LOG_ERROR},     {"silent", ANDROID_LOG_SILENT}};
  for (const auto& [known, priority] : kLevels) {
    if (name == known) {
      return priority;
    }
  }
  throw Failure(ExitCode::kUsage, "--log-level: unknown level " + Quoted(name) +
                                      " (verbose, debug, info, warn, error, silent)");
}

// Reads an option "--key value" as the setting "key=value".
Setting ParseOption(const std::string& key, const std::string& value) {
  try {
    return ParseSetting(key + "=" + value);
  } catch (const Failure& failure) {
    throw Failure(failure.code(), "--" + key + ": " + failure.what());
  }
}

// In the order in which a phone sends them: the output, the listener's choices, the application,
// the mode.
std::vector<Setting> InitialSettings(const RenderArguments& arguments) {
  std::vector<Setting> settings{ParseOption("device", arguments.device)};
  if (!arguments.wired_hrtf.empty()) {
    settings.push_back(ParseOption("wired-hrtf", arguments.wired_hrtf));
  }
  if (!arguments.bluetooth_hrtf.empty()) {
    settings.push_back(ParseOption("bluetooth-hrtf", arguments.bluetooth_hrtf));
  }
  if (!arguments.app.empty()) {
    settings.push_back(ParseOption("app", arguments.app + "&" + arguments.app_flag));
  }
  settings.push_back(ParseOption("mode", arguments.mode));
  return settings;
}

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
  job.settings = InitialSettings(arguments);
  job.timeline = Timeline(arguments);
  job.block = ParseBlockRange(arguments.block);
  job.raw_timing = arguments.raw_timing;
  job.host = arguments.host;
  job.dump = arguments.dump;
  static_cast<void>(AudioFormat(job.output));  // refuses a wrong ending before anything is loaded
  CheckReplacement(job.input, job.output, arguments.replace);
  SetProperty("vendor.kelda.effect=1");
  for (const std::string& property : arguments.properties) {
    SetProperty(property);
  }
  UseTuningDirectory(arguments.tuning);
  ShowLog(ParseLogLevel(arguments.log_level));
  if (job.block.random()) {
    job.seed = arguments.seed ? *arguments.seed : DrawSeed();
  }

  const EffectLibrary library(arguments.library.empty() ? DefaultEffectLibrary()
                                                        : arguments.library);
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
  option("--mode", arguments->mode, "MODE", "off, music, cinema or auto (music)");
  option("--device", arguments->device, "DEVICE",
         ShortDeviceNames() + ", AUDIO_DEVICE_OUT_... or a number (wired)");
  option("--wired-hrtf", arguments->wired_hrtf, "TYPE",
         "standard or personalized (as the tuning says)");
  option("--bluetooth-hrtf", arguments->bluetooth_hrtf, "TYPE", "The same for Bluetooth");
  CLI::Option* const app =
      option("--app", arguments->app, "PACKAGE", "The playing application, for mode auto");
  option("--app-flag", arguments->app_flag, "0|1", "1: cinema if the application is not listed (0)")
      ->needs(app);
  option("--block", arguments->block, "FRAMES",
         "Host block, 1 to 65536, or random[:MIN-MAX] (960)");
  option("--seed", arguments->seed, "NUMBER", "Seed of random blocks, to repeat their sequence");
  option("--tuning", arguments->tuning, "DIR",
         "Tuning files; else KELDA_DATA_DIR, else the installed ones");
  option("--property", arguments->properties, "NAME=VALUE",
         "Set a system property; may be repeated")
      ->allow_extra_args(false);
  option("--log-level", arguments->log_level, "LEVEL",
         "verbose, debug, info, warn, error or silent (warn)");
  option("--library", arguments->library, "FILE", "Effect library; else the installed one");
  option("--at", arguments->changes, "SECONDS KEY=VALUE",
         "Change a setting while the audio runs, at 150 or 2:30; may be repeated")
      ->allow_extra_args(false);
  option("--scenario", arguments->scenario, "FILE",
         "Lines of SECONDS KEY=VALUE, as for --at; # begins a comment");
  command->add_flag("--raw-timing", arguments->raw_timing,
                    "Keep the latency at the start and the tail at the end, as the host gets them");
  command->add_flag(
      "--host", arguments->host,
      "Change settings by a crossfade, as doors do that own their side of the effect");
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
