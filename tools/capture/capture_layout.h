// How the samples of a raw capture are arranged. A capture has no header that says so.
#ifndef KELDA_TOOLS_CAPTURE_CAPTURE_LAYOUT_H_
#define KELDA_TOOLS_CAPTURE_CAPTURE_LAYOUT_H_

#include <cstddef>
#include <span>
#include <string>

#include "tools/framework/block_sizes.h"

namespace kelda::tools {

inline constexpr int kMaxCaptureChannels = 8;

// 32-bit float samples, little-endian.
//
//   interleaved   ch 0, ch 1 of frame 0 | ch 0, ch 1 of frame 1 | ...
//   planar        1024 frames of ch 0, the same 1024 frames of ch 1 | the next 1024 ...
struct CaptureLayout {
  int channels = 2;
  bool planar = false;

  static constexpr std::size_t kPlaneFrames = kPeriodFrames;
  // How many frames are stored together, and so have to be read together.
  std::size_t group_frames() const { return planar ? kPlaneFrames : 1; }

  bool operator==(const CaptureLayout&) const = default;
};

struct LayoutGuess {
  CaptureLayout layout;
  std::string reason;
};

// Guesses the layout from the capture's name and its first samples; a few thousand are enough. If
// neither shows the layout, the guess is what the effect delivers: interleaved stereo.
//
// Sound changes little from one frame to the next. So the steps between successive samples of a
// channel are smallest with the true number of channels.
LayoutGuess GuessLayout(const std::string& name, std::span<const float> samples);

// "2 channels, interleaved", "2 channels, planar in blocks of 1024 frames".
std::string Describe(const CaptureLayout& layout);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CAPTURE_CAPTURE_LAYOUT_H_
