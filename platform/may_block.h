// What may block the audio thread: all of it, and where.
#ifndef KELDA_PLATFORM_MAY_BLOCK_H_
#define KELDA_PLATFORM_MAY_BLOCK_H_

#include <string_view>

#include "platform/nonblocking.h"

#if defined(__has_feature)
#if __has_feature(realtime_sanitizer)
#include <sanitizer/rtsan_interface.h>
#define KELDA_REALTIME_SANITIZER 1
#endif
#endif

namespace kelda {

// Why the effect has to do something on the audio thread although it can block, each with
// what makes that bearable.
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

// A function that may block for a reason. A use of MayBlock anywhere else does not compile.
struct BlockingPlace {
  BlockingReason reason;
  std::string_view file;  // from the project's root
  std::string_view function;
};
inline constexpr BlockingPlace kBlockingPlaces[] = {
    {BlockingReason::Capture, "diagnostics/pcm_data_dump.cc", "Write"},
    {BlockingReason::Capture, "diagnostics/pcm_dump.cc", "Write"},
    {BlockingReason::SilenceWarning, "pipeline/fadable_ring_buffer.cc", "FadeIn"},
    {BlockingReason::LibraryFailure, "processors/headphone_equalizer_processor.cc", "Process"},
    {BlockingReason::LibraryFailure, "processors/lum_hp_eq_lib.cc", "Process"},
    {BlockingReason::LibraryFailure, "processors/lum_upmix_cinema_lib.cc", "Process"},
    {BlockingReason::LibraryFailure, "processors/lum_upmix_lib.cc", "Process"},
    {BlockingReason::LibraryFailure, "processors/lum_virtualizer_lib.cc", "VirtualizeImpl"},
    {BlockingReason::LibraryFailure, "processors/upl.cc", "ProcFrame"},
    {BlockingReason::ReleasedInstance, "effect/process.cc", "Upmix_Process"},
    {BlockingReason::LongBlock, "processors/upmix_music_processor.cc", "Process"},
};

// Whether the function of this name in the file at `path` is listed for the reason.
constexpr bool IsBlockingPlace(BlockingReason reason, std::string_view path,
                               std::string_view function) {
  for (const BlockingPlace& place : kBlockingPlaces) {
    if (place.reason == reason && place.function == function && path.ends_with(place.file)) {
      return true;
    }
  }
  return false;
}

// Its call stops the compiler: the function is not in kBlockingPlaces for this reason.
void NotListedAsABlockingPlace() KELDA_NONBLOCKING;

// A reason, checked against the place that names it while that is compiled.
class ListedBlockingReason {
 public:
  consteval ListedBlockingReason(BlockingReason reason, const char* path = __builtin_FILE(),
                                 const char* function = __builtin_FUNCTION()) {
    if (!IsBlockingPlace(reason, path, function)) {
      NotListedAsABlockingPlace();
    }
  }
};

// Does `work` on the audio thread, in one of kBlockingPlaces, unseen by the compiler's check and by
// RealtimeSanitizer.
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wunknown-warning-option"
#pragma clang diagnostic ignored "-Wfunction-effects"
#endif
template <typename Work>
void MayBlock(ListedBlockingReason, const Work& work) KELDA_NONBLOCKING {
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
