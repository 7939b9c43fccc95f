// Turns the text of an equalizer into the contents of its file.
#ifndef KELDA_TOOLS_EQUALIZER_EQUALIZER_DESIGN_H_
#define KELDA_TOOLS_EQUALIZER_EQUALIZER_DESIGN_H_

#include <string>

#include "tools/equalizer/equalizer_response.h"
#include "tools/equalizer/equalizer_text.h"
#include "upmix-lib/equalizer/equalizer_file.h"

namespace kelda::tools {

struct EqualizerDesign {
  upmix_lib::EqualizerTuning tuning;
  EqualizerResponse::Peak peak;  // of the response that the text describes
  double deviation_db;           // largest difference from the text, 20 Hz..20 kHz; 0 for bands
  double safe_preamp_db;         // the preamp that would bring the peak to 0 dB
};

// Makes a band of each filter. If the text has a GraphicEQ, or more filters than the file has
// bands, makes one minimum-phase FIR of the whole text: the shortest of 256 to 8192 taps that
// differs from the text by at most 0.05 dB, or else the longest. `name` is the name of the text,
// for messages. Throws FileFailure if the gain is beyond what the file can hold.
EqualizerDesign DesignEqualizer(const EqualizerText& text, const std::string& name);

// Three lines for people: what it is, its peak, the headroom left.
std::string DescribeEqualizer(const EqualizerDesign& design);

// "kelda: NAME: warning: ..." if some sine is amplified by 0.2 dB or more, so that it would clip at
// full scale; else empty. The usual texts exceed 0 dB by less, through rounding.
std::string ClippingWarning(const EqualizerDesign& design, const std::string& name);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_EQUALIZER_DESIGN_H_
