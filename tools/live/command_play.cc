#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/live/file_player.h"
#include "tools/live/live_command.h"

namespace kelda::tools {
namespace {

struct PlayArguments {
  LiveArguments live;
  std::vector<std::filesystem::path> files;
};

// "1:23"
std::string Minutes(int64_t frames) {
  constexpr int64_t kMinute = 60;
  const int64_t seconds = frames / kSampleRateHz;
  return Format("%d:%02d", static_cast<int>(seconds / kMinute),
                static_cast<int>(seconds % kMinute));
}

void Press(const KeyPress& key, FilePlayer* player) {
  constexpr double kLeapSeconds = 5;
  switch (key.key) {
    case Key::kLeft:
      return player->SeekBy(-kLeapSeconds);
    case Key::kRight:
      return player->SeekBy(kLeapSeconds);
    case Key::kUp:
      return player->Skip(-1);
    case Key::kDown:
      return player->Skip(1);
    case Key::kOther:
      if (key.character == ' ') {
        player->TogglePause();
      }
  }
}

std::string Status(const PlayPosition& now, std::size_t files) {
  std::string text = now.paused ? "|| " : "> ";
  if (files > 1) {
    text += Format("%zu/%zu ", now.file + 1, files);
  }
  text += Minutes(now.frame);
  if (now.total_frames) {
    text += "/" + Minutes(*now.total_frames);
  }
  return text + "  ";
}

void Run(const PlayArguments& arguments) {
  constexpr bool kKeepWarm = true;  // whoever presses a key listens
  LiveArguments live_arguments = arguments.live;
  LiveCompanion& companion = *live_arguments.companion;
  if (companion.wanted()) {
    live_arguments.setting.tuning = companion.Prepare(live_arguments);
  }
  LiveCommand live(live_arguments, kKeepWarm);
  FilePlayer player(&live.engine(), arguments.files);
  const std::unique_ptr<LiveRemote> remote =
      companion.wanted() ? companion.Begin(&live.engine(), &player, arguments.files) : nullptr;
  StreamOptions options;
  options.sink = false;
  options.output = arguments.live.output;
  options.title = arguments.files.front().filename().string();
  live.Run(&player, options,
           {.over = [&] { return player.position().over; },
            .press = [&](const KeyPress& key) { Press(key, &player); },
            .status = [&] { return Status(player.position(), arguments.files.size()); },
            .remote = remote.get()});
  if (player.failed() == arguments.files.size()) {
    throw Failure(ExitCode::kInput, "nothing could be played to its end");
  }
  if (player.failed() > 0) {
    throw Failure(ExitCode::kIncomplete, "warning: not everything could be played");
  }
}

}  // namespace

void AddPlayCommand(CLI::App* program, CompanionMaker make_companion) {
  CLI::App* const command = program->add_subcommand("play", "Play audio files through the effect");
  const auto arguments = std::make_shared<PlayArguments>();
  command->add_option("FILE", arguments->files, "Audio files, one after the other")
      ->required()
      ->type_name("");
  arguments->live.companion = make_companion();
  arguments->live.AddTo(command);
  command->footer(std::string("Plays on this machine's PipeWire, also from a terminal over ssh."
                              "\n\nKeys:\n"
                              "  space pause   left, right 5 seconds   up, down the file before, "
                              "the next\n") +
                  kLiveKeysHelp +
                  "\nExample:\n"
                  "  kelda play --b mode=cinema first.flac second.mp3\n\n" +
                  kExitCodeHelp);
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
