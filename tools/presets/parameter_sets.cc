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
    {"centre_amount", "", "share of centred direct sound that moves to the centre speaker",
     "voices exactly in the centre; down for a softer, wider centre"},
    {"centre_level_db", "dB", "level of the centre speaker", "louder voices"},
    {"wide_amount", "", "share of the other front sound that moves to the sides",
     "a front stage that reaches beyond the loudspeakers", "with sound at the sides of the front"},
    {"direct_emphasis", "", "higher values keep more direct sound out of the surround speakers",
     "cleaner surrounds; down for more ambience with soloists playing",
     "with ambience in the programme"},
    {"ambience_amount", "", "share of the ambience that moves to the surround speakers",
     "more of the ambience around you; down if wide instruments move behind you",
     "with ambience in the programme"},
    {"surround_level_db", "dB", "level of the surround speakers",
     "louder surroundings (the downmix no longer balances by ear)",
     "with ambience in the programme"},
    {"back_share", "", "share of the surround power that goes to the back",
     "ambience behind rather than beside", "with ambience in the programme"},
    {"decorrelation", "", "decorrelation of the surround speakers from each other",
     "ambience that has no place; down for one that leans towards its side",
     "with ambience in the programme"},
    {"coherence_smoothing_ms", "ms",
     "time constant of the powers that tell direct sound from ambience",
     "calmer images; down for quicker ones", "where images move"},
    {"gain_smoothing_ms", "ms", "time constant of the gains",
     "calmer images; down for quicker ones", "where images move"},
    {"bass_crossover_hz", "Hz", "half of the ambience an octave below it stays in front; 0: none",
     "more bass kept in front: half of the ambience's power an octave below it",
     "with ambience in the bass"},
    {"output_gain_db", "dB", "level of the whole output",
     "a louder upmix; the level control takes back what it can"},
};

constexpr ParameterMeaning kCinemaMeanings[] = {
    {"dialogue_amount", "", "share of centred direct sound that moves to the centre speaker",
     "speech exactly in the centre; down for a wider one"},
    {"dialogue_level_db", "dB", "level of the centre speaker", "louder speech"},
    {"surround_amount", "", "share of the ambience that moves to the surround speakers",
     "more of the ambience around you", "with ambience in the programme"},
    {"surround_level_db", "dB", "level of the surround speakers",
     "a louder field around the speech", "with ambience in the programme"},
    {"back_share", "", "share of the surround power that goes to the back",
     "a field behind rather than beside", "with ambience in the programme"},
    {"width", "", "share of the ambience left in front that moves to the sides",
     "a front that reaches to the sides", "with ambience in the programme"},
    {"bass_crossover_hz", "Hz", "below it the sound bypasses the HRIRs",
     "a low end that goes past the ears' filters further up"},
    {"bass_level_db", "dB", "level of the sound below the crossover", "a stronger low end"},
    {"room_level_db", "dB", "level of the room's late tail; -80: no tail",
     "a room that is heard longer after the sound; -80 dB turns the tail off",
     "with more than a voice in the programme"},
    {"room_decay_s", "s", "time in which the tail decays by 60 dB", "a longer tail",
     "with more than a voice in the programme"},
    {"room_early_level_db", "dB", "level of the room's first reflections; -80: none",
     "a field further out of the head; -80 dB turns the reflections off",
     "with more than a voice in the programme"},
    {"output_gain_db", "dB", "level of the whole output",
     "a louder upmix; the level control takes back what it can"},
    {"dialogue_ducking_db", "dB", "attenuation of all else while somebody speaks in the centre",
     "all else held back further while somebody speaks; 0: not at all",
     "while somebody speaks in the centre"},
};

constexpr ParameterMeaning kLevelMeanings[] = {
    {"target_lufs", "LUFS", "loudness that levelling steers towards",
     "louder; above -14 the limiter starts to work on lively music",
     "as the level control follows, within seconds"},
    {"strength", "", "share of the distance to the target that is corrected",
     "more even loudness between programmes; 0 leaves only the limiter",
     "as the level control follows, within seconds"},
    {"max_boost_db", "dB", "largest gain of levelling",
     "quiet programmes and those with high peaks made louder",
     "with a programme softer than the target"},
    {"max_cut_db", "dB", "largest attenuation of levelling",
     "loud programmes made softer, down to the target", "with a programme louder than the target"},
    {"max_limiting_db", "dB", "largest limiting of the peaks that a boost may cause",
     "quiet programmes and those with high peaks made louder",
     "with a soft programme that has high peaks"},
    {"boost_db_per_s", "dB/s", "fastest rise of the levelling gain",
     "a quicker way to the level of a new programme", "after a programme has become softer"},
    {"cut_db_per_s", "dB/s", "fastest fall of the levelling gain",
     "a quicker way to the level of a new programme", "after a programme has become louder"},
    {"window_s", "s", "length of the programme over which the loudness is measured",
     "more of a programme's own dynamics; down to even out scenes within it",
     "where loudness changes within the programme, over tens of seconds"},
    {"ceiling_dbtp", "dBTP", "true-peak ceiling of the output",
     "a louder output; leave room for the overshoot of lossy codecs after the phone",
     "with peaks at the ceiling"},
    {"limiter_release_ms", "ms", "time constant of the limiter's recovery",
     "cleaner limiting; down for a louder one", "while the limiter works"},
    {"gain_db", "dB", "fixed gain ahead of levelling",
     "a louder input: a fixed gain ahead of all this",
     "until the level control has followed; with strength 0 always"},
};

constexpr ParameterMeaning kRoomMeanings[] = {
    {"early_level_db", "dB", "energy of the first reflections, relative to the direct sound's",
     "sound further out of the head; -80 dB turns the reflections off",
     "in music; cinema has a room of its own"},
    {"late_level_db", "dB", "energy of the late tail, relative to the direct sound's",
     "more space; -80 dB turns the tail off", "in music; cinema has a room of its own"},
    {"decay_s", "s", "time in which the tail decays by 60 dB, at low and middle frequencies",
     "a longer tail", "in music; cinema has a room of its own"},
    {"size_m", "m", "length of the room, which sets the delays of the reflections",
     "a larger room: later reflections", "in music; cinema has a room of its own"},
    {"damping_hz", "Hz", "frequency at which the tail decays twice as fast",
     "a brighter room; down for a softer one", "in music; cinema has a room of its own"},
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
