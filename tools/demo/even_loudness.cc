// even_loudness IN OUT [IN OUT]...: copies 48 kHz stereo files to WAV files that are equally loud,
// so that they can be compared by ear: of two sounds the louder one is taken for the better.
//
// The loudness is the integrated one of ITU-R BS.1770-4. It is the highest at which no file's true
// peak exceeds -1 dBTP.
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/audio/loudness_meter.h"

namespace {

constexpr double kCeilingDb = -1;

struct Sound {
  std::vector<float> stereo;
  double loudness_lufs;
  double true_peak_db;
};

Sound Read(const std::string& path) {
  SF_INFO info{};
  SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) {
    throw std::runtime_error(path + ": " + sf_strerror(nullptr));
  }
  Sound sound{
      std::vector<float>(static_cast<std::size_t>(2 * std::max<sf_count_t>(0, info.frames))), 0, 0};
  const bool fits = info.channels == 2 && info.samplerate == 48000;
  const bool whole = fits && sf_readf_float(file, sound.stereo.data(), info.frames) == info.frames;
  sf_close(file);
  if (!whole) {
    throw std::runtime_error(path + (fits ? ": cannot be read" : ": not 48 kHz stereo"));
  }
  kelda::tools::LoudnessMeter meter;
  meter.Add(sound.stereo.data(), sound.stereo.size() / 2);
  const kelda::tools::Levels levels = meter.Finish();
  if (!levels.loudness_lufs || !levels.true_peak_db) {
    throw std::runtime_error(path + ": silent, or too short to have a loudness");
  }
  sound.loudness_lufs = *levels.loudness_lufs;
  sound.true_peak_db = *levels.true_peak_db;
  return sound;
}

void Write(const std::string& path, std::vector<float> stereo, double gain_db) {
  for (float& sample : stereo) {
    sample *= static_cast<float>(std::pow(10.0, gain_db / 20));
  }
  SF_INFO info{};
  info.samplerate = 48000;
  info.channels = 2;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
  SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
  const auto frames = static_cast<sf_count_t>(stereo.size() / 2);
  const bool written = file != nullptr && sf_writef_float(file, stereo.data(), frames) == frames;
  if (sf_close(file) != 0 || !written) {
    throw std::runtime_error(path + ": cannot be written");
  }
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 3 || argc % 2 == 0) {
    std::fputs("usage: even_loudness IN OUT.wav [IN OUT.wav]...\n", stderr);
    return 2;
  }
  std::vector<Sound> sounds;
  double target_lufs = std::numeric_limits<double>::max();
  for (int i = 1; i < argc; i += 2) {
    sounds.push_back(Read(argv[i]));
    const Sound& sound = sounds.back();
    target_lufs = std::min(target_lufs, sound.loudness_lufs + kCeilingDb - sound.true_peak_db);
  }
  for (std::size_t i = 0; i < sounds.size(); ++i) {
    Write(argv[2 * i + 2], std::move(sounds[i].stereo), target_lufs - sounds[i].loudness_lufs);
  }
  std::printf("%zu files at %.1f LUFS\n", sounds.size(), target_lufs);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "even_loudness: %s\n", error.what());
  return 1;
}
