// The audio file that a command writes: 48 kHz, stereo by default, WAV or FLAC.
#ifndef KELDA_TOOLS_AUDIO_AUDIO_SINK_H_
#define KELDA_TOOLS_AUDIO_AUDIO_SINK_H_

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "tools/core/output_file.h"
#include "tools/framework/effect_session.h"

namespace kelda::tools {

// libsndfile's format for a name: ".wav" is 32-bit float, ".flac" 24 bit. Throws
// Failure (usage) for another ending.
int AudioFormat(const std::filesystem::path& path);

class AudioSink {
 public:
  // A WAV file beyond its format's limit of 4 GiB becomes an RF64 file. `expected_frames` decides
  // that; if it is empty, the number of frames that are written. Throws Failure (usage, output).
  AudioSink(const std::filesystem::path& path, std::optional<int64_t> expected_frames,
            std::size_t channels = kChannels);

  // Writes interleaved frames. Throws Failure (output), also if the disk is full. FLAC clips
  // samples beyond full scale.
  void Write(const float* interleaved, std::size_t frames);

  // Completes the file and gives it its name. Throws Failure (output).
  void Finish();

  // The same after a Write that failed, with what was written before.
  void FinishShort();

  // Samples that FLAC had to clip.
  int64_t clipped_samples() const { return clipped_samples_; }

 private:
  struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
  };

  [[noreturn]] void Fail();

  // The file as libsndfile reads and writes it. Keeps the first error of the system.
  struct Stream {
    int descriptor;
    int error = 0;
  };
  static SF_VIRTUAL_IO StreamFunctions();

  std::size_t channels_;
  int format_;
  OutputFile output_;
  Stream stream_;
  std::unique_ptr<SNDFILE, SndfileCloser> file_;
  int64_t clipped_samples_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_AUDIO_SINK_H_
