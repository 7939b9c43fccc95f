// An audio file, read as 48 kHz stereo.
#ifndef KELDA_TOOLS_AUDIO_AUDIO_SOURCE_H_
#define KELDA_TOOLS_AUDIO_AUDIO_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/audio/ogg_links.h"
#include "tools/audio/rate_converter.h"
#include "tools/audio/sound_stream.h"
#include "tools/audio/stereo_fold.h"

namespace kelda::tools {

// Any file that OpenSound reads, up to its real end: the length that a file states serves only to
// show the progress. The links of a chained Ogg file are read one after the other. Samples that are
// NaN or infinite count as 0.
class AudioSource {
 public:
  // Throws Failure (input): unreadable, channels without a known place, or a rate that is more
  // than a factor of 256 away from 48 kHz.
  explicit AudioSource(const std::filesystem::path& path);

  // The length at 48 kHz that the file states; empty if it does not.
  std::optional<int64_t> stated_frames() const { return stated_frames_; }

  // Before the first Read: leaves out the first `frames` at 48 kHz, to the nearest frame of the
  // file. Fast where the format allows it. Throws Interrupted.
  void Skip(int64_t frames);

  // Reads up to `frames` interleaved stereo frames at 48 kHz and returns how many; fewer only at
  // the end. Throws Interrupted.
  std::size_t Read(float* stereo, std::size_t frames);

  // Whether everything has been read.
  bool AtEnd();

  // What was done to the file's channels, a sentence each, for messages.
  const std::vector<std::string>& notes() const { return notes_; }
  // At the end: why the sound ended early, for a message. Empty if it did not.
  const std::string& fault() const { return fault_; }
  // How many samples were NaN or infinite.
  int64_t not_finite() const { return not_finite_; }

 private:
  // Decodes and converts the next piece; at the end of a stream continues with the next link.
  void Refill();
  void OpenNext();
  void Use(std::unique_ptr<SoundStream> stream);

  std::filesystem::path path_;
  std::vector<OggLink> links_;  // of a chained Ogg file
  std::size_t next_link_ = 0;
  std::unique_ptr<SoundStream> stream_;  // empty at the end
  std::optional<StereoFold> fold_;
  std::optional<RateConverter> converter_;  // if the rate is not 48 kHz
  std::optional<int64_t> stated_frames_;
  std::vector<float> decoded_;
  std::vector<float> folded_;
  std::vector<float> ready_;    // stereo at 48 kHz
  std::size_t next_ready_ = 0;  // the first sample in it that was not read
  std::vector<std::string> notes_;
  std::string fault_;
  int64_t not_finite_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_AUDIO_SOURCE_H_
