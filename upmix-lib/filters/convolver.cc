#include "upmix-lib/filters/convolver.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/transforms/complex_vec.h"

namespace kelda::upmix_lib {
namespace {

// The smallest size that holds a block and `taps` and fills whole vectors.
int FftSize(int taps) {
  int size = kBlockFrames + std::min(taps, kBlockFrames) - 2;
  do {
    size = (size / 64 + 1) * 64;
  } while (!RealFft::IsSupported(size));
  return size;
}

// The longest transform, of partitions of kBlockFrames taps.
constexpr int kMostPoints = 2 * kBlockFrames;
constexpr int kMostBins = kMostPoints / 2 + kLanes;  // whole vectors
constexpr int kScratchFloats = RealFft::ScratchFloats(kMostPoints);
constexpr int kMostInputs = kPlanes;

std::size_t Size(int count) { return static_cast<std::size_t>(count); }

}  // namespace

// Of the windows that end with the current block: [group][input][re, im].
struct alignas(kSimdAlignmentBytes) Convolver::Spectra {
  float values[kMostInputs * 2 * kMostBins];
};

struct alignas(kSimdAlignmentBytes) Convolver::Sums {
  float re[kEars][kMostBins];
  float im[kEars][kMostBins];
};

ConvolverResponses::ConvolverResponses(int inputs, int taps, std::span<const float> responses,
                                       float negligible)
    : fft(FftSize(taps)),
      input_count(inputs),
      partition_count((taps + kBlockFrames - 1) / kBlockFrames),
      partitions(Size((fft.bins() + kLanes - 1) / kLanes)) {
  const int partition_taps = std::min(taps, kBlockFrames), rows = input_count * kEars;
  const int part_floats = static_cast<int>(partitions.size()) * kLanes;
  const float scale = 1.0f / static_cast<float>(fft.size());
  AlignedBuffer padded(Size(fft.size())), scratch(Size(fft.scratch_floats()));
  AlignedBuffer all(Size(partition_count * rows * 2 * part_floats));  // [partition][row][re, im]
  const auto parts = [&](int partition, int row) {
    return all.data() + (partition * rows + row) * 2 * part_floats;
  };
  for (int partition = 0; partition < partition_count; ++partition) {
    const int first_tap = partition * partition_taps;
    const int count = std::min(partition_taps, taps - first_tap);
    for (int row = 0; row < rows; ++row) {
      padded.Clear();
      const float* from = responses.data() + row * taps + first_tap;
      std::transform(from, from + count, padded.data(), [&](float tap) { return scale * tap; });
      float* to = parts(partition, row);
      fft.Forward(padded.data(), to, to + part_floats, scratch.data());
    }
  }
  // Of as many bins on every processor, so that all leave out the same.
  const auto largest = [&](int group, int partition) {
    constexpr int kBins = 8;
    static_assert(kBins % kLanes == 0);
    const int first = group * kLanes / kBins * kBins, end = std::min(first + kBins, part_floats);
    float most = 0.0f;
    for (int part = 0; part < 2 * rows; ++part) {
      const float* from = parts(partition, 0) + part * part_floats;
      for (int bin = first; bin < end; ++bin) {
        most = std::max(most, std::fabs(from[bin]));
      }
    }
    return most;
  };
  int index = 0;
  for (int& count : partitions) {
    std::vector<float> sizes(Size(partition_count));
    for (int partition = 0; partition < partition_count; ++partition) {
      sizes[Size(partition)] = largest(index, partition);
    }
    const float least = negligible * *std::max_element(sizes.begin(), sizes.end());
    count = partition_count;
    while (count > 1 && sizes[Size(count - 1)] < least) {
      --count;
    }
    all_partitions += count;
    ++index;
  }
  spectra = AlignedBuffer(Size(all_partitions * rows * 2 * kLanes));
  float* to = spectra.data();
  index = 0;
  for (const int count : partitions) {
    for (int partition = 0; partition < count; ++partition) {
      for (int part = 0; part < 2 * rows; ++part, to += kLanes) {
        std::copy_n(parts(partition, 0) + part * part_floats + index * kLanes, kLanes, to);
      }
    }
    ++index;
  }
}

Convolver::Convolver(std::shared_ptr<const ConvolverResponses> responses)
    : responses_(std::move(responses)),
      history_frames_(responses_->fft.size() - kBlockFrames),
      silent_blocks_(responses_->partition_count + 1),
      newest_(responses_->partitions.size()),
      histories_(Size(responses_->input_count * history_frames_)),
      spectra_((Size(responses_->all_partitions) - responses_->partitions.size()) *
               Size(responses_->input_count * 2 * kLanes)) {}

void Convolver::Clear() {
  histories_.Clear();
  spectra_.Clear();
  silent_blocks_ = responses_->partition_count + 1;
}

void Convolver::Process(const float* const* inputs, float* left, float* right) {
  const int most = responses_->partition_count + 1;
  bool silent = true;
  for (int i = 0; i < responses_->input_count && silent; ++i) {
    silent = IsSilent(inputs[i], kBlockFrames);
  }
  silent_blocks_ = silent ? std::min(silent_blocks_ + 1, most) : 0;
  if (at_rest()) {
    std::fill_n(left, kBlockFrames, 0.0f);
    std::fill_n(right, kBlockFrames, 0.0f);
    return;
  }
  Spectra now;
  Transform(inputs, now);
  Sums sums;
  SumProducts(now, sums);
  Remember(now);
  for (int ear = 0; ear < kEars; ++ear) {
    alignas(kSimdAlignmentBytes) float time[kMostPoints], scratch[kScratchFloats];
    responses_->fft.Inverse(sums.re[ear], sums.im[ear], time, scratch);
    std::copy_n(time + history_frames_, kBlockFrames, ear == 0 ? left : right);
  }
}

void Convolver::Transform(const float* const* inputs, Spectra& now) {
  const RealFft& fft = responses_->fft;
  const int input_count = responses_->input_count, groups = static_cast<int>(newest_.size());
  for (int i = 0; i < input_count; ++i) {
    alignas(kSimdAlignmentBytes) float window[kMostPoints], scratch[kScratchFloats];
    alignas(kSimdAlignmentBytes) float re[kMostBins], im[kMostBins];
    float* const history = histories_.data() + i * history_frames_;
    std::copy_n(history, history_frames_, window);
    std::copy_n(inputs[i], kBlockFrames, window + history_frames_);
    std::copy_n(window + kBlockFrames, history_frames_, history);
    fft.Forward(window, re, im, scratch);
    const int rest = groups * kLanes - fft.bins();
    std::fill_n(re + fft.bins(), rest, 0.0f);
    std::fill_n(im + fft.bins(), rest, 0.0f);
    for (int group = 0; group < groups; ++group) {
      Complex<Vec>{Load<Vec>(re + group * kLanes), Load<Vec>(im + group * kLanes)}.StoreTo(
          now.values + (group * input_count + i) * 2 * kLanes);
    }
  }
}

void Convolver::SumProducts(const Spectra& now, Sums& sums) const {
  const float* response = responses_->spectra.data();
  const int block_floats = responses_->input_count * 2 * kLanes;
  const float* past = spectra_.data();
  const float* newest_block = now.values;
  const int* next_newest = newest_.data();
  int bin = 0;
  for (const int partitions : responses_->partitions) {
    const int newest = *next_newest++, past_blocks = partitions - 1;
    // Sums of re x re and im x im, re x im and im x re, apart: chains half as long.
    Vec left_rr{}, left_ii{}, left_ri{}, left_ir{};
    Vec right_rr{}, right_ii{}, right_ri{}, right_ir{};
    const auto add = [&](const float* input, int blocks) {
      for (int i = blocks * responses_->input_count; i > 0; --i) {
        const auto x = Complex<Vec>::LoadFrom(input);
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
        input += 2 * kLanes;
        response += kEars * 2 * kLanes;
      }
    };
    add(newest_block, 1);
    add(past + newest * block_floats, past_blocks - newest);
    add(past, newest);
    newest_block += block_floats;
    past += past_blocks * block_floats;
    Store(sums.re[0] + bin, left_rr - left_ii);
    Store(sums.im[0] + bin, left_ri + left_ir);
    Store(sums.re[1] + bin, right_rr - right_ii);
    Store(sums.im[1] + bin, right_ri + right_ir);
    bin += kLanes;
  }
}

// In place of the oldest block.
void Convolver::Remember(const Spectra& now) {
  const int block_floats = responses_->input_count * 2 * kLanes;
  float* past = spectra_.data();
  const float* from = now.values;
  int* next_newest = newest_.data();
  for (const int partitions : responses_->partitions) {
    const int past_blocks = partitions - 1;
    int& newest = *next_newest++;
    if (past_blocks > 0) {
      newest = newest == 0 ? past_blocks - 1 : newest - 1;
      std::copy_n(from, block_floats, past + newest * block_floats);
    }
    from += block_floats;
    past += past_blocks * block_floats;
  }
}

}  // namespace kelda::upmix_lib
