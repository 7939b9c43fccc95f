// What may accompany a command that plays live, and set it: a page in a browser.
#ifndef KELDA_TOOLS_LIVE_LIVE_COMPANION_H_
#define KELDA_TOOLS_LIVE_LIVE_COMPANION_H_

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/live/file_player.h"
#include "tools/live/live_engine.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the name is the library's
class App;
}

namespace kelda::tools {

struct LiveArguments;

// While it exists it sets the engine, in place of the command's own keys.
class LiveRemote {
 public:
  virtual ~LiveRemote() = default;

  // m, c, o, a: the mode; b: the other side. Returns whether it was one of them.
  virtual bool Press(char key) = 0;
  // What the status line says, in place of LiveStatus.
  virtual std::string Status(const LiveState& state, const Peaks& peaks) const = 0;
  // Where the sound goes; empty if nowhere.
  virtual void ShowOutput(const std::string& name) = 0;
};

class LiveCompanion {
 public:
  virtual ~LiveCompanion() = default;

  // Its options. This object outlives the parsing.
  virtual void AddTo(CLI::App* command) = 0;
  // Whether they ask for it.
  virtual bool wanted() const = 0;
  // Before the effect library is loaded: makes the tuning directory that is heard, and returns it.
  // Throws Failure.
  virtual std::filesystem::path Prepare(const LiveArguments& arguments) = 0;
  // Before the first block. `player` plays `files`, or is null; it and the engine outlive the
  // remote. Throws Failure.
  virtual std::unique_ptr<LiveRemote> Begin(LiveEngine* engine, FilePlayer* player,
                                            const std::vector<std::filesystem::path>& files) = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_LIVE_COMPANION_H_
