// What may block the audio thread: all of it.
#ifndef KELDA_PLATFORM_MAY_BLOCK_H_
#define KELDA_PLATFORM_MAY_BLOCK_H_

#include "platform/nonblocking.h"

#if defined(__has_feature)
#if __has_feature(realtime_sanitizer)
#include <sanitizer/rtsan_interface.h>
#define KELDA_REALTIME_SANITIZER 1
#endif
#endif

namespace kelda {

// What the effect has to do on the audio thread although it can block, each with the
// reason why that is bearable.
enum class BlockingReason {
  // A capture's blocks go to its file, and a block beyond its limit to the log. Captures
  // are a developer's: they take a debuggable build and a property.
  Capture,
  // A line for each period that is silent for the latency of a new mode, which is one
  // period at most: latencies are far below a period.
  SilenceWarning,
  // A line for each block that the signal library fails to process. The sound is broken
  // already; the line says why.
  LibraryFailure,
  // A line for a block to an instance that was released or never initialised: a fault of
  // the framework, with no sound to keep going.
  ReleasedInstance,
  // A stage's scratch memory grows for the first block of more than a period. The
  // sequencer never gives it one.
  LongBlock,
};

// Does `work` on the audio thread, unseen by the compiler's check and by
// RealtimeSanitizer.
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wunknown-warning-option"
#pragma clang diagnostic ignored "-Wfunction-effects"
#endif
template <typename Work>
void MayBlock(BlockingReason, const Work& work) KELDA_NONBLOCKING {
#ifdef KELDA_REALTIME_SANITIZER
  const __rtsan::ScopedDisabler disabler;
#endif
  work();
}
#ifdef __clang__
#pragma clang diagnostic pop
#endif

}  // namespace kelda

#endif  // KELDA_PLATFORM_MAY_BLOCK_H_
