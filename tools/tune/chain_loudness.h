// How much louder the chain of a mode makes music: what "as the input" has to take back.
#ifndef KELDA_TOOLS_TUNE_CHAIN_LOUDNESS_H_
#define KELDA_TOOLS_TUNE_CHAIN_LOUDNESS_H_

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/upmix/cinema_parameters.h"
#include "upmix-lib/upmix/music_parameters.h"

namespace kelda::tools {

// A mode's chain up to the level control: takes a block of left and right and replaces it by what
// comes out, kBlockFrames frames each.
using Chain = std::function<void(float* left, float* right)>;

// Mean powers of the planes in the last block.
using PlanePowers = std::array<double, upmix_lib::kPlanes>;

// `equalizer` is null where none runs. If `planes` is not null, each block writes there what went
// to the virtual loudspeakers. Both throw std::bad_alloc.
Chain MusicChain(const upmix_lib::MusicParameters& parameters, const upmix_lib::HrirSet& ears,
                 const upmix_lib::EqualizerTuning* equalizer, PlanePowers* planes = nullptr);
Chain CinemaChain(const upmix_lib::CinemaParameters& parameters, const upmix_lib::HrirSet& ears,
                  const upmix_lib::EqualizerTuning* equalizer, PlanePowers* planes = nullptr);

// Loudness of what comes out over that of what goes in, in LU, by ITU-R BS.1770: of pink noise in
// the centre, hard left, and all around (uncorrelated), each at -23 dBFS per channel; and the
// mean that stands for a mix: two fifths in the centre, half of it wide, little hard at a side.
struct ChainLoudness {
  double centre_lu, left_lu, wide_lu;

  double mix_lu() const { return 0.4 * centre_lu + 0.1 * left_lu + 0.5 * wide_lu; }
};
ChainLoudness MeasureChain(const std::function<Chain()>& make_chain);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNE_CHAIN_LOUDNESS_H_
