#include "tools/audio/mp3_stream.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>

#include "tools/core/failure.h"

namespace kelda::tools {

Mp3Stream::Mp3Stream(const std::filesystem::path& path) : handle_(mpg123_new(nullptr, nullptr)) {
  mpg123_handle* const handle = handle_.get();
  // Without a look at the end of the file, libmpg123 reports no length that it only estimated.
  long rate_hz = 0;
  int channels = 0;
  int encoding = 0;
  if (handle == nullptr ||
      mpg123_param(handle, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_FORCE_FLOAT | MPG123_NO_PEEK_END,
                   0) != MPG123_OK ||
      mpg123_open(handle, path.c_str()) != MPG123_OK ||
      mpg123_getformat(handle, &rate_hz, &channels, &encoding) != MPG123_OK) {
    throw Failure(ExitCode::kInput, path.string() + ": cannot be read: " + mpg123_strerror(handle));
  }
  // The format may change within the stream; the output keeps the format of the beginning. Tags and
  // damage in the middle are skipped, however long they are.
  mpg123_format_none(handle);
  mpg123_format(handle, rate_hz, channels, MPG123_ENC_FLOAT_32);
  mpg123_param(handle, MPG123_RESYNC_LIMIT, -1, 0);
  format_.rate_hz = static_cast<int>(rate_hz);
  format_.channels = static_cast<std::size_t>(channels);
  format_.places = UsualPlaces(format_.channels);
  if (const off_t length = mpg123_length(handle); length > 0) {
    stated_frames_ = length;
  }
}

std::size_t Mp3Stream::Read(float* interleaved, std::size_t frames) {
  const std::size_t frame_bytes = sizeof(float) * format_.channels;
  std::size_t done = 0;
  int status = MPG123_OK;
  while (done < frames && (status == MPG123_OK || status == MPG123_NEW_FORMAT)) {
    std::size_t bytes = 0;
    status = mpg123_read(handle_.get(), interleaved + format_.channels * done,
                         (frames - done) * frame_bytes, &bytes);
    done += bytes / frame_bytes;
  }
  frames_read_ += static_cast<int64_t>(done);
  return done;
}

bool Mp3Stream::Seek(int64_t frame) {
  frames_read_ = std::max<int64_t>(mpg123_seek(handle_.get(), frame, SEEK_SET), 0);
  return frames_read_ > 0;
}

// A tag or a part of a frame after the last whole frame is no fault by itself.
std::string Mp3Stream::Fault() {
  constexpr int64_t kMpegFrame = 1152;
  if (stated_frames_ && frames_read_ < *stated_frames_ - 2 * kMpegFrame) {
    return EndedEarly(frames_read_, *stated_frames_, format_.rate_hz);
  }
  return "";
}

}  // namespace kelda::tools
