// Headphone corrections as text: AutoEq's ParametricEQ.txt and GraphicEQ.txt, and the part
// of Equalizer APO's language that they come from.
//
//   Preamp: -6.2 dB                                       several add up
//   Filter 1: ON PK Fc 105 Hz Gain -1.5 dB Q 0.70         number optional; OFF is skipped
//   Filter: ON PK Fc 1,2 kHz Gain 3 dB BW Oct 0,5         a comma for the decimal point
//   Filter: ON PK Fc 10.000 Hz Gain 3,5 dB Q 2            in such a text, ten thousand
//   GraphicEQ: 20 -1.2; 21 -1.3; ...                      any length
//
//   PK PEQ Modal    bell              Gain, and Q or BW Oct
//   LSC HSC         shelf             Gain; Fc is its centre. Q, or a slope ("LSC 12 dB"),
//                                     or neither: a slope of 0.9 x 12 dB an octave
//   LS HS           shelf             with a Q like LSC and HSC, as AutoEq means it; else
//                                     Fc is the corner, as Equalizer APO means it
//   LP LPQ HP HPQ   low, high pass    Q or BW Oct, else 0.7071
//   BP              band pass         Q or BW Oct, else 0.7071
//   NO              notch             Q or BW Oct, else 30
#ifndef KELDA_TOOLS_EQUALIZER_EQUALIZER_TEXT_H_
#define KELDA_TOOLS_EQUALIZER_EQUALIZER_TEXT_H_

#include <filesystem>
#include <string>
#include <vector>

#include "tools/equalizer/graphic_curve.h"
#include "upmix-lib/equalizer/equalizer_format.h"

namespace kelda::tools {

struct EqualizerText {
  double preamp_db = 0;
  std::vector<upmix_lib::EqualizerBand> bands;  // the filters that are on, valid each
  std::vector<GraphicCurve> graphic_curves;     // what they do adds up
  std::string warnings;                         // lines "file:line: ...", or empty
};

// At most 16 MiB and 1000 filters. Lines that are not known are named in the warnings; a
// known one that cannot be read, has a value out of range, or does what no equalizer file
// can (Channel, If, Convolution ...) is refused: throws FileFailure with the warnings and
// all that is wrong.
EqualizerText ReadEqualizerText(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_EQUALIZER_TEXT_H_
