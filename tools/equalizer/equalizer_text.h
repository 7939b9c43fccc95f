// Headphone corrections as text: AutoEq's ParametricEQ.txt and GraphicEQ.txt, and the part
// of Equalizer APO's language that they come from.
//
//   Preamp: -6.2 dB                                       several add up
//   Filter 1: ON PK Fc 105 Hz Gain -1.5 dB Q 0.70         number optional; OFF is skipped
//   Filter: ON PK Fc 1,2 kHz Gain 3 dB BW Oct 0,5         a comma for the decimal point
//   Filter: ON PK Fc 10.000 Hz Gain 3,5 dB Q 2            10.000 is ten thousand in such a text
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
  std::vector<upmix_lib::EqualizerBand> bands;  // the filters that are on; all are valid
  std::vector<GraphicCurve> graphic_curves;     // their gains add up
  std::string warnings;                         // lines "file:line: ...", or empty
};

// Reads a text of at most 16 MiB and 1000 filters. The warnings list the unknown lines. Throws
// FileFailure, with the warnings and everything that is wrong, if a known line cannot be parsed,
// has a value out of range, or does what an equalizer file cannot do (Channel, If, Convolution
// ...).
EqualizerText ReadEqualizerText(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_EQUALIZER_TEXT_H_
