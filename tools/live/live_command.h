// What the commands that play live have in common.
#ifndef KELDA_TOOLS_LIVE_LIVE_COMMAND_H_
#define KELDA_TOOLS_LIVE_LIVE_COMMAND_H_

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/core/status_line.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/setting_options.h"
#include "tools/live/keyboard.h"
#include "tools/live/live_companion.h"
#include "tools/live/live_engine.h"
#include "tools/live/live_keys.h"
#include "tools/live/pipewire_connection.h"
#include "tools/live/pipewire_streams.h"
#include "tools/live/recording.h"
#include "tools/replay/turn_log.h"

namespace kelda::tools {

struct LiveArguments {
  SettingOptions setting;
  std::vector<std::string> b;
  std::string output;
  std::filesystem::path log;
  std::filesystem::path keep;
  bool replace = false;
  bool quiet = false;
  std::shared_ptr<LiveCompanion> companion;

  // --output, --b, --log, --keep, -y, -q, and those of SettingOptions and of the companion. This
  // object outlives the parsing.
  void AddTo(CLI::App* command);
};

// What one command has and the other has not.
struct LiveView {
  std::function<bool()> over = [] { return false; };
  std::function<void(const KeyPress&)> press = [](const KeyPress&) {};  // keys of nobody else
  std::function<std::string()> status = [] { return std::string(); };   // begins the status line
  LiveRemote* remote = nullptr;
};

// The engine of a command with its log, its recording, its keys and its status line.
class LiveCommand {
 public:
  // Throws Failure.
  LiveCommand(const LiveArguments& arguments, bool keep_warm);

  LiveEngine& engine() { return engine_; }

  // Plays `audio`, which lies over the engine, until it is over, or by the key q or a signal. Where
  // the output or the server vanishes it waits for it to come back. Throws Failure, and Interrupted
  // at last.
  void Run(LiveAudio* audio, const StreamOptions& options, const LiveView& view);

 private:
  bool Ends(const LiveView& view) const;
  void CheckOutput(const PipeWireConnection& connection) const;
  void Play(PipeWireConnection* connection, const PipeWireStreams& streams, const LiveView& view,
            Keyboard* keyboard, StatusLine* line);
  void NoteTarget(const std::string& target, const std::string& note);
  void Summarize();

  const LiveArguments& arguments_;
  const std::filesystem::path library_file_, tuning_;
  std::optional<TurnLog> log_;
  Tunings tunings_;
  const EffectLibrary library_;
  const std::vector<Setting> settings_;
  LiveEngine engine_;
  std::optional<Recording> recording_;
  LiveKeys keys_;
  bool played_ = false;  // there was a server
  bool quit_ = false;
  std::string target_;  // where it plays to; empty if nowhere
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_LIVE_COMMAND_H_
