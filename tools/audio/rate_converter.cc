#include "tools/audio/rate_converter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>

#include "tools/framework/effect_session.h"

namespace kelda::tools {
namespace {

void CheckConversion(soxr_error_t error) {
  if (error != nullptr) {
    throw std::runtime_error(std::string("conversion of the sample rate: ") + error);
  }
}

}  // namespace

bool RateConverter::Takes(int from_hz, int to_hz) {
  constexpr int64_t kFactor = 256;
  return from_hz * kFactor >= to_hz && from_hz <= to_hz * kFactor;
}

RateConverter::RateConverter(int from_hz, int to_hz, unsigned long quality)
    : from_hz_(from_hz), to_hz_(to_hz) {
  const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t recipe = soxr_quality_spec(quality, 0);
  soxr_error_t error = nullptr;
  converter_.reset(soxr_create(from_hz, to_hz, kChannels, &error, &samples, &recipe, nullptr));
  CheckConversion(error);
}

void RateConverter::Convert(const float* stereo, std::size_t frames, std::vector<float>* output) {
  constexpr std::size_t kRoomFrames = 4096;
  std::size_t read = 0;
  std::size_t made = 0;
  do {
    const std::size_t size = output->size();
    output->resize(size + kRoomFrames * kChannels);
    std::size_t taken = 0;
    CheckConversion(soxr_process(converter_.get(),
                                 frames == 0 ? nullptr : stereo + kChannels * read, frames - read,
                                 &taken, output->data() + size, kRoomFrames, &made));
    output->resize(size + made * kChannels);
    read += taken;
    frames_out_ += static_cast<int64_t>(made);
  } while (read < frames || made == kRoomFrames);
}

void RateConverter::Push(const float* stereo, std::size_t frames, std::vector<float>* output) {
  if (frames != 0) {
    Convert(stereo, frames, output);
    frames_in_ += static_cast<int64_t>(frames);
  }
}

void RateConverter::Finish(std::vector<float>* output) {
  const int64_t size_before = static_cast<int64_t>(output->size());
  Convert(nullptr, 0, output);
  // The converter may end a frame early or late.
  const int64_t length = std::llround(static_cast<double>(frames_in_) * to_hz_ / from_hz_);
  const int64_t size = static_cast<int64_t>(output->size()) +
                       (length - frames_out_) * static_cast<int64_t>(kChannels);
  output->resize(static_cast<std::size_t>(std::max(size, size_before)), 0.0f);
}

}  // namespace kelda::tools
