// What each kind of tuning file holds, in words. The header of a data file was checked before.
#ifndef KELDA_TOOLS_INSPECT_INSPECTED_CONTENTS_H_
#define KELDA_TOOLS_INSPECT_INSPECTED_CONTENTS_H_

#include <cstddef>
#include <span>
#include <string>

#include "tools/core/json.h"
#include "upmix-lib/equalizer/equalizer_format.h"

namespace kelda::tools {

const char* BandName(upmix_lib::BandType type);

struct Contents {       // NOLINT(bugprone-exception-escape): moving a Json does not throw
  std::string problem;  // empty if the signal library accepts the contents
  std::string text;
  Json json;
  std::string summary;  // the size and the source in a few words; empty if all files are alike
};

Contents ReadHrirContents(const std::string& path, std::span<const std::byte> file);
Contents ReadEqualizerContents(const std::string& path, std::span<const std::byte> file);
Contents ReadMusicContents(const std::string& path, std::span<const std::byte> file);
Contents ReadCinemaContents(const std::string& path, std::span<const std::byte> file);
Contents ReadLevelContents(const std::string& path, std::span<const std::byte> file);

// The lines of the list that may be entries. Only the engine knows which of them are.
Contents ReadAppListContents(const std::string& list);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_INSPECTED_CONTENTS_H_
