// Head-related impulse responses as measured, read from a SOFA file (AES69).
#ifndef KELDA_TOOLS_SOFA_FILE_H_
#define KELDA_TOOLS_SOFA_FILE_H_

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "upmix-lib/data_formats.h"

namespace kelda::tools {

struct SofaFile {
  double sample_rate_hz = 0;
  std::size_t taps = 0;                          // per response
  std::vector<upmix_lib::HrirPlane> directions;  // of every measurement
  std::vector<float> responses;                  // [measurement][ear][tap]

  std::span<const float> response(std::size_t measurement, std::size_t ear) const {
    return std::span(responses).subspan((measurement * upmix_lib::kEars + ear) * taps, taps);
  }
};

// Reads free-field impulse responses of two ears. Throws Failure (kInput) with the file's
// name and what is wrong with it.
SofaFile ReadSofaFile(const std::string& path);

// The measurement nearest to a direction. Throws Failure (kInput) if the nearest is more
// than 5 degrees away.
std::size_t NearestMeasurement(const SofaFile& sofa, const upmix_lib::HrirPlane& direction);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_SOFA_FILE_H_
