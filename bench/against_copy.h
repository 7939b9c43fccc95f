// Times something and a memory copy in turn, so that a busy machine slows both.
#ifndef KELDA_BENCH_AGAINST_COPY_H_
#define KELDA_BENCH_AGAINST_COPY_H_

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "pipeline/cache_aligned.h"

namespace kelda::bench {

// Seconds of this thread, without those that other programs ran.
inline double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Of these, what `batch` calls of `call` take.
template <typename Call>
double Time(int batch, Call call) {
  const double start = ThreadSeconds();
  for (int i = 0; i < batch; ++i) {
    call();
  }
  return ThreadSeconds() - start;
}

inline double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// A source and a destination of `samples` floats on cache lines, at places in their pages that
// are half a page apart. A load waits for an earlier store to the same place in another page, so
// with addresses of the allocator's choice a copy may take twice as long.
class BufferPair {
 public:
  explicit BufferPair(std::size_t samples)
      : apart_((samples + kPage - 1) / kPage * kPage + kPage / 2),
        memory_(MakeCacheAligned<float>(apart_ + samples)) {
    std::fill_n(memory_.get(), samples, 0.5f);
  }
  float* from() { return memory_.get(); }
  float* to() { return memory_.get() + apart_; }

 private:
  static constexpr std::size_t kPage = 4096 / sizeof(float);
  std::size_t apart_;
  CacheAlignedArray<float> memory_;
};

// Runs the benchmark of `call` with manual time. The counter `copies` is its time divided by
// that of a copy of `samples` floats from cache to cache, the median over batches of 100.
// Returns the median of its seconds.
template <typename Call>
double AgainstCopy(benchmark::State& state, std::size_t samples, Call call) {
  constexpr int kBatch = 100;
  BufferPair buffers(samples);
  std::vector<double> copies, times;
  while (state.KeepRunningBatch(kBatch)) {
    const double copy_time = Time(kBatch, [&] {
      std::memcpy(buffers.to(), buffers.from(), samples * sizeof(float));
      benchmark::ClobberMemory();
    });
    const double time = Time(kBatch, call);
    copies.push_back(time / copy_time);
    times.push_back(time / kBatch);
    state.SetIterationTime(time);
  }
  state.counters["copies"] = Median(copies);
  return Median(times);
}

}  // namespace kelda::bench

#endif  // KELDA_BENCH_AGAINST_COPY_H_
