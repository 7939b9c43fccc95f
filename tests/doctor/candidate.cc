// A signal library with one fault a component, for the doctor to find:
//
//   headphone equalizer   crashes in its first block
//   music upmix           none
//   virtualizer           cannot be initialised (status -7), and creates from nothing
//   cinema upmix          writes one sample beyond its output
//   level control         leaves the process
//
// With CANDIDATE_WITHOUT_LEVEL it lacks the level control's entries.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "platform/include/upmix_lib.h"

namespace {

constexpr uint32_t kParamBytes = 64;
constexpr uint32_t kWorkBytes = 100;
float g_cinema;

int32_t Create(uint32_t* handle, const char* file) {
  if (std::strcmp(file, "wired.ba.config") != 0) return -3;
  *handle = 1;
  return 0;
}

}  // namespace

int32_t A0507() { return 0; }
int32_t A0243(uint32_t* handle, const char*, const char* file) { return Create(handle, file); }
int32_t A0214(uint32_t) { return 0; }
int32_t A0237(uint32_t) { return 0; }
int32_t A0836(uint32_t, float* const*) { return std::raise(SIGSEGV); }
int32_t A0332(uint32_t, int32_t*, int32_t*) { return 0; }
int32_t A0562(uint32_t) { return 0; }
int32_t A0812(uint32_t*) { return 0; }

int32_t A0216() { return 0; }
int32_t A0511(uint32_t* work_bytes, uint32_t* param_bytes) {
  *work_bytes = kWorkBytes;
  *param_bytes = kParamBytes;
  return 0;
}
int32_t A0559(const void*, void* work) {
  std::memset(work, 0, kWorkBytes);
  return 0;
}
int32_t A0239(const float* const* in, float* const* out, void*) {
  for (int c = 0; c < 7; ++c) std::copy_n(in[c % 2], 64, out[c]);
  return 0;
}

int32_t A0779() { return 0; }
int32_t A0782(uint32_t* handle, const char*, const char*) {
  *handle = 1;
  return 0;
}
int32_t A0556(uint32_t) { return -7; }
int32_t A0236(uint32_t) { return 0; }
int32_t A0560(uint32_t, int32_t, int32_t, float* const*, const float*, const int32_t*) { return 0; }
int32_t A0783(uint32_t, int32_t*, int32_t*) { return 0; }
int32_t A0212(uint32_t) { return 0; }
int32_t A0810(uint32_t*) { return 0; }

int32_t A0244() { return 0; }
int32_t A0333(uint32_t* param_bytes) {
  *param_bytes = kParamBytes;
  return 0;
}
void* A0218(const void*, const char*, const char* file) {
  return std::strcmp(file, "wired.hki.config") == 0 ? &g_cinema : nullptr;
}
int32_t A0238(const float* const* in, float* const* out, void*) {
  for (int c = 0; c < 2; ++c) std::copy_n(in[c], 1024, out[c]);
  out[1][1024] = 1;
  return 0;
}
int32_t A0593(void*) { return 0; }
int32_t A0213(void**) { return 0; }

#ifndef CANDIDATE_WITHOUT_LEVEL
int32_t A0834() { return 0; }
int32_t A0557(uint32_t* work_bytes, uint32_t* param_bytes) {
  return A0511(work_bytes, param_bytes);
}
int32_t A0508(void*, int32_t) { return 0; }
int32_t A0122(void*, const void*) { return 0; }
int32_t A0217(void*, const float*, float*) { std::_Exit(0); }
#endif
