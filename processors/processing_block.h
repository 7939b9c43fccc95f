#ifndef KELDA_PROCESSORS_PROCESSING_BLOCK_H_
#define KELDA_PROCESSORS_PROCESSING_BLOCK_H_

namespace kelda {

// The signal library works on whole blocks of this many frames; plane 1 of a
// stereo block starts this many samples after plane 0.
inline constexpr unsigned kBlockFrames = 1024;

}  // namespace kelda

#endif  // KELDA_PROCESSORS_PROCESSING_BLOCK_H_
