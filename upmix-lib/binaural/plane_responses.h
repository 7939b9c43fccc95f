// What renders planes to two ears, prepared once for all instances of a process that have the same
// ears and the same room. It is most of an instance's memory, and most of the time that loading one
// takes.
#ifndef KELDA_UPMIX_LIB_BINAURAL_PLANE_RESPONSES_H_
#define KELDA_UPMIX_LIB_BINAURAL_PLANE_RESPONSES_H_

#include <memory>

#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/filters/convolver.h"

namespace kelda::upmix_lib {

struct PlaneResponses {
  std::shared_ptr<const ConvolverResponses> direct;  // inputs: the planes
  // Inputs: the sides of the room, kRoomSides. Null if both its parts are off. What has decayed by
  // 66 dB is left out.
  std::shared_ptr<const ConvolverResponses> room;
};

// They are kept for as long as somebody has them. Control, any thread. Throws std::bad_alloc.
PlaneResponses SharedPlaneResponses(const HrirSet& hrirs, const RoomParameters& room);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BINAURAL_PLANE_RESPONSES_H_
