#ifndef KELDA_TOOLS_AUDIO_MP3_STREAM_H_
#define KELDA_TOOLS_AUDIO_MP3_STREAM_H_

#include <mpg123.h>

#include <cstddef>

#include "tools/audio/sound_stream.h"

namespace kelda::tools {

// MPEG audio, read by libmpg123 directly. If a file does not state its length, libmpg123 estimates
// it, and libsndfile would stop reading at the estimate. The encoder's delay and padding are left
// out if the file states them.
class Mp3Stream : public SoundStream {
 public:
  // Throws Failure (input).
  explicit Mp3Stream(const std::filesystem::path& path);

  std::optional<int64_t> frames() const override { return stated_frames_; }
  std::size_t Read(float* interleaved, std::size_t frames) override;
  bool Seek(int64_t frame) override;
  std::string Fault() override;

 private:
  struct Deleter {
    void operator()(mpg123_handle* handle) const { mpg123_delete(handle); }
  };
  std::unique_ptr<mpg123_handle, Deleter> handle_;
  std::optional<int64_t> stated_frames_;
  int64_t frames_read_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_MP3_STREAM_H_
