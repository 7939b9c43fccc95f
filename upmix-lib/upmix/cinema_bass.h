// The cinema upmix's low-frequency management: a crossover after S. H. Linkwitz and E.
// Riley ("Active crossover networks for noncoincident drivers", JAES 24, 1976), fourth
// order. Its two outputs are in phase everywhere and add up to an all-pass response.
#ifndef KELDA_UPMIX_LIB_UPMIX_CINEMA_BASS_H_
#define KELDA_UPMIX_LIB_UPMIX_CINEMA_BASS_H_

#include "platform/nonblocking.h"
#include "upmix-lib/filters/biquad_design.h"

namespace kelda::upmix_lib {

class BassSplitter {
 public:
  // Control.
  explicit BassSplitter(float crossover_hz);

  // Clears the signal history. Control.
  void Clear();

  // Whether silence would come out as silence and leave everything as it is. Audio.
  bool at_rest() const KELDA_NONBLOCKING;

  // Writes the parts of `left` and `right` above the crossover and those below it. `frames`
  // frames each, finite; outputs may be the inputs. Audio.
  void Process(const float* left, const float* right, int frames, float* const (&high)[2],
               float* const (&low)[2]) KELDA_NONBLOCKING;

 private:
  // Left and right through the high-pass, then through the low-pass.
  typedef double Lanes __attribute__((vector_size(32)));
  static constexpr int kSections = 2;  // The same section twice.

  Lanes b0_, b1_, b2_, a1_, a2_;
  Lanes state_[kSections][2] = {};
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_CINEMA_BASS_H_
