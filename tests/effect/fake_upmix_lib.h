// A stand-in for the signal library that the tests can look into: it records its
// calls, fails on request and does arithmetic that tells which component had the
// audio.
//
//   headphone equalizer   0.5 x, 3 frames late
//   music upmix           plane c is (c + 1) x left for even c, (c + 1) x right for odd c
//   virtualizer           left  = 1 x plane 0 + 2 x plane 2 + 3 x plane 4 + 4 x plane 6
//                         right = 1 x plane 1 + 2 x plane 3 + 3 x plane 5, both 142 frames late
//   cinema upmix          left = 4 x right, right = 2 x left, 142 frames late
//   level control         0.25 x, 2 frames late
//
// All gains are small, so that small integers pass through a chain exactly. A
// flush clears what the delays hold. Nothing here allocates on the audio path.
#ifndef KELDA_TESTS_EFFECT_FAKE_UPMIX_LIB_H_
#define KELDA_TESTS_EFFECT_FAKE_UPMIX_LIB_H_

#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace fake {

inline constexpr uint32_t kMusicWorkBytes = 48;
inline constexpr uint32_t kMusicParamBytes = 32;
inline constexpr uint32_t kCinemaParamBytes = 40;
inline constexpr uint32_t kLevelWorkBytes = 64;
inline constexpr uint32_t kLevelParamBytes = 56;

// Forgets the calls and the failures, and ends every instance.
void Reset();

// From now on every call of `entry` fails with `status` (A0218: with null), or
// works again if it is 0; with an `nth`, only that call since the last Reset, from 1.
// The components with handles give `detail` as the detail code of their last failure.
void Fail(const std::string& entry, int32_t status, int32_t detail = 0, int nth = 0);

// The calls since the last time, in order: the entry, its handle or the order number of
// its cinema instance, what the parameter data starts with up to its first NUL, directory
// and file, or kind and count of a block. The per-block entries other than A0560 are only
// counted.
std::vector<std::string> TakeCalls();
int Count(const std::string& entry);

// Handles and cinema instances that were created and not destroyed.
int LiveInstances();

}  // namespace fake
#pragma GCC visibility pop

#endif  // KELDA_TESTS_EFFECT_FAKE_UPMIX_LIB_H_
