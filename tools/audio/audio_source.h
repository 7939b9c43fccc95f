// An audio file, read as 48 kHz stereo.
#ifndef KELDA_TOOLS_AUDIO_SOURCE_H_
#define KELDA_TOOLS_AUDIO_SOURCE_H_

#include <samplerate.h>
#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace kelda::tools {

// Any file that libsndfile reads, streamed. A mono file is played on both
// channels; other rates are converted by libsamplerate's best converter.
class AudioSource {
 public:
  // Throws Failure (input): unreadable, more than two channels, or a rate that
  // is more than a factor of 256 away from 48 kHz.
  explicit AudioSource(const std::filesystem::path& path);

  // The length at 48 kHz; empty if the file does not say.
  std::optional<int64_t> frames() const { return frames_; }

  // Reads up to `frames` interleaved stereo frames at 48 kHz and returns how
  // many; fewer only at the end. Throws Failure (input) if the file is damaged.
  size_t Read(float* stereo, size_t frames);

 private:
  struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
  };
  struct ConverterCloser {
    void operator()(SRC_STATE* state) const { src_delete(state); }
  };

  size_t ReadAtFileRate(float* stereo, size_t frames);
  size_t ReadConverted(float* stereo, size_t frames);
  static long FeedConverter(void* source, float** data);

  std::filesystem::path path_;
  SF_INFO info_{};
  std::unique_ptr<SNDFILE, SndfileCloser> file_;
  int64_t file_frames_read_ = 0;
  std::optional<int64_t> frames_;
  std::vector<float> mono_;
  // Used if the file's rate is not 48 kHz.
  std::unique_ptr<SRC_STATE, ConverterCloser> converter_;
  std::vector<float> converter_input_;
  std::exception_ptr converter_failure_;
  int64_t converted_frames_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_SOURCE_H_
