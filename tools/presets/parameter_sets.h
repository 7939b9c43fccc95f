// The tuning parameters with their key, unit, meaning, range and default.
//
// Ranges, defaults and places in the file come from the signal library's own tables; units and
// meanings are added here. Reading presets, printing templates and showing files all use these
// sets.
#ifndef KELDA_TOOLS_PRESETS_PARAMETER_SETS_H_
#define KELDA_TOOLS_PRESETS_PARAMETER_SETS_H_

#include <cstddef>
#include <span>
#include <string>

#include "upmix-lib/files/data_header.h"

namespace kelda::tools {

struct ParameterMeaning {
  const char* key;  // the library's name of the field, and the key in a preset
  const char* unit;
  const char* text;
  const char* advice;      // to a tuner: what to turn it up for, as upmix-lib/README.md says
  const char* heard = "";  // when a change of it can be heard, where it is not always
};

// A struct of floats that is tuned as a whole. `meanings` has the order of `fields` and leaves out
// the reserved fields at the end.
struct ParameterSet {
  const char* name;                 // "upmix", as in `kelda tune upmix`
  const char* title;                // "Music upmix"
  const upmix_lib::DataKind* kind;  // of its file; null: part of an HRIR set
  std::size_t size_bytes;           // of the struct, with the header if it has one
  std::span<const upmix_lib::ParameterField> fields;
  std::span<const ParameterMeaning> meanings;
};

// In the order: music upmix, cinema, level control, and the room of an HRIR set.
std::span<const ParameterSet> ParameterSets();
const ParameterSet& MusicParameterSet();
const ParameterSet& CinemaParameterSet();
const ParameterSet& LevelParameterSet();
const ParameterSet& RoomParameterSet();

// Read and write one field of `parameters`, which is a whole struct.
float ReadParameter(std::span<const std::byte> parameters, const upmix_lib::ParameterField& field);
void WriteParameter(std::span<std::byte> parameters, const upmix_lib::ParameterField& field,
                    float value);

// "-12 to 12 dB", "0 to 1" for a share.
std::string FormatRange(const upmix_lib::ParameterField& field, const ParameterMeaning& meaning);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_PRESETS_PARAMETER_SETS_H_
