// What the figures of sound are measured of.
//
// Signals are planar, 48 kHz, stereo left and right. A system starts from silence in every call,
// puts out as many frames as it takes, and may be late.
#ifndef KELDA_TOOLS_MEASURE_STEREO_SYSTEM_H_
#define KELDA_TOOLS_MEASURE_STEREO_SYSTEM_H_

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace kelda::tools {

// Frames a second.
inline constexpr std::size_t kSoundRate = 48000;

using Channels = std::vector<std::vector<float>>;
using StereoSystem = std::function<Channels(const Channels& in)>;

// A system whose mode changes while it plays: `from` before frame `change`, `to` from there on.
using ModalSystem = std::function<Channels(const Channels& in, const std::string& from,
                                           const std::string& to, std::size_t change)>;

// The sum of the squares.
inline double Energy(std::span<const float> signal) {
  double sum = 0;
  for (const float sample : signal) {
    sum += double{sample} * double{sample};
  }
  return sum;
}

// `count` frames from frame `first` on, which the signal has.
inline Channels Part(const Channels& signal, std::size_t first, std::size_t count) {
  Channels part;
  for (const std::vector<float>& channel : signal) {
    const auto from = channel.begin() + static_cast<std::ptrdiff_t>(first);
    part.emplace_back(from, from + static_cast<std::ptrdiff_t>(count));
  }
  return part;
}

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_STEREO_SYSTEM_H_
