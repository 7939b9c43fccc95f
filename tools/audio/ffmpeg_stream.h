#ifndef KELDA_TOOLS_AUDIO_FFMPEG_STREAM_H_
#define KELDA_TOOLS_AUDIO_FFMPEG_STREAM_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdio>

#include "tools/audio/sound_stream.h"

namespace kelda::tools {

// The first audio stream of a file, decoded by the program ffmpeg in a child process, without a
// shell. ffmpeg neither resamples nor mixes here, and opens only files, no network addresses.
class FfmpegStream : public SoundStream {
 public:
  // Returns nothing if ffmpeg is not installed. Throws Failure (input) with the message of ffmpeg
  // if it finds no sound, and Interrupted.
  static std::unique_ptr<FfmpegStream> Open(const std::filesystem::path& path);
  // Ends ffmpeg if it still runs.
  ~FfmpegStream() override;
  FfmpegStream(const FfmpegStream&) = delete;
  FfmpegStream& operator=(const FfmpegStream&) = delete;

  std::size_t Read(float* interleaved, std::size_t frames) override;
  std::string Fault() override;

 private:
  struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  FfmpegStream() = default;
  bool Start(const std::filesystem::path& path);
  bool MoreComes();  // waits for bytes of sound_ or its end
  bool AnySound();
  void ReadHeader();
  std::size_t ReadBytes(void* data, std::size_t bytes);
  void Wait();
  std::string Messages();

  std::filesystem::path path_;
  pid_t process_ = -1;  // while it runs
  int status_ = 0;      // how it ended
  bool has_sound_ = false;
  int sound_ = -1;  // a WAV file through a pipe
  std::unique_ptr<std::FILE, FileCloser> messages_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_FFMPEG_STREAM_H_
