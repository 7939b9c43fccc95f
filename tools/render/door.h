// The two ways into the effect: its record, as the framework uses it, and the host over it that
// changes settings without a click.
#ifndef KELDA_TOOLS_RENDER_DOOR_H_
#define KELDA_TOOLS_RENDER_DOOR_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"
#include "tools/replay/tunings.h"
#include "tools/replay/turn_log.h"

namespace kelda::tools {

// Operations throw Failure (refused).
class Door {
 public:
  virtual ~Door() = default;

  virtual void Apply(const Setting& setting) = 0;
  virtual void Enable() = 0;
  virtual void Disable() = 0;
  virtual bool enabled() const = 0;

  // Processes `frames` interleaved stereo frames in place. Returns the number of the input frame
  // that is delivered in each, but for the processors' latency, or FrameTracker::kSilence; valid
  // until the next call.
  virtual const std::vector<int64_t>& Process(float* interleaved, std::size_t frames) = 0;

  // That latency, in frames, under the settings that a render begins with.
  virtual int64_t LatencyFrames(const std::vector<Setting>& settings) const = 0;

  // The effect's report.
  virtual std::string Dump() = 0;
};

// `library` outlives it. A host that is given a run makes its changes, and takes no settings; with
// `tunings`, which outlive it, those of the tuning, too.
std::unique_ptr<Door> OpenDoor(const EffectLibrary& library, bool host,
                               const LoggedRun& replay = {}, Tunings* tunings = nullptr);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_RENDER_DOOR_H_
