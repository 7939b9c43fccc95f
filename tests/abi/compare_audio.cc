// compare_audio FIRST SECOND LIMIT: whether two audio files hold the same.
//
// Prints the largest difference of two samples, and fails if it is above LIMIT (full
// scale is 1); with LIMIT 0 the samples agree bit for bit. Fails as well if the files
// differ in length or channels, if one cannot be read, if a sample is not finite, and
// if the first is silent: silence agrees with too much.
#include <sndfile.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

struct Audio {
  int channels = 0;
  std::vector<float> samples;  // interleaved
};

Audio Read(const char* path) {
  SF_INFO info{};
  SNDFILE* const file = sf_open(path, SFM_READ, &info);
  if (file == nullptr) {
    std::fprintf(stderr, "%s: %s\n", path, sf_strerror(nullptr));
    std::exit(2);
  }
  Audio audio{info.channels, std::vector<float>(static_cast<size_t>(info.frames * info.channels))};
  const sf_count_t read = sf_readf_float(file, audio.samples.data(), info.frames);
  sf_close(file);
  if (read != info.frames) {
    std::fprintf(stderr, "%s: %ld of %ld frames\n", path, static_cast<long>(read),
                 static_cast<long>(info.frames));
    std::exit(2);
  }
  return audio;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: compare_audio FIRST SECOND LIMIT\n");
    return 2;
  }
  const Audio first = Read(argv[1]), second = Read(argv[2]);
  const double limit = std::strtod(argv[3], nullptr);
  if (first.channels != second.channels || first.samples.size() != second.samples.size()) {
    std::fprintf(stderr, "%d channels, %zu samples and %d channels, %zu samples\n", first.channels,
                 first.samples.size(), second.channels, second.samples.size());
    return 1;
  }
  double peak = 0, largest = 0;
  size_t differing = 0, where = 0;
  for (size_t i = 0; i < first.samples.size(); ++i) {
    const float a = first.samples[i], b = second.samples[i];
    if (!std::isfinite(a) || !std::isfinite(b)) {
      std::fprintf(stderr, "sample %zu is not finite\n", i);
      return 1;
    }
    peak = std::max(peak, std::fabs(static_cast<double>(a)));
    differing += std::bit_cast<uint32_t>(a) != std::bit_cast<uint32_t>(b);
    const double difference = std::fabs(static_cast<double>(a) - static_cast<double>(b));
    if (difference > largest) {
      largest = difference;
      where = i;
    }
  }
  std::printf("peak %.3f, %zu of %zu samples differ, by %.2g at most (sample %zu), limit %g\n",
              peak, differing, first.samples.size(), largest, where, limit);
  const bool agree = limit == 0 ? differing == 0 : largest <= limit;
  return peak > 0.01 && agree ? 0 : 1;
}
