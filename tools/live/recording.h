#ifndef KELDA_TOOLS_LIVE_RECORDING_H_
#define KELDA_TOOLS_LIVE_RECORDING_H_

#include <cstddef>
#include <filesystem>
#include <vector>

#include "tools/audio/audio_sink.h"
#include "tools/live/live_engine.h"

namespace kelda::tools {

inline constexpr const char *kKeptIn = "in.wav", *kKeptOut = "out.wav";

// What went into a live engine and what came out, frame for frame, as DIR/in.wav and DIR/out.wav in
// 32-bit float. Used by one thread.
class Recording {
 public:
  // Before the first block. `engine` outlives it. Makes the directory. Throws Failure (output).
  Recording(LiveEngine* engine, const std::filesystem::path& directory);

  // Writes what has come. Called a few times a second. A disk that is full ends the recording, with
  // a warning: the files have what was written until then, up to 4096 frames apart. Throws Failure
  // (output) if they cannot even be completed.
  void Poll();

  // Completes the files, after the last block. Warns of frames that were lost. Throws Failure
  // (output); there are no files then.
  void Finish();

 private:
  void WriteWhatCame();

  LiveTap& tap_;
  AudioSink in_, out_;
  bool ended_ = false;
  std::vector<float> frames_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_RECORDING_H_
