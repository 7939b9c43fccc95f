// compare_audio FIRST SECOND LIMIT: whether two audio files hold the same.
//
// Prints the largest difference of two samples, and fails if it is above LIMIT (full
// scale is 1); with LIMIT 0 the samples must agree bit for bit. It also fails if the files
// differ in length or channels, if one cannot be read, if a sample is not finite, or if the
// first is silent, because a comparison of silence shows nothing.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "tests/laboratory/audio_files.h"

namespace {

using kelda::tools::Audio;

int Compare(const Audio& first, const Audio& second, double limit) {
  if (first.channels != second.channels || first.samples.size() != second.samples.size()) {
    std::fprintf(stderr, "%d channels, %zu samples and %d channels, %zu samples\n", first.channels,
                 first.samples.size(), second.channels, second.samples.size());
    return 1;
  }
  double peak = 0, largest = 0;
  std::size_t differing = 0;
  for (std::size_t i = 0; i < first.samples.size(); ++i) {
    const float a = first.samples[i], b = second.samples[i];
    if (!std::isfinite(a) || !std::isfinite(b)) {
      std::fprintf(stderr, "sample %zu is not finite\n", i);
      return 1;
    }
    peak = std::max(peak, std::fabs(static_cast<double>(a)));
    differing += std::bit_cast<uint32_t>(a) != std::bit_cast<uint32_t>(b);
    largest = std::max(largest, std::fabs(static_cast<double>(a) - static_cast<double>(b)));
  }
  std::printf("peak %.3f, %zu of %zu samples differ, by %.2g at most, limit %g\n", peak, differing,
              first.samples.size(), largest, limit);
  const bool agree = limit == 0 ? differing == 0 : largest <= limit;
  return peak > 0.01 && agree ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: compare_audio FIRST SECOND LIMIT\n");
    return 2;
  }
  try {
    return Compare(kelda::tools::ReadAudio(argv[1]), kelda::tools::ReadAudio(argv[2]),
                   std::strtod(argv[3], nullptr));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
