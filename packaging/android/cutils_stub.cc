// The part of libcutils.so that the effect needs, for the linker only; the phone has the real one.
#pragma GCC visibility push(default)
#include <cutils/properties.h>
#pragma GCC visibility pop

int32_t property_get_int32(const char* /*key*/, int32_t default_value) { return default_value; }
