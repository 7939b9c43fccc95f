#include "tools/audio/sound_stream.h"

#include <cstddef>
#include <cstdio>
#include <fstream>

#include "tools/audio/ffmpeg_stream.h"
#include "tools/audio/mp3_stream.h"
#include "tools/audio/sndfile_stream.h"
#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

// The size of an ID3v2 tag at the start of `head`, its own header included; 0 if there is none.
// Its size has 7 bits a byte (ID3 2.4.0, section 3.1).
int64_t Id3Bytes(const std::string& head) {
  if (head.size() < 10 || !head.starts_with("ID3")) {
    return 0;
  }
  int64_t bytes = 0;
  for (std::size_t i = 6; i < 10; ++i) {
    bytes = bytes << 7 | (head[i] & 0x7F);
  }
  return 10 + bytes;
}

}  // namespace

std::vector<ChannelPlace> UsualPlaces(std::size_t channels) {
  using Place = ChannelPlace;
  switch (channels) {
    case 1:
      return {Place::kCentre};
    case 2:
      return {Place::kLeft, Place::kRight};
    case 6:
      return {Place::kLeft, Place::kRight,    Place::kCentre,
              Place::kLfe,  Place::kBackLeft, Place::kBackRight};
    case 8:
      return {Place::kLeft,     Place::kRight,     Place::kCentre,   Place::kLfe,
              Place::kBackLeft, Place::kBackRight, Place::kSideLeft, Place::kSideRight};
    default:
      return {};
  }
}

std::string SoundTime(int64_t frames, int rate_hz) {
  const int64_t milliseconds = frames * 1000 / rate_hz;
  char text[40];
  std::snprintf(text, sizeof(text), "%lld:%02lld.%03lld",
                static_cast<long long>(milliseconds / 60000),
                static_cast<long long>(milliseconds / 1000 % 60),
                static_cast<long long>(milliseconds % 1000));
  return text;
}

std::string EndedEarly(int64_t frames, int64_t expected_frames, int rate_hz) {
  return "it ends after " + SoundTime(frames, rate_hz) + " of " +
         SoundTime(expected_frames, rate_hz);
}

// A frame of MPEG audio begins with 11 bits of 1. Among the bits after them is the layer, which is
// never 0; in frames of AAC it is 0 (ISO 11172-3, section 2.4.1.3).
bool LooksLikeMp3(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const auto read = [&](int64_t offset) {
    std::string head(10, '\0');
    file.clear();
    file.seekg(offset);
    file.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(file.gcount()));
    return head;
  };
  std::string head = read(0);
  if (const int64_t tag_bytes = Id3Bytes(head); tag_bytes != 0) {
    head = read(tag_bytes);
  }
  return head.size() >= 2 && head[0] == '\xFF' && (head[1] & 0xE0) == 0xE0 && (head[1] & 0x06) != 0;
}

std::unique_ptr<SoundStream> OpenSound(const std::filesystem::path& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    throw Failure(ExitCode::kInput, path.string() + ": cannot be read: it is a directory");
  }
  const bool regular = std::filesystem::is_regular_file(path, error);
  if (regular && LooksLikeMp3(path)) {
    try {
      return std::make_unique<Mp3Stream>(path);
    } catch (const Failure&) {
      // It is no MP3 file, although it begins like one.
    }
  }
  try {
    auto stream = std::make_unique<SndfileStream>(path);
    if (stream->type() == SF_FORMAT_MPEG) {
      return std::make_unique<Mp3Stream>(path);
    }
    return stream;
  } catch (const Failure& failure) {
    if (!regular) {
      throw;
    }
    if (auto stream = FfmpegStream::Open(path)) {
      return stream;
    }
    throw Failure(failure.code(),
                  std::string(failure.what()) +
                      " WAV, FLAC, MP3, Ogg Vorbis, Opus and AIFF are read; others, such as m4a "
                      "and the sound of a video, once ffmpeg is installed");
  }
}

}  // namespace kelda::tools
