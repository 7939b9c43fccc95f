#ifndef KELDA_FUZZ_BEGIN_EFFECT_H_
#define KELDA_FUZZ_BEGIN_EFFECT_H_

#include <cutils/properties.h>

#include <cstdlib>

#include "fuzz/quiet_log.h"
#include "fuzz/tuning.h"

namespace kelda::fuzz {

// What every input of a target that drives the effect begins with: a quiet log, no capture, an
// effect that may be made, and a valid tuning in `directory`.
inline void BeginEffect(const TemporaryFolder& directory) {
  QuietLog();
  setenv("KELDA_DATA_DIR", directory.path().c_str(), 1);
  property_set("vendor.kelda.effect", "1");
  property_set("vendor.kelda.pcmdump", "0");
  WriteTuning(directory);
}

}  // namespace kelda::fuzz

#endif  // KELDA_FUZZ_BEGIN_EFFECT_H_
