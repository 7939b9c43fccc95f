#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/live/default_sink.h"
#include "tools/live/live_command.h"

namespace kelda::tools {
namespace {

struct SinkArguments {
  LiveArguments live;
  bool is_default = false;
};

void Run(const SinkArguments& arguments) {
  std::optional<DefaultSink> default_sink;  // before any thread
  StreamOptions options;
  options.output = arguments.live.output;
  if (arguments.is_default) {
    default_sink.emplace(kSinkName);
    if (options.output.empty()) {
      options.output = default_sink->before();
    }
  }
  LiveArguments live_arguments = arguments.live;
  LiveCompanion& companion = *live_arguments.companion;
  if (companion.wanted()) {
    live_arguments.setting.tuning = companion.Prepare(live_arguments);
  }
  LiveCommand live(live_arguments, companion.wanted());
  LiveView view;
  std::unique_ptr<LiveRemote> remote;
  if (companion.wanted()) {
    remote = companion.Begin(&live.engine(), nullptr, {});
    view.remote = remote.get();
  }
  live.Run(&live.engine(), options, view);
}

}  // namespace

void AddLiveCommand(CLI::App* program, CompanionMaker make_companion) {
  CLI::App* const command =
      program->add_subcommand("live", "A sink through which everything plays that you choose");
  const auto arguments = std::make_shared<SinkArguments>();
  arguments->live.companion = make_companion();
  arguments->live.AddTo(command);
  command->add_flag("--default", arguments->is_default,
                    "The sink is the desktop's default until the program ends");
  command->footer(
      std::string("Offers the PipeWire sink \"Kelda Upmix\" and plays what it gets through the "
                  "effect.\n\nKeys, in a terminal:\n") +
      kLiveKeysHelp +
      "\nExample:\n"
      "  kelda live --default --mode music --b mode=cinema\n"
      "  kelda live --cockpit --project project.toml\n"
      "  kelda live --log heard.log --keep heard\n"
      "  kelda render --host --replay heard.log heard/in.wav again.wav --raw-timing\n\n" +
      kExitCodeHelp);
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
