// The entry points of a signal library, as addresses.
#ifndef KELDA_TOOLS_LIBRARY_UPMIX_LIB_ENTRIES_H_
#define KELDA_TOOLS_LIBRARY_UPMIX_LIB_ENTRIES_H_

#include <dlfcn.h>

#include "platform/include/upmix_lib.h"

namespace kelda::tools {

// X(entry) for every entry: equalizer, music upmix, virtualizer, cinema, level control.
// clang-format off
#define KELDA_UPMIX_LIB_ENTRIES(X) \
  X(A0507) X(A0243) X(A0214) X(A0237) X(A0836) X(A0332) X(A0562) X(A0812) \
  X(A0216) X(A0511) X(A0559) X(A0239) \
  X(A0779) X(A0782) X(A0556) X(A0236) X(A0560) X(A0783) X(A0212) X(A0810) \
  X(A0244) X(A0333) X(A0218) X(A0238) X(A0593) X(A0213) \
  X(A0834) X(A0557) X(A0508) X(A0122) X(A0217)
// clang-format on

inline constexpr const char* kUpmixLibEntryNames[] = {
#define KELDA_NAME(entry) #entry,
    KELDA_UPMIX_LIB_ENTRIES(KELDA_NAME)
#undef KELDA_NAME
};

// Null where the library does not export the entry.
struct UpmixLibEntries {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a member's name
#define KELDA_MEMBER(entry) decltype(&::entry) entry = nullptr;
  KELDA_UPMIX_LIB_ENTRIES(KELDA_MEMBER)
#undef KELDA_MEMBER

  // `library` as dlopen returned it.
  static UpmixLibEntries Of(void* library) {
    UpmixLibEntries entries;
#define KELDA_LOOK_UP(entry) \
  entries.entry = reinterpret_cast<decltype(entries.entry)>(dlsym(library, #entry));
    KELDA_UPMIX_LIB_ENTRIES(KELDA_LOOK_UP)
#undef KELDA_LOOK_UP
    return entries;
  }
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIBRARY_UPMIX_LIB_ENTRIES_H_
