// Every operation that may block the audio thread, with its reason and the function that does it.
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

// Why the effect does something on the audio thread although it may block, and why that does
// no harm.
enum class BlockingReason {
  // A capture writes its blocks to a file, and an error to the log for each block beyond its
  // limit. Only developers capture: it needs a debuggable build and a property.
  Capture,
  // A log line for each period that lies within the silence of a fade. That silence is as long
  // as the new mode's latency, far less than a period, so that the line is not expected.
  SilenceWarning,
  // A log line for each block that the signal library fails to process. The sound is broken
  // already; the line says why.
  LibraryFailure,
  // A log line for a block to an instance that was released or never initialised. That is a
  // fault of the framework, and no sound is playing that could be interrupted.
  ReleasedInstance,
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

// Not defined, and not constexpr: a call of it during compilation is an error. Its name then
// tells the reader that the calling function is not in kBlockingPlaces for this reason.
void NotListedAsABlockingPlace() KELDA_NONBLOCKING;

// A reason, checked at compile time: the function that names it must be in kBlockingPlaces.
class ListedBlockingReason {
 public:
  consteval ListedBlockingReason(BlockingReason reason, const char* path = __builtin_FILE(),
                                 const char* function = __builtin_FUNCTION()) {
    if (!IsBlockingPlace(reason, path, function)) {
      NotListedAsABlockingPlace();
    }
  }
};

// Calls `work` on the audio thread, exempt from the compiler's check and from RealtimeSanitizer.
// Only the functions in kBlockingPlaces may use it:
//
//   MayBlock(BlockingReason::LibraryFailure, [&] { LogError(tag, "failed: %d", status); });
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
