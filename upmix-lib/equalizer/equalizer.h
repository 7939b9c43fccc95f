#ifndef KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_H_
#define KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_H_

#include <memory>
#include <string>

#include "platform/nonblocking.h"
#include "upmix-lib/base/status.h"
#include "upmix-lib/equalizer/equalizer_file.h"

namespace kelda::upmix_lib {

// The headphone equalizer: two channels, in place, no latency.
//
//   std::unique_ptr<Equalizer> equalizer;
//   if (Equalizer::Load("/data/wired.ba", equalizer) != kOk) { ... }  // control thread
//   equalizer->Process(left, right);                                  // audio thread, each block
//
// "Control" and "Audio" name the calling thread, see base/audio_format.h.
class Equalizer {
 public:
  // Builds an equalizer from the data file `path`; `equalizer` is set on success only.
  // Control. Throws std::bad_alloc.
  static Status Load(const std::string& path, std::unique_ptr<Equalizer>& equalizer);

  // The equalizer of a checked tuning. Control. Throws std::bad_alloc.
  static std::unique_ptr<Equalizer> Make(const EqualizerTuning& tuning);

  virtual ~Equalizer() = default;

  // Filters kBlockFrames frames in place. Samples that are NaN, infinite or huge count as
  // silence. Audio.
  virtual void Process(float* left, float* right) KELDA_NONBLOCKING = 0;

  // Clears the signal history. Control.
  virtual void Flush() = 0;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_H_
