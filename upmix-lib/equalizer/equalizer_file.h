#ifndef KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_FILE_H_
#define KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_FILE_H_

#include <cstddef>
#include <span>
#include <vector>

#include "upmix-lib/base/status.h"
#include "upmix-lib/equalizer/equalizer_format.h"

namespace kelda::upmix_lib {

// What an equalizer file holds. Of bands and taps the one that `form` names is used.
struct EqualizerTuning {
  struct Curve {
    std::vector<EqualizerBand> bands;
    std::vector<float> taps;
  };

  EqualizerForm form = EqualizerForm::kBands;
  float preamp_db = 0;
  std::vector<Curve> curves;  // one for both channels, or left and right, of equal length
};

// Reads `file`, a whole file whose container was checked. `tuning` is written on success
// only. Control. Throws std::bad_alloc.
Status ParseEqualizer(std::span<const std::byte> file, EqualizerTuning& tuning);

// The file that ParseEqualizer reads back as `tuning`, which has a curve at least; its values are
// not checked. Throws std::invalid_argument if the curves are not of equal length, std::bad_alloc.
// Control.
std::vector<std::byte> BuildEqualizerFile(const EqualizerTuning& tuning);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_FILE_H_
