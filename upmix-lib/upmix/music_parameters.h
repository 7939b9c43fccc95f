#ifndef KELDA_UPMIX_LIB_UPMIX_MUSIC_PARAMETERS_H_
#define KELDA_UPMIX_LIB_UPMIX_MUSIC_PARAMETERS_H_

#include <cstddef>
#include <cstdint>

#include "upmix-lib/files/data_header.h"

namespace kelda::upmix_lib {

struct MusicParameters {
  DataHeader header;
  float centre_amount;           // share of centred direct sound that moves to FC
  float centre_level_db;         // of FC
  float wide_amount;             // share of what is left in FL and FR that moves to SL and SR
  float direct_emphasis;         // more keeps direct sound out of the surround planes better
  float ambience_amount;         // share of the ambience that moves to the surround planes
  float surround_level_db;       // of the surround planes
  float back_share;              // of the surround power that goes to BL and BR
  float decorrelation;           // of the surround planes from each other
  float coherence_smoothing_ms;  // time constant of the powers that all is decided by
  float gain_smoothing_ms;       // time constant of the gains
  float bass_crossover_hz;       // an octave below it half of the ambience stays in front; 0: none
  float output_gain_db;
};
static_assert(sizeof(MusicParameters) == 64);

inline constexpr DataKind kMusicKind = {{'K', 'M', 'U', 'P'}, 1, sizeof(MusicParameters)};

inline constexpr ParameterField kMusicFields[] = {
    {"centre_amount", offsetof(MusicParameters, centre_amount), 0.0f, 1.0f, 1.0f},
    {"centre_level_db", offsetof(MusicParameters, centre_level_db), -12.0f, 12.0f, 0.0f},
    {"wide_amount", offsetof(MusicParameters, wide_amount), 0.0f, 1.0f, 0.0f},
    {"direct_emphasis", offsetof(MusicParameters, direct_emphasis), 1.0f, 16.0f, 6.0f},
    {"ambience_amount", offsetof(MusicParameters, ambience_amount), 0.0f, 1.0f, 1.0f},
    {"surround_level_db", offsetof(MusicParameters, surround_level_db), -24.0f, 12.0f, 0.0f},
    {"back_share", offsetof(MusicParameters, back_share), 0.0f, 1.0f, 0.4f},
    {"decorrelation", offsetof(MusicParameters, decorrelation), 0.0f, 1.0f, 1.0f},
    {"coherence_smoothing_ms", offsetof(MusicParameters, coherence_smoothing_ms), 5.0f, 500.0f,
     40.0f},
    {"gain_smoothing_ms", offsetof(MusicParameters, gain_smoothing_ms), 1.0f, 500.0f, 15.0f},
    {"bass_crossover_hz", offsetof(MusicParameters, bass_crossover_hz), 0.0f, 500.0f, 30.0f},
    {"output_gain_db", offsetof(MusicParameters, output_gain_db), -24.0f, 12.0f, 0.0f},
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_MUSIC_PARAMETERS_H_
