// The keys that both live commands know, and what their status lines say in common.
#ifndef KELDA_TOOLS_LIVE_LIVE_KEYS_H_
#define KELDA_TOOLS_LIVE_LIVE_KEYS_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/framework/setting.h"
#include "tools/live/live_engine.h"

namespace kelda::tools {

// Two settings to compare: A is what the command began with, B the same with what `--b` says, or
// off. A key that changes the mode changes that of the side that is heard.
class LiveKeys {
 public:
  // `b`: texts "key=value", as --b takes them; also "tuning=DIR". Throws Failure (usage).
  LiveKeys(LiveEngine* engine, const std::vector<Setting>& settings,
           const std::filesystem::path& tuning, const std::vector<std::string>& b);

  // m, c, o, a: the mode; b: the other side; r: the tuning's files are others now. Returns whether
  // it was one of them. A tuning that cannot be had is a message.
  bool Press(char key);

  char side() const { return on_b_ ? 'B' : 'A'; }

 private:
  struct Side {
    std::vector<Setting> settings;  // each key once
    std::filesystem::path tuning;
  };

  Side& heard() { return on_b_ ? b_ : a_; }
  void ChangeSides();
  void LoadTuning();

  LiveEngine* const engine_;
  Side a_, b_;
  bool on_b_ = false;
};

inline constexpr const char* kLiveKeysHelp =
    "  m music   c cinema   o off   a auto   b the other of A and B   r read the tuning again   q "
    "quit\n";

// "A music, wired  -14.2 > -12.0 dB  1.3 %": side, what plays, peaks in and out, load; and what is
// wrong, if anything.
std::string LiveStatus(char side, const LiveState& state, const Peaks& peaks);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_LIVE_KEYS_H_
