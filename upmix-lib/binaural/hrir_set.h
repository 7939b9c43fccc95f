// Head-related impulse responses of the seven planes, as a *.hki file holds them.
#ifndef KELDA_UPMIX_LIB_BINAURAL_HRIR_SET_H_
#define KELDA_UPMIX_LIB_BINAURAL_HRIR_SET_H_

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "upmix-lib/base/status.h"
#include "upmix-lib/binaural/hrir_format.h"

namespace kelda::upmix_lib {

struct HrirSet {
  std::string source;   // Who measured what.
  std::string licence;  // Of the measurement.
  RoomParameters room;
  int taps = 0;                  // Per response.
  std::vector<float> responses;  // [plane][ear][tap]; the interaural delay included.

  std::span<const float> response(int plane, int ear) const {
    const auto count = static_cast<std::size_t>(taps);
    const auto row = static_cast<std::size_t>(plane) * kEars + static_cast<std::size_t>(ear);
    return std::span(responses).subspan(row * count, count);
  }
};

// Reads and checks the file `path` whole; `set` is written on success only. Control.
// Throws std::bad_alloc.
Status LoadHrirSet(const std::string& path, HrirSet& set);

// The same of `file`, a whole file whose container was checked.
Status ParseHrirSet(std::span<const std::byte> file, HrirSet& set);

// The file for `set`, sealed. Longer texts are cut. Checks nothing: whoever makes a set
// keeps to the ranges of hrir_format.h. Control.
std::vector<std::byte> EncodeHrirSet(const HrirSet& set);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BINAURAL_HRIR_SET_H_
