// A sound file as it is: decoded, at its own rate and with its own channels.
#ifndef KELDA_TOOLS_AUDIO_SOUND_STREAM_H_
#define KELDA_TOOLS_AUDIO_SOUND_STREAM_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelda::tools {

// Where a channel's loudspeaker stands. kOther: a place that the fold to stereo has no rule for.
enum class ChannelPlace {
  kLeft,
  kRight,
  kCentre,
  kLfe,
  kBackLeft,
  kBackRight,
  kBackCentre,
  kSideLeft,
  kSideRight,
  kOther,
};

struct SoundFormat {
  int rate_hz = 0;
  // One per channel, in the order of the samples; empty if neither the file nor a convention
  // says where they belong.
  std::vector<ChannelPlace> places;
  std::size_t channels = 0;
};

// The usual places for a file that states none: of mono, stereo, 5.1 and 7.1 (in the order of WAV
// and FLAC); empty for another number of channels.
std::vector<ChannelPlace> UsualPlaces(std::size_t channels);

class SoundStream {
 public:
  virtual ~SoundStream() = default;

  const SoundFormat& format() const { return format_; }

  // The frames that the file says it holds; empty if it does not say, or only by a guess.
  virtual std::optional<int64_t> frames() const { return std::nullopt; }

  // Reads up to `frames` interleaved frames and returns how many; fewer only at the end.
  // Throws Interrupted.
  virtual std::size_t Read(float* interleaved, std::size_t frames) = 0;

  // Before the first Read: goes on at `frame`. Returns false, with nothing changed, if the format
  // has no way to but reading.
  virtual bool Seek([[maybe_unused]] int64_t frame) { return false; }

  // After the end: why the sound ended early, for a message. Empty if it did not.
  virtual std::string Fault() = 0;

 protected:
  SoundFormat format_;
};

// "0:09.983"
std::string SoundTime(int64_t frames, int rate_hz);

// "it ends after 0:09.983 of 0:20.000"
std::string EndedEarly(int64_t frames, int64_t expected_frames, int rate_hz);

// Opens a file by libsndfile or libmpg123, and only if neither can read it by ffmpeg in a child
// process. Throws Failure (input) with the reason.
std::unique_ptr<SoundStream> OpenSound(const std::filesystem::path& path);

// Whether `path` is an MP3 file by its first bytes.
bool LooksLikeMp3(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_SOUND_STREAM_H_
