// Audio files of the tests: written from samples and read back.
#ifndef KELDA_TESTS_LABORATORY_AUDIO_FILES_H_
#define KELDA_TESTS_LABORATORY_AUDIO_FILES_H_

#include <sndfile.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kelda::tools {

struct Audio {
  std::vector<float> samples;  // interleaved
  int channels = 2;
  int rate_hz = 48000;
  int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

  int64_t frames() const { return static_cast<int64_t>(samples.size()) / channels; }
};

// `bitrate_mode`, for MP3, is libsndfile's.
void WriteAudio(const std::string& path, const Audio& audio,
                int bitrate_mode = SF_BITRATE_MODE_CONSTANT);
Audio ReadAudio(const std::string& path);

// White noise on a grid of 24 bits within +-0.5, never 0, so that each frame can
// be told from silence and survives every format.
Audio Noise(int64_t frames, int channels = 2);

}  // namespace kelda::tools

#endif  // KELDA_TESTS_LABORATORY_AUDIO_FILES_H_
