#ifndef KELDA_FUZZ_QUIET_LOG_H_
#define KELDA_FUZZ_QUIET_LOG_H_

#include <android/log.h>

namespace kelda::fuzz {

// Log lines are formatted and then dropped.
inline void QuietLog() {
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger([](const __android_log_message*) {});
}

}  // namespace kelda::fuzz

#endif  // KELDA_FUZZ_QUIET_LOG_H_
