// Turns the ambience of the two sides into four signals for the surround planes that sound like
// it and are unlike each other, without colouring any:
//
//   left ambience ---> all-pass pair --+--> side left, back left
//                                      X  each gets some of the other
//   right ambience --> all-pass pair --+--> side right, back right
//
// Each side has an all-pass response of its own, so that a source that leaves the same ambience
// of opposite sign in both channels does not sound phasey. It is a finite response of kTaps taps,
// so silence in is silence out: a random group delay for each of the ear's bands (M.
// Bouéri, C. Kyriakakis, "Audio signal decorrelation based on a critical band approach", AES
// convention 117, 2004), then turns of "of this length" and "of magnitude 1" until
// both hold. The back planes get the same response, shifted by a quarter of a period: no
// correlation with the sides, and together the two have a flat power response (F. Zotter, M.
// Frank, "Efficient phantom source widening", Archives of Acoustics 38, 2013).
//
// At the ears a diffuse field is coherent at low frequencies and incoherent above. Planes of no
// correlation at the sides are not: their sounds reach the two ears with the delay of a head, and
// beat in and out of phase up to 4 kHz. So each side gets as much of the other, of either sign, as
// evens that out.
#ifndef KELDA_UPMIX_LIB_UPMIX_DIFFUSER_H_
#define KELDA_UPMIX_LIB_UPMIX_DIFFUSER_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/upmix/hop_history.h"
#include "upmix-lib/upmix/hop_spectra.h"

namespace kelda::upmix_lib {

// Filters and transforms, as SharedAnalysisTables. Control. Throws std::bad_alloc.
struct DiffuserTables;
const DiffuserTables* SharedDiffuserTables();

// Diffuse sound: kHopFrames frames of left and right.
struct alignas(kSimdAlignmentBytes) Diffused {
  float side[2][kHopFrames];
  float back[2][kHopFrames];
};

// Constructed on the control thread.
class Diffuser {
 public:
  static constexpr int kPartitions = 16;
  static constexpr int kTaps = kPartitions * kHopFrames;

  // kHopFrames frames of the left and the right ambience. Audio.
  void Process(const float (&ambience)[2][kHopFrames], Diffused& out) KELDA_NONBLOCKING;

 private:
  const DiffuserTables* tables_ = SharedDiffuserTables();
  HopHistory<kHopFrames> histories_[2];
  HopSpectra<2, kPartitions> inputs_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_DIFFUSER_H_
