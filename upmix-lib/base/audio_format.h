// The audio that all components work on, and the two threads that call them.
//
// Control thread: creates, tunes, flushes and destroys instances. What it calls may allocate,
// read files and wait.
// Audio thread: has one block after another processed, each in time. What it calls does none
// of that (KELDA_NONBLOCKING).
//
// Calls on one instance never overlap, whichever thread they come from; different instances
// may be used at the same time. Headers name the thread of each function: "Control." or
// "Audio."; "Any thread." is for either, at any time.
#ifndef KELDA_UPMIX_LIB_BASE_AUDIO_FORMAT_H_
#define KELDA_UPMIX_LIB_BASE_AUDIO_FORMAT_H_

namespace kelda::upmix_lib {

inline constexpr int kSampleRateHz = 48000;
inline constexpr int kBlockFrames = 1024;  // of every component but the music upmix
inline constexpr int kHopFrames = 64;      // the block of the music upmix
inline constexpr int kEars = 2;            // left, right

// The planes, in this order: front, centre, side and back.
inline constexpr int kPlanes = 7;
enum Plane { kFL, kFR, kFC, kSL, kSR, kBL, kBR };

// By how much the output is later than the input. Equalizer and virtualizer have no latency.
inline constexpr int kUpmixLatencyFrames = 96;  // music and cinema
inline constexpr int kLevelLatencyFrames = 48;

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_AUDIO_FORMAT_H_
