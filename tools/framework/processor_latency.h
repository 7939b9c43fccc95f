// Measures the latency of the effect's processors.
#ifndef KELDA_TOOLS_FRAMEWORK_PROCESSOR_LATENCY_H_
#define KELDA_TOOLS_FRAMEWORK_PROCESSOR_LATENCY_H_

#include <cstdint>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"

namespace kelda::tools {

// The latency, in frames, that the effect's processors have under `settings`:
// the effect's own statement, not an estimate from the sound, so that it does not depend on the
// tuning. The framework has no query for it, but the effect shows it: when the mode changes it
// replaces exactly that many frames by zeros and then fades in, from a gain of 0 at the first
// frame. 0 where nothing is faded (pass-through). Throws Failure (refused).
int64_t MeasureProcessorLatency(const EffectLibrary& library, const std::vector<Setting>& settings);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_PROCESSOR_LATENCY_H_
