#include "upmix-lib/filters/convolver.h"

#include <algorithm>
#include <cstddef>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/transforms/complex_vec.h"

namespace kelda::upmix_lib {
namespace {

// The smallest size that holds a block and `taps` and fills whole vectors.
int FftSize(int taps) {
  int size = kBlockFrames + std::min(taps, kBlockFrames) - 1;
  do {
    size = (size / 64 + 1) * 64;
  } while (!RealFft::IsSupported(size));
  return size;
}

std::size_t Size(int count) { return static_cast<std::size_t>(count); }

}  // namespace

Convolver::Convolver(int input_count, int taps, std::span<const float> responses)
    : fft_(FftSize(taps)),
      input_count_(input_count),
      history_frames_(fft_.size() - kBlockFrames),
      partition_count_((taps + kBlockFrames - 1) / kBlockFrames),
      plane_floats_((fft_.bins() + kLanes - 1) / kLanes * kLanes),
      silent_blocks_(partition_count_ + 1),
      windows_(Size(input_count * fft_.size())),
      spectra_(Size(partition_count_ * input_count * 2 * plane_floats_)),
      responses_(Size(partition_count_ * input_count * kEars * 2 * plane_floats_)),
      sums_(Size(kEars * 2 * plane_floats_)),
      time_(Size(fft_.size())),
      scratch_(Size(fft_.scratch_floats())) {
  LoadResponses(taps, responses);
}

void Convolver::LoadResponses(int taps, std::span<const float> responses) {
  const int partition_taps = std::min(taps, kBlockFrames);
  const float scale = 1.0f / static_cast<float>(fft_.size());
  AlignedBuffer padded(Size(fft_.size()));
  AlignedBuffer split(Size(2 * plane_floats_));
  for (int partition = 0; partition < partition_count_; ++partition) {
    const int first_tap = partition * partition_taps;
    const int count = std::min(partition_taps, taps - first_tap);
    for (int row = 0; row < input_count_ * kEars; ++row) {
      padded.Clear();
      const float* from = responses.data() + row * taps + first_tap;
      std::transform(from, from + count, padded.data(), [&](float tap) { return scale * tap; });
      fft_.Forward(padded.data(), split.data(), split.data() + plane_floats_, scratch_.data());
      for (int bin = 0; bin < fft_.bins(); ++bin) {
        const int group = bin / kLanes * partition_count_ + partition;
        float* to =
            responses_.data() + (group * input_count_ * kEars + row) * 2 * kLanes + bin % kLanes;
        to[0] = split.data()[bin];
        to[kLanes] = split.data()[plane_floats_ + bin];
      }
    }
  }
}

void Convolver::Clear() {
  windows_.Clear();
  spectra_.Clear();
  silent_blocks_ = partition_count_ + 1;
}

void Convolver::Process(float* left, float* right) {
  bool silent = true;
  for (int i = 0; i < input_count_ && silent; ++i) {
    silent = IsSilent(input(i), kBlockFrames);
  }
  silent_blocks_ = silent ? std::min(silent_blocks_ + 1, partition_count_ + 1) : 0;
  if (at_rest()) {
    std::fill_n(left, kBlockFrames, 0.0f);
    std::fill_n(right, kBlockFrames, 0.0f);
    return;
  }
  newest_slot_ = (newest_slot_ + partition_count_ - 1) % partition_count_;
  for (int i = 0; i < input_count_; ++i) {
    float* to = spectrum(newest_slot_, i);
    fft_.Forward(window(i), to, to + plane_floats_, scratch_.data());
    std::copy_n(window(i) + kBlockFrames, history_frames_, window(i));
  }
  SumProducts();
  for (int ear = 0; ear < kEars; ++ear) {
    const float* sum = sums_.data() + ear * 2 * plane_floats_;
    fft_.Inverse(sum, sum + plane_floats_, time_.data(), scratch_.data());
    std::copy_n(time_.data() + history_frames_, kBlockFrames, ear == 0 ? left : right);
  }
}

void Convolver::SumProducts() {
  const float* response = responses_.data();
  const std::ptrdiff_t spectrum_floats = 2 * plane_floats_;
  for (int bin = 0; bin < plane_floats_; bin += kLanes) {
    // Sums of re x re and im x im, re x im and im x re, apart: chains half as long.
    Vec left_rr{}, left_ii{}, left_ri{}, left_ir{};
    Vec right_rr{}, right_ii{}, right_ri{}, right_ir{};
    int slot = newest_slot_;
    for (int partition = 0; partition < partition_count_; ++partition) {
      const float* input = spectrum(slot, 0) + bin;
      slot = slot + 1 == partition_count_ ? 0 : slot + 1;
      for (int i = 0; i < input_count_; ++i) {
        const auto x = Complex<Vec>{Load<Vec>(input), Load<Vec>(input + plane_floats_)};
        const auto left = Complex<Vec>::LoadFrom(response);
        const auto right = Complex<Vec>::LoadFrom(response + 2 * kLanes);
        left_rr += x.re * left.re;
        left_ii += x.im * left.im;
        left_ri += x.re * left.im;
        left_ir += x.im * left.re;
        right_rr += x.re * right.re;
        right_ii += x.im * right.im;
        right_ri += x.re * right.im;
        right_ir += x.im * right.re;
        input += spectrum_floats;
        response += kEars * 2 * kLanes;
      }
    }
    float* sum = sums_.data() + bin;
    Store(sum, left_rr - left_ii);
    Store(sum + plane_floats_, left_ri + left_ir);
    Store(sum + spectrum_floats, right_rr - right_ii);
    Store(sum + spectrum_floats + plane_floats_, right_ri + right_ir);
  }
}

}  // namespace kelda::upmix_lib
