#ifndef KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_BANDS_H_
#define KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_BANDS_H_

#include <cstddef>
#include <vector>

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/filters/biquad_design.h"
#include "upmix-lib/filters/double_vec.h"

namespace kelda::upmix_lib {

// A cascade of second-order sections on two channels, without latency.
//
// Four double lanes hold two bands of both channels. The sections of a pass run as a
// pipeline, each one frame later than the section that feeds it, so that all of them advance
// in one step without waiting for each other:
//
//   step t   lanes of vector 0          vector 1                  vector 2 ...
//            L,R band 0   L,R band 1    L,R band 2   L,R band 3
//   frame    t            t - 1         t - 2        t - 3        ...
//
// The pipeline fills at the start of a block and drains at its end, with the state of the
// lanes that have no frame held back.
//
// Double, because float state costs accuracy where headphone corrections need it: see
// DESIGN.md for the noise of both.
class BandCascade {
 public:
  // `gain` is applied ahead of the bands. `left` and `right` are of equal length, any.
  // Control.
  BandCascade(const std::vector<Biquad>& left, const std::vector<Biquad>& right, double gain);

  // Filters kBlockFrames frames in place. Audio.
  void Process(float* left, float* right) KELDA_NONBLOCKING;

  // Clears the signal history. Control.
  void Flush();

 private:
  // Two bands of both channels: lanes L, R of the first, L, R of the second.
  struct Pair {
    FourBiquads biquads;
    DoubleVec4 s1{}, s2{};  // state
  };

  template <int kPairs>
  static void RunPass(Pair* pairs, double* frames);

  double gain_;
  bool at_rest_ = true;  // the state of every section is 0
  std::vector<Pair> pairs_;
  DoubleVec4 frames_[kBlockFrames / 2];  // one block of interleaved stereo
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_BANDS_H_
