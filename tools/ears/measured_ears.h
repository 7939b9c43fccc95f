// Head-related impulse responses as measured, read from a SOFA file (AES69).
#ifndef KELDA_TOOLS_EARS_MEASURED_EARS_H_
#define KELDA_TOOLS_EARS_MEASURED_EARS_H_

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "upmix-lib/binaural/hrir_format.h"

namespace kelda::tools {

struct MeasuredEars {
  std::string database, listener, author, licence;  // as the file names them, or empty
  double sample_rate_hz = 0;
  double distance_m = 0;                         // of the farthest source
  std::size_t taps = 0;                          // per response
  std::vector<upmix_lib::HrirPlane> directions;  // of every measurement
  std::vector<float> responses;                  // [measurement][ear][tap]
  std::vector<double> delays_s;  // [measurement][ear], in addition to the delay in the taps

  std::span<const float> response(std::size_t measurement, std::size_t ear) const {
    return std::span(responses).subspan((measurement * upmix_lib::kEars + ear) * taps, taps);
  }
  double delay_s(std::size_t measurement, std::size_t ear) const {
    return delays_s[measurement * upmix_lib::kEars + ear];
  }
};

// Reads a file of the conventions SimpleFreeFieldHRIR: finite responses of two ears that are not
// all silent, 32 to 384 kHz, 16 to 16384 taps, delays for the whole file or for each measurement,
// spherical or Cartesian positions. If the sources are at several distances, only those at nine
// tenths of the largest distance or more are kept. The first receiver is the left ear unless the
// receivers' positions say otherwise. Throws Failure (input) with the reason and the limit.
MeasuredEars ReadMeasuredEars(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EARS_MEASURED_EARS_H_
