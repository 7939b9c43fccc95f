// A short room around the virtual loudspeakers: sound that only HRIRs made tends to
// stay inside the head, and a few reflections bring it out (Begault et al., "Direct
// comparison of the impact of head tracking, reverberation, and individualized HRTFs",
// 2001).
#ifndef KELDA_UPMIX_LIB_BINAURAL_ROOM_H_
#define KELDA_UPMIX_LIB_BINAURAL_ROOM_H_

#include <array>
#include <memory>
#include <vector>

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/filters/convolver.h"

namespace kelda::upmix_lib {

// The planes reach the room on two sides, left and right.
inline constexpr int kRoomSides = 2;

// The centre reaches it 25 ms late: early reflections of a voice are heard as colour, later ones as
// a room. As late as that, they change no third octave of it by more than half a decibel.
inline constexpr int kRoomCentreDelayFrames = 1200;

// What the room adds at the ears to an impulse on either side, without the direct sound:
//
//   0      first reflection                   decay_s
//   |......|..|.||.|:.|:|:::::.:.:.:.. . . . .|
//          image sources   late tail
//
// Early: image sources of a shoebox up to the second order (Allen and Berkley, "Image
// method for efficiently simulating small-room acoustics", 1979), each through the
// HRIRs nearest to its direction. Late: noise that decays per frequency and whose
// coherence between the ears is that of a diffuse field (Borss and Martin, "An improved
// parametric model for the design of virtual acoustics", 2009).
struct RoomResponses {
  int taps = 0;                  // Per response; 0 if both parts are off.
  std::vector<float> responses;  // [side][ear][tap]
};

// The same parameters and HRIRs give the same responses. Control. Throws std::bad_alloc.
RoomResponses MakeRoomResponses(const RoomParameters& room, const HrirSet& hrirs);

// Renders the room of seven planes.
class Room {
 public:
  // `responses`: of PlaneResponses, not null; `centre_share` as for PlaneRenderer. Control.
  // Throws std::bad_alloc.
  Room(std::shared_ptr<const ConvolverResponses> responses, float centre_share);

  // Clears the signal history. Control.
  void Clear() {
    convolver_.Clear();
    centre_.Clear();
    centre_share_ = next_centre_share_;
  }

  // Moves `centre_share` to another value within the next block. Audio.
  void MoveCentreShare(float centre_share) KELDA_NONBLOCKING { next_centre_share_ = centre_share; }

  // Adds the room's sound to `left` and `right`; all planes have kBlockFrames samples,
  // all of them finite, and 0 if `silent`. Audio.
  void AddTo(const float* const* planes, bool silent, float* left, float* right) KELDA_NONBLOCKING;

  // Whether silence comes out as silence and leaves everything as it is. Audio.
  bool at_rest() const KELDA_NONBLOCKING;

 private:
  std::array<std::array<float, kPlanes>, kRoomSides> side_gains_;  // but for the centre share
  float centre_share_, next_centre_share_;
  Convolver convolver_;
  AlignedBuffer centre_;  // The last kRoomCentreDelayFrames of the plane, then the block.
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BINAURAL_ROOM_H_
