#include "tools/live/cycle_meter.h"

#include <algorithm>

namespace kelda::tools {
namespace {

// Written by one thread, so that no exchange is needed.
template <typename Number>
void Add(std::atomic<Number>* to, Number amount) KELDA_NONBLOCKING {
  to->store(to->load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
}

}  // namespace

void CycleMeter::Begin(const Cycle& cycle, uint64_t thread_ns) {
  const bool follows = !interrupted_.exchange(false, std::memory_order_relaxed) &&
                       cycle.clock == last_.clock && cycle.rate_hz == last_.rate_hz &&
                       last_.duration != 0;
  if (follows && cycle.position == last_.position) {
    return;  // the same cycle, asked for more
  }
  if (follows) {
    Count(thread_ns - last_ns_);
    if (cycle.position != last_.position + last_.duration) {
      Add<uint64_t>(&xruns_, 1);
    }
  }
  last_ = cycle;
  last_ns_ = thread_ns;
  spent_ns_ = 0;
  rate_hz_.store(cycle.rate_hz, std::memory_order_relaxed);
  quantum_.store(static_cast<uint32_t>(cycle.duration), std::memory_order_relaxed);
}

// The last cycle.
void CycleMeter::Count(uint64_t thread_ns) {
  constexpr float kHalf = 0.5f, kNano = 1e-9f;
  const float seconds = static_cast<float>(last_.duration) / static_cast<float>(last_.rate_hz);
  const float share = kNano * static_cast<float>(spent_ns_) / seconds;
  const float loaded = kNano * static_cast<float>(thread_ns);
  Add<uint64_t>(&cycles_, 1);
  Add<uint64_t>(&slow_, share > kHalf ? 1 : 0);
  worst_.store(std::max(worst_.load(std::memory_order_relaxed), share), std::memory_order_relaxed);
  Add(&load_, std::min(seconds, 1.0f) * (loaded / seconds - load_.load(std::memory_order_relaxed)));
  loaded_seconds_ += loaded;
  seconds_ += seconds;
  mean_.store(static_cast<float>(loaded_seconds_ / seconds_), std::memory_order_relaxed);
}

CycleFigures CycleMeter::figures() const {
  return {cycles_, slow_, xruns_, load_, mean_, worst_, rate_hz_, quantum_};
}

}  // namespace kelda::tools
