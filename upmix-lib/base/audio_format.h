// What all components agree on with their hosts.
#ifndef KELDA_UPMIX_LIB_BASE_AUDIO_FORMAT_H_
#define KELDA_UPMIX_LIB_BASE_AUDIO_FORMAT_H_

#include <cstdint>

namespace kelda::upmix_lib {

inline constexpr uint32_t kSampleRateHz = 48000;
inline constexpr uint32_t kBlockFrames = 1024;  // every component but the music upmix
inline constexpr int kHopFrames = 64;           // what the music upmix takes and gives at a time
inline constexpr int kEars = 2;                 // left, right

// The planes, in order: front, centre, side and back.
inline constexpr uint32_t kPlanes = 7;
enum Plane { kFL, kFR, kFC, kSL, kSR, kBL, kBR };

// By how much the output is later than the input; equalizer and virtualizer: not at all.
inline constexpr int kUpmixLatencyFrames = 96;  // music and cinema
inline constexpr int kLevelLatencyFrames = 48;

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_AUDIO_FORMAT_H_
