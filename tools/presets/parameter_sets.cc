#include "tools/presets/parameter_sets.h"

#include <cstring>
#include <string_view>

#include "tools/core/decimal.h"
#include "upmix-lib/binaural/room_parameters.h"
#include "upmix-lib/level/level_parameters.h"
#include "upmix-lib/upmix/cinema_parameters.h"
#include "upmix-lib/upmix/music_parameters.h"

namespace kelda::tools {
namespace {

using upmix_lib::CinemaParameters;
using upmix_lib::kCinemaFields;
using upmix_lib::kCinemaKind;
using upmix_lib::kLevelFields;
using upmix_lib::kLevelKind;
using upmix_lib::kMusicFields;
using upmix_lib::kMusicKind;
using upmix_lib::kRoomFields;
using upmix_lib::LevelParameters;
using upmix_lib::MusicParameters;
using upmix_lib::ParameterField;
using upmix_lib::RoomParameters;

constexpr ParameterMeaning kMusicMeanings[] = {
    {"centre_amount", "", "share of centred direct sound that moves to the centre speaker"},
    {"centre_level_db", "dB", "level of the centre speaker"},
    {"wide_amount", "", "share of the other front sound that moves to the sides"},
    {"direct_emphasis", "", "higher values keep more direct sound out of the surround speakers"},
    {"ambience_amount", "", "share of the ambience that moves to the surround speakers"},
    {"surround_level_db", "dB", "level of the surround speakers"},
    {"back_share", "", "share of the surround power that goes to the back"},
    {"decorrelation", "", "decorrelation of the surround speakers from each other"},
    {"coherence_smoothing_ms", "ms",
     "time constant of the powers that tell direct sound from ambience"},
    {"gain_smoothing_ms", "ms", "time constant of the gains"},
    {"bass_crossover_hz", "Hz", "half of the ambience an octave below it stays in front; 0: none"},
    {"output_gain_db", "dB", "level of the whole output"},
};

constexpr ParameterMeaning kCinemaMeanings[] = {
    {"dialogue_amount", "", "share of centred direct sound that moves to the centre speaker"},
    {"dialogue_level_db", "dB", "level of the centre speaker"},
    {"surround_amount", "", "share of the ambience that moves to the surround speakers"},
    {"surround_level_db", "dB", "level of the surround speakers"},
    {"back_share", "", "share of the surround power that goes to the back"},
    {"width", "", "share of the ambience left in front that moves to the sides"},
    {"bass_crossover_hz", "Hz", "below it the sound bypasses the HRIRs"},
    {"bass_level_db", "dB", "level of the sound below the crossover"},
    {"room_level_db", "dB", "level of the room's late tail; -80: no tail"},
    {"room_decay_s", "s", "time in which the tail decays by 60 dB"},
    {"room_early_level_db", "dB", "level of the room's first reflections; -80: none"},
    {"output_gain_db", "dB", "level of the whole output"},
    {"dialogue_ducking_db", "dB", "attenuation of all else while somebody speaks in the centre"},
};

constexpr ParameterMeaning kLevelMeanings[] = {
    {"target_lufs", "LUFS", "loudness that levelling steers towards"},
    {"strength", "", "share of the distance to the target that is corrected"},
    {"max_boost_db", "dB", "largest gain of levelling"},
    {"max_cut_db", "dB", "largest attenuation of levelling"},
    {"max_limiting_db", "dB", "largest limiting of the peaks that a boost may cause"},
    {"boost_db_per_s", "dB/s", "fastest rise of the levelling gain"},
    {"cut_db_per_s", "dB/s", "fastest fall of the levelling gain"},
    {"window_s", "s", "length of the programme over which the loudness is measured"},
    {"ceiling_dbtp", "dBTP", "true-peak ceiling of the output"},
    {"limiter_release_ms", "ms", "time constant of the limiter's recovery"},
    {"gain_db", "dB", "fixed gain ahead of levelling"},
};

constexpr ParameterMeaning kRoomMeanings[] = {
    {"early_level_db", "dB", "energy of the first reflections, relative to the direct sound's"},
    {"late_level_db", "dB", "energy of the late tail, relative to the direct sound's"},
    {"decay_s", "s", "time in which the tail decays by 60 dB, at low and middle frequencies"},
    {"size_m", "m", "length of the room, which sets the delays of the reflections"},
    {"damping_hz", "Hz", "frequency at which the tail decays twice as fast"},
};

// Whether every field, except the reserved ones at the end, has a meaning, in the same order.
constexpr bool Complete(std::span<const ParameterField> fields,
                        std::span<const ParameterMeaning> meanings) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::string_view name = fields[i].name;
    if (name.starts_with("reserved") != (i >= meanings.size())) {
      return false;
    }
    if (i < meanings.size() && name != meanings[i].key) {
      return false;
    }
  }
  return meanings.size() <= fields.size();
}
static_assert(Complete(kMusicFields, kMusicMeanings));
static_assert(Complete(kCinemaFields, kCinemaMeanings));
static_assert(Complete(kLevelFields, kLevelMeanings));
static_assert(Complete(kRoomFields, kRoomMeanings));

const ParameterSet kSets[] = {
    {"upmix", "Music upmix", &kMusicKind, sizeof(MusicParameters), kMusicFields, kMusicMeanings},
    {"cinema", "Cinema upmix", &kCinemaKind, sizeof(CinemaParameters), kCinemaFields,
     kCinemaMeanings},
    {"level", "Level control", &kLevelKind, sizeof(LevelParameters), kLevelFields, kLevelMeanings},
    {"room", "Room around the virtual loudspeakers", nullptr, sizeof(RoomParameters), kRoomFields,
     kRoomMeanings},
};

}  // namespace

std::span<const ParameterSet> ParameterSets() { return kSets; }
const ParameterSet& MusicParameterSet() { return kSets[0]; }
const ParameterSet& CinemaParameterSet() { return kSets[1]; }
const ParameterSet& LevelParameterSet() { return kSets[2]; }
const ParameterSet& RoomParameterSet() { return kSets[3]; }

float ReadParameter(std::span<const std::byte> parameters, const ParameterField& field) {
  float value;
  std::memcpy(&value, parameters.data() + field.offset_bytes, sizeof(value));
  return value;
}

void WriteParameter(std::span<std::byte> parameters, const ParameterField& field, float value) {
  std::memcpy(parameters.data() + field.offset_bytes, &value, sizeof(value));
}

std::string FormatRange(const ParameterField& field, const ParameterMeaning& meaning) {
  std::string range = FormatFloat(field.min) + " to " + FormatFloat(field.max);
  if (*meaning.unit != '\0') {
    range.append(" ").append(meaning.unit);
  }
  return range;
}

}  // namespace kelda::tools
