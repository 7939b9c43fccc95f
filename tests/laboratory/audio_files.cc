#include "tests/laboratory/audio_files.h"

#include <random>
#include <stdexcept>

namespace kelda::tools {

void WriteAudio(const std::string& path, const Audio& audio, int bitrate_mode) {
  SF_INFO info{};
  info.channels = audio.channels;
  info.samplerate = audio.rate_hz;
  info.format = audio.format;
  SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
  sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);  // full scale is 2^23, not 2^23 - 1
  sf_command(file, SFC_SET_BITRATE_MODE, &bitrate_mode, sizeof(bitrate_mode));
  if (file == nullptr || sf_writef_float(file, audio.samples.data(), audio.frames()) !=
                             static_cast<sf_count_t>(audio.frames())) {
    throw std::runtime_error("cannot write " + path);
  }
  sf_close(file);
}

Audio ReadAudio(const std::string& path) {
  SF_INFO info{};
  SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) {
    throw std::runtime_error("cannot read " + path + ": " + sf_strerror(nullptr));
  }
  Audio audio{{}, info.channels, info.samplerate, info.format};
  audio.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
  const sf_count_t read = sf_readf_float(file, audio.samples.data(), info.frames);
  sf_close(file);
  if (read != info.frames) {
    throw std::runtime_error(path + " is shorter than it says");
  }
  return audio;
}

Audio Noise(int64_t frames, int channels) {
  std::mt19937 random(20240501);
  Audio audio;
  audio.channels = channels;
  audio.samples.resize(static_cast<std::size_t>(frames * channels));
  for (float& sample : audio.samples) {
    const auto step = static_cast<int32_t>(random() % (1u << 23)) - (1 << 22);
    sample = static_cast<float>(step == 0 ? 1 : step) / static_cast<float>(1 << 23);
  }
  return audio;
}

}  // namespace kelda::tools
