// A signal library with one fault a component, for the doctor to find:
//
//   headphone equalizer   crashes in its first block
//   music upmix           none
//   virtualizer           cannot be initialised (status -7), and creates from nothing
//   cinema upmix          writes one sample beyond its output
//   level control         leaves the process
//
// All that works is the fake library's.
#include <csignal>
#include <cstdlib>

#include "platform/include/upmix_lib.h"

int32_t A0836(uint32_t, float* const*) { return std::raise(SIGSEGV); }
int32_t A0511(uint32_t* work_bytes, uint32_t* param_bytes) {
  *work_bytes = 100;  // more than the fake uses
  *param_bytes = 64;  // as the files hold
  return 0;
}
int32_t A0556(uint32_t) { return -7; }
int32_t A0238(const float* const*, float* const* out, void*) {
  for (int c = 0; c < 2; ++c) {
    for (int f = 0; f < 1024 + c; ++f) {
      out[c][f] = 1;
    }
  }
  return 0;
}
int32_t A0217(void*, const float*, float*) { std::_Exit(0); }
