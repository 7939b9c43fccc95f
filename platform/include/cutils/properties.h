// The platform's system properties, as far as this project uses them. Same
// include path and names as the platform's header, so that an Android tree can
// put its own in front of this one.
#ifndef KELDA_PLATFORM_CUTILS_PROPERTIES_H_
#define KELDA_PLATFORM_CUTILS_PROPERTIES_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Longest value, with its terminating NUL.
#define PROPERTY_VALUE_MAX 92

// The property as a signed 32-bit integer (decimal, or hexadecimal with 0x);
// default_value if it is unset, empty, malformed or out of range.
int32_t property_get_int32(const char* key, int32_t default_value);

// For host programs and tests only: the effect library never sets a property.
// Returns 0, or a negative value if the value is too long; the property is
// unchanged then.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif

#endif  // KELDA_PLATFORM_CUTILS_PROPERTIES_H_
