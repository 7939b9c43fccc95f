// Mixes whose stems are known: what the upmix is to take apart.
#ifndef KELDA_ASSURANCE_SOUND_MIXES_H_
#define KELDA_ASSURANCE_SOUND_MIXES_H_

#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "assurance/sound/sound_file.h"

namespace kelda::sound {

// Where a stem is in the stereo image: half way between the centre and a side by the
// constant-power law; wide, a section of instruments on either side; ambience, which differs in
// both channels.
enum class Place { kCentre, kLeft, kRight, kHalfLeft, kHalfRight, kWide, kAmbience };

// A stem as it is in the mix: stereo, placed, at its level.
struct Stem {
  std::string name;
  Place place;
  Planes signal;
};

struct Mix {
  std::string name;
  std::vector<Stem> stems;

  Planes Sum() const;
  // The sum of the stems of one place.
  Planes Sum(Place place) const;
};

// The film's dialogue over all of its sound but the effect, at 0 dB.
struct Scene {
  Planes speech, sound;
};
Scene DialogueScene(const Mix& film);

// ---- Making them from dry stems, as render_stems writes them.

// Dry stems that sound as one: files by name, with their levels relative to each other. Of a
// wide one the first half of them is left, the others right.
struct PlannedStem {
  const char* name;
  Place place;
  double level_db;  // RMS over the mix, relative to the other stems
  std::vector<std::pair<const char*, double>> files;
};

struct MixPlan {
  const char* name;
  std::vector<PlannedStem> stems;
  // Power of all stems over that of the ambience, which is the reverberation of 1.4 s that all
  // stems share and, at `rain_db` relative to it, rain.
  double direct_over_ambience_db;
  double rain_db = -200;
};

const std::vector<MixPlan>& MixPlans();

// Throws std::runtime_error.
Mix MakeMix(const MixPlan& plan, const std::filesystem::path& dry_stems);

// ---- Files: FOLDER/MIX/PLACE-STEM.wav. Both throw std::runtime_error.

void SaveMix(const Mix& mix, const std::filesystem::path& folder);
Mix LoadMix(const std::filesystem::path& folder, const std::string& name);

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_MIXES_H_
