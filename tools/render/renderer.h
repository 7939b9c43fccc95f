// Runs an audio file through the effect.
//
//   AudioSource --> host blocks --> Door --> Realigner --> AudioSink
//                                    tells the input frame of each delivered frame
#ifndef KELDA_TOOLS_RENDER_RENDERER_H_
#define KELDA_TOOLS_RENDER_RENDERER_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/audio/loudness_meter.h"
#include "tools/framework/block_sizes.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"
#include "tools/render/stage_watch.h"
#include "tools/render/timeline.h"
#include "tools/replay/tunings.h"
#include "tools/replay/turn_log.h"

namespace kelda::tools {

struct RenderJob {
  std::filesystem::path input;
  std::filesystem::path output;
  LoggedRun replay;                    // of another run, with `host`; then nothing is set
  std::vector<Setting> settings;       // before the audio starts, in order
  std::vector<TimedSetting> timeline;  // in order of time
  BlockRange block{960, 960};
  uint64_t seed = 0;
  // False: the output is as long as the input and in time with it; the latency that the processors
  // have at the start is cut off. True: the output is every block that the host gets, until the
  // last frame of the input has come out. That includes the silence while the effect gathers its
  // first periods.
  bool raw_timing = false;
  Tunings* tunings = nullptr;  // of `replay`
  bool host = false;           // through the host that changes settings without a click
  bool dump = false;           // ask for the effect's report at the end
};

struct RenderResult {
  int64_t frames = 0;  // of the input at 48 kHz
  double seconds = 0;  // that the render took
  Levels input;
  Levels output;
  std::vector<StagesFrom> history;  // what ran, from frame 0 on
  std::vector<std::string> notes;   // what was done to the input's channels
  std::string input_fault;          // why the input ended early; empty if it did not
  int64_t clipped_samples = 0;
  std::vector<TimedSetting> unreached;  // changes after the end of the input
  std::string dump;                     // the effect's report, if asked for
};

// Renders `job`. Throws Failure or Interrupted; there is no output file then.
RenderResult Render(const EffectLibrary& library, const RenderJob& job);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_RENDER_RENDERER_H_
