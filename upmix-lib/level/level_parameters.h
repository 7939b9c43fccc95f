#ifndef KELDA_UPMIX_LIB_LEVEL_LEVEL_PARAMETERS_H_
#define KELDA_UPMIX_LIB_LEVEL_LEVEL_PARAMETERS_H_

#include <cstddef>
#include <cstdint>

#include "upmix-lib/files/data_header.h"

namespace kelda::upmix_lib {

struct LevelParameters {
  DataHeader header;
  float target_lufs;         // loudness that levelling steers towards
  float strength;            // share of the distance to the target that is corrected
  float max_boost_db;        // most that levelling amplifies
  float max_cut_db;          // most that levelling attenuates
  float max_limiting_db;     // most that a boost makes the limiter take off the peaks
  float boost_db_per_s;      // fastest rise of the levelling gain
  float cut_db_per_s;        // fastest fall of the levelling gain
  float window_s;            // length of the programme that the loudness is measured over
  float ceiling_dbtp;        // true-peak ceiling of the output
  float limiter_release_ms;  // time constant of the limiter's recovery
  float gain_db;             // of all that comes in, before it is measured
  float reserved;            // 0
};
static_assert(sizeof(LevelParameters) == 64);

inline constexpr DataKind kLevelKind = {{'K', 'L', 'E', 'V'}, 1, sizeof(LevelParameters)};

inline constexpr ParameterField kLevelFields[] = {
    {"target_lufs", offsetof(LevelParameters, target_lufs), -36.0f, -8.0f, -16.0f},
    {"strength", offsetof(LevelParameters, strength), 0.0f, 1.0f, 1.0f},
    {"max_boost_db", offsetof(LevelParameters, max_boost_db), 0.0f, 24.0f, 15.0f},
    {"max_cut_db", offsetof(LevelParameters, max_cut_db), 0.0f, 40.0f, 24.0f},
    {"max_limiting_db", offsetof(LevelParameters, max_limiting_db), 0.0f, 24.0f, 8.0f},
    {"boost_db_per_s", offsetof(LevelParameters, boost_db_per_s), 0.05f, 20.0f, 3.0f},
    {"cut_db_per_s", offsetof(LevelParameters, cut_db_per_s), 0.05f, 40.0f, 6.0f},
    {"window_s", offsetof(LevelParameters, window_s), 3.0f, 60.0f, 30.0f},
    {"ceiling_dbtp", offsetof(LevelParameters, ceiling_dbtp), -20.0f, 0.0f, -1.0f},
    {"limiter_release_ms", offsetof(LevelParameters, limiter_release_ms), 5.0f, 1000.0f, 80.0f},
    {"gain_db", offsetof(LevelParameters, gain_db), -24.0f, 24.0f, 0.0f},
    {"reserved", offsetof(LevelParameters, reserved), 0.0f, 0.0f, 0.0f},
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_LEVEL_LEVEL_PARAMETERS_H_
