#ifndef KELDA_TOOLS_AUDIO_SNDFILE_STREAM_H_
#define KELDA_TOOLS_AUDIO_SNDFILE_STREAM_H_

#include <sndfile.h>

#include <cstddef>
#include <cstdio>

#include "tools/audio/ogg_links.h"
#include "tools/audio/sound_stream.h"

namespace kelda::tools {

// What libsndfile reads.
class SndfileStream : public SoundStream {
 public:
  // The whole of a file. Throws Failure (input).
  explicit SndfileStream(const std::filesystem::path& path);
  // One link of an Ogg file. Throws Failure (input).
  SndfileStream(const std::filesystem::path& path, const OggLink& link);

  std::optional<int64_t> frames() const override;
  std::size_t Read(float* interleaved, std::size_t frames) override;
  bool Seek(int64_t frame) override;
  std::string Fault() override;

  // libsndfile's number of the format.
  int type() const { return info_.format & SF_FORMAT_TYPEMASK; }

 private:
  struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
  };
  // A part of a file, as libsndfile sees it: bytes begin to end.
  struct Part {
    std::unique_ptr<std::FILE, FileCloser> file;
    int64_t begin = 0;
    int64_t end = 0;
  };

  void Take(const std::filesystem::path& path);
  static SF_VIRTUAL_IO PartFunctions();

  SF_INFO info_{};
  std::string container_fault_;
  Part part_;
  std::unique_ptr<SNDFILE, SndfileCloser> file_;
  int64_t frames_read_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_SNDFILE_STREAM_H_
