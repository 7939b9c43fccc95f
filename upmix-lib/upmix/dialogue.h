// Dialogue in front of the rest of a film: hears whether somebody speaks in the centre plane, and
// holds the other planes back meanwhile.
//
//   FC --2048 points--> pitch, loudness --> evidence of a second --> speech? --> gains
//
// Speech is what glides in pitch, as hardly an instrument does, and has gaps in between, as hardly
// any music does (after E. Scheirer, M. Slaney, "Construction and evaluation of a robust
// multifeature speech/music discriminator", ICASSP 1997, and J. Saunders, "Real-time
// discrimination of broadcast speech/music", ICASSP 1996: low-energy frames and tonality over
// time). Both are averages of about a second, so the first words of a scene pass before anything
// is held back.
#ifndef KELDA_UPMIX_LIB_UPMIX_DIALOGUE_H_
#define KELDA_UPMIX_LIB_UPMIX_DIALOGUE_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {

// Windows and transforms, as SharedAnalysisTables. Control. Throws std::bad_alloc.
struct SpeechTables;
const SpeechTables* SharedSpeechTables();

// Whether somebody speaks. Constructed on the control thread.
class SpeechDetector {
 public:
  // Whether silence would leave everything as it is: without power to remember, the shares have
  // come to rest, too. Audio.
  bool at_rest() const {
    return silent_blocks_ == kFrames / kBlockFrames && mean_power_ == 0.0f && blocks_ == 0 &&
           hold_blocks_ == 0;
  }

  // Takes the next kBlockFrames frames, all finite, and 0 if `silent`; returns whether somebody
  // speaks in them. Audio.
  bool Process(const float* block, bool silent) KELDA_NONBLOCKING;

 private:
  static constexpr int kFrames = 2 * kBlockFrames;

  struct Pitch {
    float octaves;  // log2 of the period in frames
    float clarity;  // 1: periodic
  };
  Pitch Listen(const float* block, float& power);

  const SpeechTables* tables_ = SharedSpeechTables();
  alignas(kSimdAlignmentBytes) float frames_[kFrames] = {};  // the last two blocks
  Pitch last_ = {};
  float mean_power_ = 0.0f;
  float gliding_ = 0.0f, steady_ = 0.0f, gaps_ = 0.0f;  // shares of the last second
  int blocks_ = 0;                                      // of sound since the last silence
  int silent_blocks_ = 2;  // so far, at most the two that frames_ holds
  bool speech_ = false;
  int hold_blocks_ = 0;  // that a gap between words may still last
};

class DialogueFocus {
 public:
  // `ducking_db`: by how much the other planes are held back, 0 or more; FL and FR less, where they
  // are not much softer than the voice. Control.
  explicit DialogueFocus(float ducking_db);

  // Clears the signal history. Control.
  void Clear();

  // Scales kBlockFrames frames of each plane. Meanwhile what FL and FR share moves to FC, since it
  // is speech, too, and FC makes up for the loudness that the others lose, as far as 4.6 dB go.
  // `silent`: they are all 0. Audio.
  void Process(float* const (&planes)[kPlanes], bool silent) KELDA_NONBLOCKING;

  // Whether silence would leave everything as it is. Audio.
  bool at_rest() const {
    return detector_.at_rest() && focus_ == 0.0f && voice_power_ == 0.0f && lost_power_ == 0.0f;
  }

  // 0 without speech, 1 with it, as of the end of the last block. Audio.
  float focus() const { return focus_; }

 private:
  struct Gains {
    float front[kEars] = {1.0f, 1.0f}, surround = 1.0f, centre = 1.0f;
    float shared = 0.0f;  // part of what FL and FR share that moves to FC
  };
  // Takes the powers of a block: what speech in it would be balanced by.
  void Weigh(const float* const (&planes)[kPlanes], bool silent);
  // For the end of that block.
  Gains Balance() const;

  SpeechDetector detector_;
  float attack_, release_;  // shares of the way that a block takes
  float balance_step_, forget_step_;
  float ducking_;                      // gain of the others while somebody speaks, less 1
  float focus_ = 0.0f;                 // 0: no speech, 1: speech
  float quiet_[kEars] = {1.0f, 1.0f};  // how much softer than the voice the fronts are, 0 to 1
  float voice_power_ = 0.0f;           // of FC, its mean
  float lost_power_ = 0.0f;            // of what the others lose while somebody speaks, its mean
  Gains gains_;                        // as of the end of the last block
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_DIALOGUE_H_
