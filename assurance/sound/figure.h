// A figure of the table, with what it takes to read it.
#ifndef KELDA_ASSURANCE_SOUND_FIGURE_H_
#define KELDA_ASSURANCE_SOUND_FIGURE_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "assurance/sound/sound_file.h"

namespace kelda::sound {

struct Figure {
  std::string name;  // "where: what", and the same in every run
  double value;
  const char* unit;
  enum class Better { kHigher, kLower, kNearZero } better;
};

// What is measured. Functions take 48 kHz stereo, start from silence, and put out as many
// frames as they take, in line with them.
struct System {
  std::string name;
  std::function<Planes(const Planes&)> planes;  // seven; empty if it has none
  std::function<Planes(const Planes&)> music;   // at the ears
  std::optional<double> target_lufs = {};       // where it brings every programme, if it does
};

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_FIGURE_H_
