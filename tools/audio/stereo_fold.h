#ifndef KELDA_TOOLS_AUDIO_STEREO_FOLD_H_
#define KELDA_TOOLS_AUDIO_STEREO_FOLD_H_

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "tools/audio/sound_stream.h"

namespace kelda::tools {

// Makes two channels of those of a sound. Mono is played on both; more than two channels are
// mixed by ITU-R BS.775-3, Annex 4, table 2: left and right as they are, the centre and the
// surrounds of a side at -3 dB, a single surround at -6 dB, the LFE not at all. The back pair of
// 7.1 is added to the side pair first.
class StereoFold {
 public:
  // Throws Failure (input) if a channel has no known place; the message begins with `name`.
  StereoFold(const SoundFormat& format, const std::string& name);

  // Folds interleaved frames to interleaved stereo frames; the arrays do not overlap.
  void Fold(const float* interleaved, std::size_t frames, float* stereo) const;

  // What is done with more than two channels, for a message; empty for one or two.
  const std::string& note() const { return note_; }

 private:
  std::vector<std::array<float, 2>> gains_;  // of each channel in left and right
  std::string note_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_STEREO_FOLD_H_
