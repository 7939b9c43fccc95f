// What the upmix listens with: two spectra of the last frames, one that tells neighbouring
// tones apart and one that tells when something begins.
//
//        past                                                  now
//        |<------------------ 2048 frames ---------------------->|
//        ____________-------------------------------------------\   long: 23 Hz a bin
//                                           |<---- 512 frames -->|
//        ___________________________________________------------\   short: 94 Hz a bin
//
// Both windows rise slowly and fall within a few frames before now, so what is heard last
// counts most. Nothing is put together again from these spectra: they decide about the gains
// that fixed_lag_filters.h applies.
#ifndef KELDA_UPMIX_LIB_UPMIX_ANALYSIS_H_
#define KELDA_UPMIX_LIB_UPMIX_ANALYSIS_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/simd.h"
#include "upmix-lib/upmix/hop_history.h"

namespace kelda::upmix_lib {

inline constexpr int kLongFrames = 2048;
inline constexpr int kLongBins = kLongFrames / 2 + 1;
inline constexpr int kPaddedLongBins = 1032;  // whole vectors; those after kLongBins are 0
inline constexpr int kShortFrames = 512;
inline constexpr int kShortBins = kShortFrames / 2 + 1;
inline constexpr int kPaddedShortBins = 264;
inline constexpr int kLongPerShort = kLongFrames / kShortFrames;

template <int kPaddedBins>
struct alignas(kSimdAlignmentBytes) SpectrumOf {
  float re[kPaddedBins];
  float im[kPaddedBins];
};
using LongSpectrum = SpectrumOf<kPaddedLongBins>;    // bin k is at k * 23.4 Hz
using ShortSpectrum = SpectrumOf<kPaddedShortBins>;  // bin k is at k * 93.75 Hz

// Control.
constexpr float LongBinHz(int bin) { return static_cast<float>(bin) * kSampleRateHz / kLongFrames; }

// Windows and transforms, built by the first call, then the same for as long as the library
// is loaded. Control; several threads may call at once. Throws std::bad_alloc.
struct AnalysisTables;
const AnalysisTables* SharedAnalysisTables();

// The past of one channel. Constructed on the control thread.
class Analysis {
 public:
  // Takes the next kHopFrames frames. Audio.
  void Append(const float* hop) { history_.Append(hop); }

  // The spectrum of the last kLongFrames or kShortFrames frames. The long window is scaled so
  // that the same noise has the same power in as many hertz of either spectrum. Audio.
  void Transform(LongSpectrum& spectrum) const KELDA_NONBLOCKING;
  void Transform(ShortSpectrum& spectrum) const KELDA_NONBLOCKING;

  // The last `frames` frames, kLongFrames at most. Audio.
  const float* Last(int frames) const { return history_.newest() + kHopFrames - frames; }

 private:
  const AnalysisTables* tables_ = SharedAnalysisTables();
  HopHistory<kLongFrames - kHopFrames> history_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_ANALYSIS_H_
