// Sounds as the instruments hold them: planes of 48 kHz samples, in files of float WAV.
#ifndef KELDA_ASSURANCE_SOUND_SOUND_FILE_H_
#define KELDA_ASSURANCE_SOUND_SOUND_FILE_H_

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "tests/laboratory/audio_files.h"
#include "tests/laboratory/signals.h"

namespace kelda::sound {

using upmix_lib::Planes;
using upmix_lib::Signal;

// Throws std::runtime_error for a file that cannot be read, or not at 48 kHz.
inline Planes ReadPlanes(const std::filesystem::path& path) {
  const tools::Audio audio = tools::ReadAudio(path.string());
  if (audio.rate_hz != 48000) {
    throw std::runtime_error(path.string() + ": not at 48 kHz");
  }
  const auto channels = static_cast<std::size_t>(audio.channels);
  Planes planes(channels, Signal(static_cast<std::size_t>(audio.frames())));
  for (std::size_t i = 0; i < audio.samples.size(); ++i) {
    planes[i % channels][i / channels] = audio.samples[i];
  }
  return planes;
}

inline std::vector<float> Interleaved(const Planes& planes) {
  std::vector<float> samples(planes.size() * planes[0].size());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = planes[i % planes.size()][i / planes.size()];
  }
  return samples;
}

inline void WritePlanes(const std::filesystem::path& path, const Planes& planes) {
  tools::Audio audio;
  audio.channels = static_cast<int>(planes.size());
  audio.samples = Interleaved(planes);
  tools::WriteAudio(path.string(), audio);
}

// `to` gets `gain` times `from`, as far as both reach.
inline void AddTo(Planes& to, const Planes& from, float gain = 1.0f) {
  for (std::size_t p = 0; p < to.size(); ++p) {
    for (std::size_t n = 0; n < std::min(to[p].size(), from[p].size()); ++n) {
      to[p][n] += gain * from[p][n];
    }
  }
}

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_SOUND_FILE_H_
