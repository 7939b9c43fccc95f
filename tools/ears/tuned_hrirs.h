// Makes the file of an HRIR set from the file of measured ears.
#ifndef KELDA_TOOLS_EARS_TUNED_HRIRS_H_
#define KELDA_TOOLS_EARS_TUNED_HRIRS_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/ears/sofa_hrirs.h"

namespace kelda::tools {

struct TunedHrirs {
  upmix_lib::HrirSet set;
  std::vector<std::byte> file;  // *.hki, of the set
  std::string report;           // the acceptance report
};

// Reads `sofa`, makes the set and checks it, and shows its progress in the status line. Throws
// Failure and Interrupted.
TunedHrirs TuneHrirs(const std::filesystem::path& sofa, const HrirOptions& options);

// The room of a preset; the default room if `preset` is empty. Throws FileFailure.
upmix_lib::RoomParameters ReadRoom(const std::filesystem::path& preset);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EARS_TUNED_HRIRS_H_
