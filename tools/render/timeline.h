// Changes of settings while the audio runs.
//
// A change takes effect with the first host block that starts at its time or
// after it; blocks are never split for it. That is what a phone does: commands
// come between process calls, and a block of another size would change the effect's own buffering.
// It would add a pause, and a block of exactly one period would even take another path through the
// effect. With the default block of 960 frames every multiple of 20 ms is exact.
#ifndef KELDA_TOOLS_RENDER_TIMELINE_H_
#define KELDA_TOOLS_RENDER_TIMELINE_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tools/framework/setting.h"

namespace kelda::tools {

struct TimedSetting {
  int64_t frame;  // of the input at 48 kHz
  Setting setting;
  std::string origin;  // where it was written, for messages
};

// Reads one change; `time` is seconds, or minutes:seconds, or hours:minutes:seconds,
// up to 1e7 seconds. Throws Failure (usage) with the origin, the value and the range.
TimedSetting ParseTimedSetting(std::string_view time, std::string_view setting,
                               const std::string& origin);

// Reads a scenario file of at most 16 MiB: lines of "TIME key=value"; blank lines and
// what follows a '#' are skipped. Throws Failure (usage) with every line that is wrong.
std::vector<TimedSetting> ReadScenario(const std::filesystem::path& file);

// The changes in the order of their times. Those at the same time stay in the given order.
std::vector<TimedSetting> InOrder(std::vector<TimedSetting> changes);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_RENDER_TIMELINE_H_
