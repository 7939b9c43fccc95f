#include "tools/audio/audio_sink.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "tools/core/failure.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

bool IsFlac(int format) { return (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC; }

// A WAV file counts its bytes in 32 bits; the header takes far less than 1 MiB. RF64 counts in 64.
int LargeFormat(int format, std::optional<int64_t> frames, std::size_t channels) {
  const int64_t wav_limit_frames =
      ((int64_t{1} << 32) - (1 << 20)) / static_cast<int64_t>(channels * sizeof(float));
  const bool large = !IsFlac(format) && frames.value_or(INT64_MAX) > wav_limit_frames;
  return large ? SF_FORMAT_RF64 | (format & SF_FORMAT_SUBMASK) : format;
}

// libsndfile gives every RF64 file a peak chunk: its name, its size and its version, then the time
// of day in four bytes. They become zero. Returns false, with errno, if that fails.
bool ForgetTime(int descriptor) {
  char header[256];
  const ssize_t count = pread(descriptor, header, sizeof(header), 0);
  const std::size_t chunk =
      std::string_view(header, count < 0 ? 0 : static_cast<std::size_t>(count)).find("PEAK");
  return chunk == std::string_view::npos ||
         pwrite(descriptor, "\0\0\0", 4, static_cast<off_t>(chunk) + 12) == 4;
}

}  // namespace

int AudioFormat(const std::filesystem::path& path) {
  std::string ending = path.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ending == ".wav") {
    return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  }
  if (ending == ".flac") {
    return SF_FORMAT_FLAC | SF_FORMAT_PCM_24;
  }
  throw Failure(ExitCode::kUsage, path.string() + ": unknown ending " + Quoted(ending) +
                                      " of the output (.wav, .flac)");
}

SF_VIRTUAL_IO AudioSink::StreamFunctions() {
  SF_VIRTUAL_IO functions{};
  functions.get_filelen = [](void* user) -> sf_count_t {
    struct stat status {};
    return fstat(static_cast<Stream*>(user)->descriptor, &status) == 0 ? status.st_size : -1;
  };
  functions.seek = [](sf_count_t offset, int whence, void* user) -> sf_count_t {
    return lseek(static_cast<Stream*>(user)->descriptor, offset, whence);
  };
  functions.tell = [](void* user) -> sf_count_t {
    return lseek(static_cast<Stream*>(user)->descriptor, 0, SEEK_CUR);
  };
  functions.read = [](void* data, sf_count_t bytes, void* user) -> sf_count_t {
    return read(static_cast<Stream*>(user)->descriptor, data, static_cast<std::size_t>(bytes));
  };
  functions.write = [](const void* data, sf_count_t bytes, void* user) -> sf_count_t {
    auto* const stream = static_cast<Stream*>(user);
    if (WriteAll(stream->descriptor,
                 {static_cast<const std::byte*>(data), static_cast<std::size_t>(bytes)})) {
      return bytes;
    }
    stream->error = stream->error != 0 ? stream->error : errno;
    return 0;
  };
  return functions;
}

AudioSink::AudioSink(const std::filesystem::path& path, std::optional<int64_t> expected_frames,
                     std::size_t channels)
    : channels_(channels),
      format_(LargeFormat(AudioFormat(path), expected_frames, channels)),
      output_(path),
      stream_{output_.descriptor()} {
  SF_INFO info{};
  info.samplerate = static_cast<int>(kSampleRateHz);
  info.channels = static_cast<int>(channels_);
  info.format = format_;
  SF_VIRTUAL_IO functions = StreamFunctions();
  file_.reset(sf_open_virtual(&functions, SFM_WRITE, &info, &stream_));
  if (file_ == nullptr || stream_.error != 0) {
    Fail();
  }
  // If the length was not known, the RF64 file becomes a WAV file at the end, unless it is too
  // long.
  sf_command(file_.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, expected_frames ? SF_FALSE : SF_TRUE);
  // No peak chunk, as it holds the time of day: two equal renders are then equal files. An RF64
  // file has one still, see ForgetTime.
  sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
  // Without this, samples beyond full scale wrap around.
  sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

void AudioSink::Fail() {
  throw Failure(ExitCode::kOutput,
                output_.path().string() + ": cannot be written: " +
                    (stream_.error != 0 ? std::strerror(stream_.error) : sf_strerror(file_.get())));
}

void AudioSink::Write(const float* interleaved, std::size_t frames) {
  if (IsFlac(format_)) {
    clipped_samples_ += std::count_if(interleaved, interleaved + frames * channels_,
                                      [](float sample) { return std::abs(sample) > 1.0f; });
  }
  const auto count = static_cast<sf_count_t>(frames);
  if (sf_writef_float(file_.get(), interleaved, count) != count || stream_.error != 0) {
    Fail();
  }
}

void AudioSink::FinishShort() {
  stream_.error = 0;
  Finish();
}

void AudioSink::Finish() {
  sf_close(file_.release());
  if ((format_ & SF_FORMAT_TYPEMASK) == SF_FORMAT_RF64 && !ForgetTime(stream_.descriptor) &&
      stream_.error == 0) {
    stream_.error = errno;
  }
  if (stream_.error != 0) {
    Fail();
  }
  output_.Commit();
}

}  // namespace kelda::tools
