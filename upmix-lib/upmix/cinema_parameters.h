#ifndef KELDA_UPMIX_LIB_UPMIX_CINEMA_PARAMETERS_H_
#define KELDA_UPMIX_LIB_UPMIX_CINEMA_PARAMETERS_H_

#include <cstddef>
#include <cstdint>

#include "upmix-lib/files/data_header.h"

namespace kelda::upmix_lib {

struct CinemaParameters {
  DataHeader header;
  float dialogue_amount;      // share of centred direct sound that moves to FC
  float dialogue_level_db;    // of FC
  float surround_amount;      // share of the ambience that moves to the surround planes
  float surround_level_db;    // of the surround planes
  float back_share;           // of the surround power that goes to BL and BR
  float width;                // share of ambience left in FL and FR that moves to SL and SR
  float bass_crossover_hz;    // below it the sound goes past the HRIRs
  float bass_level_db;        // of what is below the crossover
  float room_level_db;        // of the late tail
  float room_decay_s;         // RT60 of the late tail
  float room_early_level_db;  // of the early reflections
  float output_gain_db;
  float dialogue_ducking_db;  // of everything beside FC while somebody speaks
  float reserved[3];          // 0
};
static_assert(sizeof(CinemaParameters) == 80);

inline constexpr DataKind kCinemaKind = {{'K', 'C', 'U', 'P'}, 2, sizeof(CinemaParameters)};

inline constexpr ParameterField kCinemaFields[] = {
    {"dialogue_amount", offsetof(CinemaParameters, dialogue_amount), 0.0f, 1.0f, 1.0f},
    {"dialogue_level_db", offsetof(CinemaParameters, dialogue_level_db), -12.0f, 12.0f, 0.0f},
    {"surround_amount", offsetof(CinemaParameters, surround_amount), 0.0f, 1.0f, 1.0f},
    {"surround_level_db", offsetof(CinemaParameters, surround_level_db), -40.0f, 12.0f, 0.0f},
    {"back_share", offsetof(CinemaParameters, back_share), 0.0f, 1.0f, 0.5f},
    {"width", offsetof(CinemaParameters, width), 0.0f, 1.0f, 0.3f},
    {"bass_crossover_hz", offsetof(CinemaParameters, bass_crossover_hz), 40.0f, 300.0f, 100.0f},
    {"bass_level_db", offsetof(CinemaParameters, bass_level_db), -24.0f, 12.0f, 0.0f},
    {"room_level_db", offsetof(CinemaParameters, room_level_db), -80.0f, 0.0f, -18.0f},
    {"room_decay_s", offsetof(CinemaParameters, room_decay_s), 0.05f, 2.0f, 0.25f},
    {"room_early_level_db", offsetof(CinemaParameters, room_early_level_db), -80.0f, 0.0f, -12.0f},
    {"output_gain_db", offsetof(CinemaParameters, output_gain_db), -24.0f, 12.0f, 0.0f},
    {"dialogue_ducking_db", offsetof(CinemaParameters, dialogue_ducking_db), 0.0f, 12.0f, 12.0f},
    {"reserved[0]", offsetof(CinemaParameters, reserved[0]), 0.0f, 0.0f, 0.0f},
    {"reserved[1]", offsetof(CinemaParameters, reserved[1]), 0.0f, 0.0f, 0.0f},
    {"reserved[2]", offsetof(CinemaParameters, reserved[2]), 0.0f, 0.0f, 0.0f},
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_CINEMA_PARAMETERS_H_
