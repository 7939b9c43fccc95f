// The cinema upmix: stereo to the two ears, with dialogue ahead, a wide surround field
// and a room.
//
//   L, R --guard--> BassSplitter --above--> PlaneUpmix --7 planes--> FrontWidth, DialogueFocus
//                        |               64 frames at a time                 |
//                        |                                            PlaneRenderer --+
//                        |                                            HRIRs and room  +--> L, R
//                        +--below--> delay --> gain, each channel to its ear ---------+
//
// Bass goes past HRIRs, decorrelation and room, which would only colour it. At the crossover
// it has the level and the phase that the centre plane's HRIRs give the sound above. It stays
// stereo: the mean of both channels would lose half the power of what they do not share.
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
#include "upmix-lib/upmix/dialogue.h"
#include "upmix-lib/upmix/plane_upmix.h"

namespace kelda::upmix_lib {

// How bass reaches the ears in step with the sound above the crossover.
struct BassPath {
  float gain[kEars];
  int delay_frames;  // the upmix's latency included
};

// Moves what is left in FL and FR to the sides, as far as it is ambience: a side whose front is
// much louder than its surrounds has a source there, which stays in its place.
class FrontWidth {
 public:
  // `width`: the share that moves, 0..1; `surround_gain`: of the surround planes. Control.
  FrontWidth(float width, float surround_gain);

  // Clears the signal history. Control.
  void Clear();

  // Whether silence would leave everything as it is. Audio.
  bool at_rest() const KELDA_NONBLOCKING;

  // kBlockFrames frames of each plane; nothing to do if they are `silent`, and its memory is.
  // Audio.
  void Process(float* const (&planes)[kPlanes], bool silent) KELDA_NONBLOCKING;

 private:
  struct Side {
    float front[2] = {}, surround[2] = {};  // mean powers, smoothed once and twice
    float share = 0.0f;                     // that moves now

    bool at_rest() const {
      return front[0] == 0.0f && front[1] == 0.0f && surround[0] == 0.0f && surround[1] == 0.0f &&
             share == 0.0f;
    }
  };

  void ProcessHop(Side& side, float* front, float* surround, const float* back) const;

  float width_, surround_gain_, step_;
  Side sides_[kEars];
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

  // The same, for measurements: `planes` takes what is rendered, kPlanes planes of kBlockFrames
  // samples, one after the other. Audio.
  void Process(const float* const* in, float* planes, float* const* out) KELDA_NONBLOCKING;

 private:
  bool AtRest() const KELDA_NONBLOCKING;
  bool ProcessAtRest(const float* const* in, float* const* out);
  void ProcessSound(const float* const* in, float* planes, float* const* out);
  void AddBass(float* const* out);

  PlaneTuning plane_tuning_;
  BassSplitter splitter_;
  PlaneUpmix upmix_;
  FrontWidth width_;
  DialogueFocus focus_;
  PlaneRenderer renderer_;
  BassPath bass_path_;
  AlignedBuffer bass_[2];  // The last delay_frames, then kBlockFrames new ones.
  bool at_rest_ = false;   // Silence comes out as silence and leaves all but the grid as it is.
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_CINEMA_H_
