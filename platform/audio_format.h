// The format of the audio inside the effect, and the latencies of its stages: the numbers that
// the interface of the signal library fixes and more than one room uses.
#ifndef KELDA_PLATFORM_AUDIO_FORMAT_H_
#define KELDA_PLATFORM_AUDIO_FORMAT_H_

namespace kelda {

inline constexpr int kSampleRateHz = 48000;
// The chain's period, and the block of every component but the music upmix. Plane 1 of a
// planar block starts this many samples after plane 0.
inline constexpr int kPeriodFrames = 1024;
inline constexpr int kStereoPlanes = 2;
inline constexpr int kSurroundPlanes = 7;  // between the music upmix and the virtualizer

// Latency in frames. The equalizer has none.
inline constexpr int kMusicDelayFrames = 96;
inline constexpr int kCinemaDelayFrames = 96;
inline constexpr int kLevelControlDelayFrames = 48;  // the limiter's look-ahead

}  // namespace kelda

#endif  // KELDA_PLATFORM_AUDIO_FORMAT_H_
