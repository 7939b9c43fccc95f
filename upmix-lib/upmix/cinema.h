// The cinema upmix: stereo to the two ears, with dialogue ahead, a wide surround field
// and a room.
//
//   L, R --guard--> BassSplitter --above--> PlaneUpmix --7 planes--> PlaneRenderer --+
//                        |               64 frames at a time       HRIRs and room    +--> L, R
//                        +--below, in mono--> delay --> gain per ear ----------------+
//
// Bass goes past HRIRs, decorrelation and room, which would only colour it. At the crossover
// it has the level and the phase that the centre plane's HRIRs give the sound above.
//
//   Cinema cinema(parameters, hrirs);  // control thread
//   cinema.Process(in, out);           // audio thread, 1024 frames of 2 planes
//   cinema.Flush();                    // control thread, before another stream
//
// "Control" and "Audio" name the calling thread, see base/audio_format.h.
#ifndef KELDA_UPMIX_LIB_UPMIX_CINEMA_H_
#define KELDA_UPMIX_LIB_UPMIX_CINEMA_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/aligned_buffer.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/binaural/plane_renderer.h"
#include "upmix-lib/upmix/cinema_bass.h"
#include "upmix-lib/upmix/cinema_parameters.h"
#include "upmix-lib/upmix/plane_upmix.h"

namespace kelda::upmix_lib {

// How bass reaches the ears in step with the sound above the crossover.
struct BassPath {
  float gain[kEars];
  int delay_frames;  // the upmix's latency included
};

class Cinema {
 public:
  // `parameters` are within their ranges. Control. Throws std::bad_alloc.
  Cinema(const CinemaParameters& parameters, const HrirSet& hrirs);

  // Clears all signal history. Control.
  void Flush();

  // kBlockFrames frames of left and right; in and out do not overlap. Input that is no
  // audio (NaN, infinite) counts as silence. Audio.
  void Process(const float* const* in, float* const* out) KELDA_NONBLOCKING;

 private:
  void AddBass(float* left, float* right);

  PlaneTuning plane_tuning_;
  BassSplitter splitter_;
  PlaneUpmix upmix_;
  PlaneRenderer renderer_;  // Holds the planes as its inputs.
  BassPath bass_path_;
  AlignedBuffer bass_;  // The last delay_frames, then kBlockFrames new ones.
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_CINEMA_H_
