// What the audio server's cycles cost, and which came too late.
#ifndef KELDA_TOOLS_LIVE_CYCLE_METER_H_
#define KELDA_TOOLS_LIVE_CYCLE_METER_H_

#include <atomic>
#include <cstdint>

#include "platform/nonblocking.h"

namespace kelda::tools {

// A cycle of the audio server's graph, by the clock of the device that drives it.
struct Cycle {
  uint32_t clock = 0;     // which device's
  uint32_t rate_hz = 0;   // of the graph
  uint64_t position = 0;  // frames
  uint64_t duration = 0;  // frames: the quantum
};

struct CycleFigures {
  uint64_t cycles = 0;
  uint64_t slow = 0;   // took more than half of their time
  uint64_t xruns = 0;  // the clock went on by more than a cycle: we, or the graph, came too late
  float load = 0;      // share of a core, of the last second or so
  float mean = 0;      // the same since the beginning
  float worst = 0;     // the largest share of its time that a cycle took
  uint32_t rate_hz = 0;
  uint32_t quantum = 0;
};

// The load is that of the data thread by its own processor clock, and all of it: conversion of
// rates and the server's library included, which run on that thread, too. What a cycle took is
// counted by what calls Spend, because in a virtual machine that clock leaps where the host was
// away.
class CycleMeter {
 public:
  // A cycle begins, with the thread's processor clock. Audio.
  void Begin(const Cycle& cycle, uint64_t thread_ns) KELDA_NONBLOCKING;

  // It took so much. Audio.
  void Spend(uint64_t ns) KELDA_NONBLOCKING { spent_ns_ += ns; }

  // The stream was stopped or linked anew, so that the next cycle follows none. Any thread.
  void Interrupt() KELDA_NONBLOCKING { interrupted_.store(true, std::memory_order_relaxed); }

  // Any thread.
  CycleFigures figures() const;

 private:
  void Count(uint64_t thread_ns) KELDA_NONBLOCKING;

  std::atomic<bool> interrupted_{true};
  // The audio thread's.
  Cycle last_;
  uint64_t last_ns_ = 0, spent_ns_ = 0;
  double loaded_seconds_ = 0, seconds_ = 0;
  // Written by the audio thread alone.
  std::atomic<uint64_t> cycles_{0}, slow_{0}, xruns_{0};
  std::atomic<float> load_{0}, mean_{0}, worst_{0};
  std::atomic<uint32_t> rate_hz_{0}, quantum_{0};
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_CYCLE_METER_H_
