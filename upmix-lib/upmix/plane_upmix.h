// Stereo to seven planes, 64 frames at a time, 96 frames late: what the music and the
// cinema upmix have in common.
//
//   L --+-- Analysis --+                    +-- Synthesis --> common part -------> FC
//   R --+-- Analysis --+-> Decomposition ---+-- Synthesis --> left ambience  --+
//       |                                   +-- Synthesis --> right ambience --+
//       |                                                                      |
//       +-- delay 96 --> minus common part, minus ambience -----> FL FR        |
//                                                          SL SR BL BR <-------+
//
// The ambience A of one side is shared by its two surround planes so that they differ
// from each other but add up to A: side = (1 - s) A + k D and back = s A - k D with a
// decorrelated signal D and k^2 = s (1 - s), which also gives them the shares 1 - s and
// s of the power (as Lauridsen's pseudo-stereo does; M. R. Schroeder, "An artificial
// stereophonic effect obtained from a single signal", JAES 6, 1958). Since FL and FR
// keep what the others were given, the planes add up to the input whatever the gains do:
//
//   L = FL + sqrt(1/2) FC + SL + BL,   R = FR + sqrt(1/2) FC + SR + BR
//
// (each plane divided by its plane_gain).
//
// "Control" and "Audio" name the calling thread, see base/audio_format.h.
#ifndef KELDA_UPMIX_LIB_UPMIX_PLANE_UPMIX_H_
#define KELDA_UPMIX_LIB_UPMIX_PLANE_UPMIX_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/upmix/decomposition.h"
#include "upmix-lib/upmix/decorrelator.h"

namespace kelda::upmix_lib {

struct PlaneTuning {
  DecompositionTuning decomposition;
  float back_share;           // s above, 0..1
  float decorrelation;        // 0..1: of k above
  float wide_amount;          // 0..1: share of FL and FR that moves to SL and SR
  float plane_gain[kPlanes];  // linear, applied last
};

class PlaneUpmix {
 public:
  // Throws std::bad_alloc unless PrepareFilterBanks has succeeded. Control.
  explicit PlaneUpmix(const PlaneTuning& tuning);

  // kHopFrames frames of each plane; in and out do not overlap. Input that is no audio
  // (NaN, infinite) counts as silence. Audio.
  void Process(const float* const* in, float* const* out) KELDA_NONBLOCKING;

  // The current gains of the bands, for measurements. Audio.
  const BandGains& gains() const { return decomposition_.gains(); }

 private:
  Analysis left_analysis_, right_analysis_;
  Decomposition decomposition_;
  Synthesis common_, left_ambience_, right_ambience_;
  Decorrelator decorrelator_;
  PlaneTuning tuning_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_PLANE_UPMIX_H_
