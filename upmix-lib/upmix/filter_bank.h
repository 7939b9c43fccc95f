// Low-delay analysis and synthesis: short-time spectra every 64 frames whose
// resolution is that of 512-sample windows while the delay is 96 frames.
//
//      past                                        now
//      |<------------- 512 samples ----------------->|
//                   ______-----------____            |   analysis window: long rise,
//      ______-------                     ---__       |   short fall
//                                   __-------__      |
//                                 _/           \_    |   synthesis window: the last
//      __________________________/               \___|   160 samples only
//                                |<---- 160 -------->|
//                                |<- 96 ->|
//
// The product of the two windows, shifted by 64 and summed, is 1: with unchanged
// spectra the output is the input, 96 frames later. After D. Mauler and R. Martin,
// "A low delay, variable resolution, perfect reconstruction spectral
// analysis-synthesis system for speech enhancement", EUSIPCO 2007.
#ifndef KELDA_UPMIX_LIB_UPMIX_FILTER_BANK_H_
#define KELDA_UPMIX_LIB_UPMIX_FILTER_BANK_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/simd.h"
#include "upmix-lib/base/status.h"
#include "upmix-lib/upmix/hop_history.h"

namespace kelda::upmix_lib {

inline constexpr int kTransformFrames = 512;
inline constexpr int kSynthesisFrames = kUpmixLatencyFrames + kHopFrames;
inline constexpr int kBins = kTransformFrames / 2 + 1;
inline constexpr int kPaddedBins = 264;  // whole vectors; those after kBins are 0

// Bin k is at k * 93.75 Hz.
struct alignas(kSimdAlignmentBytes) Spectrum {
  float re[kPaddedBins];
  float im[kPaddedBins];
};

// What all filter banks share: built by the first call, then the same for as long as the
// library is loaded. Control; several threads may call at once. Throws std::bad_alloc.
struct FilterBankTables;
const FilterBankTables* SharedFilterBankTables();

// Has the tables built, so that a filter bank can be constructed without memory. Returns
// kOutOfMemory where SharedFilterBankTables throws. Control.
Status PrepareFilterBanks();

// Turns one signal into spectra. Constructed on the control thread.
class Analysis {
 public:
  // Takes the next kHopFrames frames and writes the spectrum of the last
  // kTransformFrames. Audio.
  void Process(const float* in, Spectrum& spectrum) KELDA_NONBLOCKING;

  // The input of kUpmixLatencyFrames ago: kHopFrames frames, in step with the
  // output of Synthesis. Audio.
  const float* Delayed() const { return history_.newest() - kUpmixLatencyFrames; }

 private:
  static constexpr int kPastFrames = kTransformFrames - kHopFrames;
  const FilterBankTables* tables_ = SharedFilterBankTables();
  HopHistory<kPastFrames> history_;
};

// Turns spectra back into a signal. Constructed on the control thread.
class Synthesis {
 public:
  // Writes the next kHopFrames frames. Audio.
  void Process(const Spectrum& spectrum, float* out) KELDA_NONBLOCKING;

 private:
  const FilterBankTables* tables_ = SharedFilterBankTables();
  alignas(kSimdAlignmentBytes) float overlap_[kSynthesisFrames] = {};
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_FILTER_BANK_H_
