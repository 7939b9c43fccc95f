#ifndef KELDA_TOOLS_EQUALIZER_EQUALIZER_RESPONSE_H_
#define KELDA_TOOLS_EQUALIZER_EQUALIZER_RESPONSE_H_

#include <vector>

#include "tools/equalizer/equalizer_text.h"
#include "upmix-lib/filters/biquad_design.h"

namespace kelda::tools {

// The gain of an equalizer text over frequency, at 48 kHz.
class EqualizerResponse {
 public:
  // Keeps a reference to `text`.
  explicit EqualizerResponse(const EqualizerText& text);

  // In dB; -infinity where a filter has a zero. 0..24000 Hz.
  double GainDb(double freq_hz) const;

  struct Peak {
    double freq_hz, gain_db;
  };
  // The largest gain between 10 and 24000 Hz.
  Peak FindPeak() const;

 private:
  const EqualizerText& text_;
  std::vector<upmix_lib::Biquad> biquads_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_EQUALIZER_RESPONSE_H_
