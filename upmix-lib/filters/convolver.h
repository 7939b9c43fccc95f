// Uniformly partitioned convolution of several inputs to two ears.
#ifndef KELDA_UPMIX_LIB_FILTERS_CONVOLVER_H_
#define KELDA_UPMIX_LIB_FILTERS_CONVOLVER_H_

#include <memory>
#include <span>
#include <vector>

#include "platform/nonblocking.h"
#include "upmix-lib/base/aligned_buffer.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {

// What a convolver's inputs are convolved with, as spectra. No block changes it, so that convolvers
// may share it.
struct ConvolverResponses {
  // `responses`: the taps as [input][ear][tap], ears left, right; at least one tap. Of eight
  // bins the last partitions are left out in which all responses are below `negligible` times their
  // largest value. Control. Throws std::bad_alloc.
  ConvolverResponses(int input_count, int taps, std::span<const float> responses,
                     float negligible = 0.0f);

  RealFft fft;
  int input_count;
  int partition_count;
  std::vector<int> partitions;  // [group of kLanes bins]: how many it takes, 1 .. partition_count
  int all_partitions = 0;       // of all groups
  AlignedBuffer spectra;        // [group][partition][input][ear][re, im]
};

// Convolves every input with its own response for either ear and adds up the results,
// in blocks of kBlockFrames and without latency (overlap-save; partitioned as in Wefers,
// "Partitioned convolution algorithms for real-time auralization", 2015, chapter 5):
//
//   input block --FFT--> spectra of the last blocks --x responses, summed--> 2 inverse FFTs
//
// One forward transform per input and block and one inverse per ear, however long the
// responses are. Up to kBlockFrames taps make one partition, with a transform that just
// holds block and taps (1280 points for 256 taps); longer responses are cut into
// partitions of kBlockFrames taps. Where treble ends long before bass, as in a room, its bins take
// fewer partitions.
//
// What is kept of the signal is what the next block needs: the end of each input, and the spectra
// of the blocks before the newest.
class Convolver {
 public:
  // Control. Throws std::bad_alloc.
  explicit Convolver(std::shared_ptr<const ConvolverResponses> responses);

  // Clears the signal history. Control.
  void Clear();

  // Writes kBlockFrames samples to either ear. `inputs`: as many samples of each, all finite;
  // `left` and `right` may be among them. Audio.
  void Process(const float* const* inputs, float* left, float* right) KELDA_NONBLOCKING;

  // Whether the inputs of the last block were silent; and those of so many blocks, that more
  // silence would come out as silence and leave everything as it is. Audio.
  bool silent() const { return silent_blocks_ > 0; }
  bool at_rest() const { return silent_blocks_ > responses_->partition_count; }

 private:
  struct Spectra;
  struct Sums;

  void Transform(const float* const* inputs, Spectra& now);
  void SumProducts(const Spectra& now, Sums& sums) const;
  void Remember(const Spectra& now);

  std::shared_ptr<const ConvolverResponses> responses_;
  int history_frames_;  // samples of a window before the current block
  int silent_blocks_;   // so far; the history of the first one still sounds
  // [group]: which of its past blocks is the newest; older ones follow, cyclically.
  std::vector<int> newest_;
  AlignedBuffer histories_;  // [input]: samples before the current block
  // [group][past block][input][re, im]: one block less for each group than it has partitions.
  AlignedBuffer spectra_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILTERS_CONVOLVER_H_
