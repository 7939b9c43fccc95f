// From an equalizer's text to what the equalizer's file holds.
#ifndef KELDA_TOOLS_EQUALIZER_EQUALIZER_DESIGN_H_
#define KELDA_TOOLS_EQUALIZER_EQUALIZER_DESIGN_H_

#include <string>

#include "tools/equalizer/equalizer_response.h"
#include "tools/equalizer/equalizer_text.h"
#include "upmix-lib/equalizer/equalizer_file.h"

namespace kelda::tools {

struct EqualizerDesign {
  upmix_lib::EqualizerTuning tuning;
  EqualizerResponse::Peak peak;  // of what the text asks for
  double deviation_db;           // from the text, at most, 20 Hz..20 kHz; of bands 0
  double safe_preamp_db;         // the text's preamps' sum, were its peak at 0 dB
};

// Filters alone become bands, one each. With a GraphicEQ, or more filters than the file
// has bands, the whole becomes a minimum-phase FIR: the shortest of 256 to 8192 taps that
// keeps to the text within 0.05 dB, else the longest. `name` is the text's, for messages.
// Throws FileFailure if the gain is beyond what the file can hold.
EqualizerDesign DesignEqualizer(const EqualizerText& text, const std::string& name);

// Three lines for people: what it is, its peak, the headroom left.
std::string DescribeEqualizer(const EqualizerDesign& design);

// "kelda: NAME: warning: ..." if a sine at full scale would come out louder by 0.2 dB or
// more, which the rounding of the usual texts stays below; else empty.
std::string ClippingWarning(const EqualizerDesign& design, const std::string& name);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_EQUALIZER_DESIGN_H_
