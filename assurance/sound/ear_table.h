// What reaches the ears, as figures of the table.
#ifndef KELDA_ASSURANCE_SOUND_EAR_TABLE_H_
#define KELDA_ASSURANCE_SOUND_EAR_TABLE_H_

#include <filesystem>
#include <optional>

#include "assurance/sound/figure.h"
#include "assurance/sound/mixes.h"
#include "tools/measure/stereo_system.h"

namespace kelda::sound {

// Of one mode of a system: lines, colour, coherence, bass, width, dialogue. `mode` begins the
// figures' names.
std::vector<Figure> EarFigures(const tools::StereoSystem& ears, const std::string& mode,
                               const std::vector<Mix>& mixes);

// Levelling: how soon the gain is right, and after a jump; and what switching on does to loudness.
// `target_lufs` is where the system brings every programme, if it does.
std::vector<Figure> LevelFigures(const tools::StereoSystem& ears, const std::string& mode,
                                 const std::vector<Mix>& mixes, std::optional<double> target_lufs);

// By how much `system`, a mode or one that does not level, is louder than what goes in, over pop,
// rock and film at three loudnesses, mastered to -1 dBTP.
std::vector<Figure> LoudnessFigures(const tools::StereoSystem& ears, const std::string& system,
                                    const std::vector<Mix>& mixes);

// The dip after each change of mode between off, music and cinema.
std::vector<Figure> HandoverFigures(const tools::ModalSystem& system,
                                    const std::vector<Mix>& mixes);

// The directions of lone sources, and for cinema how a hard-left one is spread over the planes,
// against the ears in `sofa`, made as those of `hki`, the set that the system uses.
std::vector<Figure> DirectionFigures(const tools::StereoSystem& ears, const std::string& mode,
                                     const std::filesystem::path& sofa,
                                     const std::filesystem::path& hki);

// The room of the virtualizer: of front left, of the worst surround plane, and what it adds to the
// centre (tools/measure/room_figures.h). `virtualize` takes seven planes.
std::vector<Figure> RoomFigures(const std::function<Planes(const Planes&)>& virtualize,
                                const std::filesystem::path& hki);

// The room of cinema: power at the nearer ear of what comes straight from a source hard left and
// from ambience that is left alone, of opposite polarity, over what the room adds to it.
// `with_room` and `room` take left and right; the former includes the latter.
std::vector<Figure> CinemaRoomFigures(const tools::StereoSystem& with_room,
                                      const tools::StereoSystem& room);

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_EAR_TABLE_H_
