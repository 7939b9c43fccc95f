#ifndef KELDA_TESTS_LABORATORY_LIFE_CYCLE_H_
#define KELDA_TESTS_LABORATORY_LIFE_CYCLE_H_

#include <cstdint>

#include "platform/include/upmix_lib.h"

namespace kelda::upmix_lib {

// What a component whose instances are known by handles has besides its process entry.
struct LifeCycle {
  int32_t (*set_up)();
  int32_t (*create)(uint32_t*, const char*, const char*);
  int32_t (*initialize)(uint32_t);
  int32_t (*flush)(uint32_t);
  int32_t (*last_error)(uint32_t, int32_t*, int32_t*);
  int32_t (*close)(uint32_t);
  int32_t (*destroy)(uint32_t*);
};
inline constexpr LifeCycle kEqualizerEntries = {A0507, A0243, A0214, A0237, A0332, A0562, A0812};
inline constexpr LifeCycle kVirtualizerEntries = {A0779, A0782, A0556, A0236, A0783, A0212, A0810};

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_LABORATORY_LIFE_CYCLE_H_
