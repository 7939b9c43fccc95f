// Presets: tuning parameters as a TOML file, with one key for each parameter.
#ifndef KELDA_TOOLS_PRESETS_PRESET_TOML_H_
#define KELDA_TOOLS_PRESETS_PRESET_TOML_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/presets/parameter_sets.h"

namespace kelda::tools {

// The struct of `set` that `preset` describes, sealed if the set has a file of its own. Parameters
// that the preset leaves out have their defaults, or are as in `others`, a struct of the set.
// Throws FileFailure with every key that is unknown, is not a number, or is out of range.
std::vector<std::byte> ReadPreset(const std::filesystem::path& preset, const ParameterSet& set);
std::vector<std::byte> ReadPreset(const std::filesystem::path& preset, const ParameterSet& set,
                                  std::vector<std::byte> others);

// The struct with all defaults.
std::vector<std::byte> DefaultPreset(const ParameterSet& set);

// A preset with every key, its meaning, range and default, all commented out.
std::string PresetTemplate(const ParameterSet& set);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_PRESETS_PRESET_TOML_H_
