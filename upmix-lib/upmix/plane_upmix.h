// Stereo to seven planes, 64 frames at a time, 96 frames late: what the music and the
// cinema upmix have in common.
//
//   L --+-- Analysis --+                    +--> common part -----------------> FC
//   R --+-- Analysis --+-> Decomposition ---+--> left ambience --+
//       |                  FixedLagFilters  +--> right ambience -+-> Diffuser --> SL SR BL BR
//       |
//       +-- delay 96 --> minus common part, minus ambience ------> FL FR
//
// FL and FR keep what the others were given, whatever the gains do. So direct sound adds up to
// the input again,
//
//   L = FL + sqrt(1/2) FC + A_left,   R = FR + sqrt(1/2) FC + A_right
//
// (each plane divided by its plane_gain), and the four surround planes have together 1.4 times the
// power of the ambience A, which makes up for what no longer adds in phase. Bass leaves A by a
// filter of its own, of first order: what it keeps in front and what it lets through have together
// the power of what comes in.
//
// "Control" and "Audio" name the calling thread, see base/audio_format.h.
#ifndef KELDA_UPMIX_LIB_UPMIX_PLANE_UPMIX_H_
#define KELDA_UPMIX_LIB_UPMIX_PLANE_UPMIX_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/status.h"
#include "upmix-lib/upmix/analysis.h"
#include "upmix-lib/upmix/decomposition.h"
#include "upmix-lib/upmix/diffuser.h"
#include "upmix-lib/upmix/fixed_lag_filters.h"

namespace kelda::upmix_lib {

struct PlaneTuning {
  DecompositionTuning decomposition;
  float back_share;           // 0..1: of the surround power that goes to BL and BR
  float decorrelation;        // 0..1: from the ambience as it is to that of Diffuser
  float bass_crossover_hz;    // ambience an octave below it is half in front; 0: none is
  float wide_amount;          // 0..1: share of FL and FR that moves to SL and SR
  float plane_gain[kPlanes];  // linear, applied last
};

// Has the tables built that all upmixes share, so that one can be constructed without memory.
// Returns kOutOfMemory where there is none. Control; several threads may call at once.
Status PreparePlaneUpmix();

class PlaneUpmix {
 public:
  // Throws std::bad_alloc unless PreparePlaneUpmix has succeeded. Control.
  explicit PlaneUpmix(const PlaneTuning& tuning);

  // kHopFrames frames of each plane; in and out do not overlap. Input that is no audio
  // (NaN, infinite) counts as silence. Audio.
  void Process(const float* const* in, float* const* out) KELDA_NONBLOCKING;

  // Whether silence comes out as silence and leaves all but the grid of hops as it is; what Process
  // would then do with kBlockFrames frames of it. Audio.
  bool at_rest() const { return at_rest_; }
  void ProcessSilentBlock() KELDA_NONBLOCKING;

  // What the filters move to, for measurements. Audio.
  const ExtractionGains& gains() const { return decomposition_.gains(); }

 private:
  // Hops of silence after which no finite memory sounds: those of the analysis, then of the filters
  // and of the diffuser.
  static constexpr int kSilentHops =
      kLongFrames / kHopFrames + FixedLagFilters::kPartitions + Diffuser::kPartitions + 4;
  // Hops of silence after which the past counts no longer, so that it costs no longer: 5 s. It
  // would take 40 to fade out by itself.
  static constexpr int kForgetHops = 5 * kSampleRateHz / kHopFrames;

  bool AtRest();

  Analysis left_, right_;
  Decomposition decomposition_;
  FixedLagFilters filters_;
  Diffuser diffuser_;
  // What of the ambience stays in front: a low-pass each side, and its step a frame.
  float bass_step_, bass_[2] = {};
  float back_share_, decorrelation_, wide_amount_;
  float plane_gain_[kPlanes];
  int silent_hops_ = 0;   // so far, at most kForgetHops
  bool at_rest_ = false;  // silence comes out as silence and leaves all but the grid as it is
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_PLANE_UPMIX_H_
