#ifndef KELDA_UPMIX_LIB_BINAURAL_ROOM_PARAMETERS_H_
#define KELDA_UPMIX_LIB_BINAURAL_ROOM_PARAMETERS_H_

#include <cstddef>
#include <cstdint>

#include "upmix-lib/files/data_header.h"

namespace kelda::upmix_lib {

// The room around the virtual loudspeakers; a level of kRoomOffDb leaves its part out.
struct RoomParameters {
  float early_level_db;  // energy of the first reflections, relative to the direct sound's
  float late_level_db;   // energy of the late tail, relative to the direct sound's
  float decay_s;         // RT60 of the late tail at low and middle frequencies
  float size_m;          // length of the room: the reflections' delays follow from it
  float damping_hz;      // where the tail decays twice as fast
  float reserved[3];     // 0

  bool operator==(const RoomParameters&) const = default;
};
static_assert(sizeof(RoomParameters) == 32);

inline constexpr float kRoomOffDb = -80.0f;

inline constexpr ParameterField kRoomFields[] = {
    {"early_level_db", offsetof(RoomParameters, early_level_db), kRoomOffDb, 0.0f, -18.0f},
    {"late_level_db", offsetof(RoomParameters, late_level_db), kRoomOffDb, 0.0f, -12.0f},
    {"decay_s", offsetof(RoomParameters, decay_s), 0.05f, 2.0f, 0.2f},
    {"size_m", offsetof(RoomParameters, size_m), 2.5f, 20.0f, 5.0f},
    {"damping_hz", offsetof(RoomParameters, damping_hz), 500.0f, 20000.0f, 5000.0f},
    {"reserved[0]", offsetof(RoomParameters, reserved[0]), 0.0f, 0.0f, 0.0f},
    {"reserved[1]", offsetof(RoomParameters, reserved[1]), 0.0f, 0.0f, 0.0f},
    {"reserved[2]", offsetof(RoomParameters, reserved[2]), 0.0f, 0.0f, 0.0f},
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BINAURAL_ROOM_PARAMETERS_H_
