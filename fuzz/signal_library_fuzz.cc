// The signal library within its contract: every entry of every component, several instances,
// in any order, handles of destroyed instances, parameters and files in and out of range. For
// any input, an entry that succeeds must deliver finite samples.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <vector>

#include "fuzz/byte_reader.h"
#include "fuzz/samples.h"
#include "fuzz/tuning.h"
#include "platform/include/upmix_lib.h"
#include "tests/laboratory/life_cycle.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/status.h"

namespace {

using namespace kelda::fuzz;
using namespace kelda::upmix_lib;

constexpr std::size_t kBlock = kBlockFrames;
constexpr std::size_t kInstances = 2;
constexpr const char* kConfigs[] = {"wired.hki.config", "wired.ba.config", "standard.hki", "none"};

// The tuning directory, with the files that parameters are read from.
class Files {
 public:
  Files() { WriteTuning(directory_); }
  void Renew() const { WriteTuning(directory_); }
  void Rewrite(ByteReader* input) const { RewriteTuning(directory_, input); }
  const char* path() const { return directory_.path().c_str(); }

  // The first `bytes` bytes of a file, with zeros after its end.
  std::unique_ptr<char[]> Read(const char* name, uint32_t bytes) const {
    std::unique_ptr<char[]> contents(new char[bytes]());
    std::ifstream(directory_ / name, std::ios::binary).read(contents.get(), bytes);
    return contents;
  }

 private:
  kelda::TemporaryFolder directory_;
};

// Planes of `frames` floats each, one allocation for each plane.
struct Planes {
  Planes(std::size_t count, std::size_t frames) {
    for (std::size_t i = 0; i < count; ++i) {
      pointers.push_back(planes.emplace_back(frames).data());
    }
  }
  void FillAll(ByteReader* input) const {
    for (const Samples& plane : planes) {
      Fill(plane, input);
    }
  }
  // Call with the status of the entry that wrote the planes.
  void Check(int32_t status) const {
    for (const Samples& plane : planes) {
      if (status == kOk) {
        TrapUnlessFinite(plane);
      }
    }
  }

  std::vector<Samples> planes;
  std::vector<float*> pointers;
};

// Instances that are known by a handle. Handles are also used after the end of their instances.
class Handles {
 public:
  using Process = void (*)(uint32_t handle, ByteReader*);
  Handles(const LifeCycle& entries, Process process) : entries_(entries), process_(process) {}
  ~Handles() {
    for (uint32_t& alive : alive_) {
      End(&alive);
    }
  }
  void Step(const Files& files, ByteReader* input) {
    const std::size_t i = input->Below(kInstances);
    const std::size_t step = input->Below(12);
    int32_t error, detail;
    if (step < 2) {
      End(&alive_[i]);
    }
    if (step == 0) {
      entries_.create(&alive_[i], files.path(), input->OneOf(kConfigs));
      handles_[i] = alive_[i];
    }
    if (step == 2) {
      entries_.flush(handles_[i]);
    }
    if (step == 3) {
      entries_.close(handles_[i]);
    }
    if (step == 4) {
      entries_.last_error(handles_[i], &error, &detail);
    }
    if (step == 5 || step == 6) {
      entries_.initialize(handles_[i]);
    }
    if (step > 6) {
      process_(handles_[i], input);
    }
  }

 private:
  void End(uint32_t* alive) const {
    if (*alive != 0 && entries_.destroy(alive) != kOk) {
      __builtin_trap();
    }
  }

  const LifeCycle& entries_;
  const Process process_;
  uint32_t handles_[kInstances] = {}, alive_[kInstances] = {};
};

void Equalize(uint32_t handle, ByteReader* input) {
  const Planes planes(2, kBlock);
  planes.FillAll(input);
  planes.Check(A0836(handle, planes.pointers.data()));
}

void Virtualize(uint32_t handle, ByteReader* input) {
  constexpr int32_t kFrames[] = {kBlock, 0, 1, 1023, 1025, -1};
  const Samples in(kPlanes * kBlock);
  Fill(in, input);
  const Planes out(2, kBlock);
  std::array<int32_t, kPlanes> flags;
  for (int32_t& flag : flags) {
    flag = static_cast<int32_t>(input->Below(4) == 3);
  }
  const auto kind = static_cast<int32_t>(input->Below(4));
  out.Check(
      A0560(handle, kind, input->OneOf(kFrames), out.pointers.data(), in.data(), flags.data()));
}

// Work memory of an instance, of any alignment.
struct Work {
  Work(int32_t (*sizes)(uint32_t*, uint32_t*), ByteReader* input) {
    uint32_t work_bytes = 0;
    if (sizes(&work_bytes, &param_bytes) != kOk) {
      __builtin_trap();
    }
    const uint32_t offset = input->Below(64);
    memory.reset(new char[offset + work_bytes]());
    address = memory.get() + offset;
  }
  uint32_t param_bytes = 0;
  std::unique_ptr<char[]> memory;
  void* address;
};

void StepMusic(std::optional<Work>* work, const Files& files, ByteReader* input) {
  const std::size_t step = input->Below(4);
  if (step == 0 || !*work) {
    work->emplace(A0511, input);
  }
  if (step == 1) {
    A0559(files.Read("upmix.music.hps.bin", (*work)->param_bytes).get(), (*work)->address);
  }
  const Planes in(2, 64), out(kPlanes, 64);
  for (std::size_t blocks = step > 1 ? 1 + input->Below(32) : 0; blocks > 0; --blocks) {
    in.FillAll(input);
    out.Check(A0239(in.pointers.data(), out.pointers.data(), (*work)->address));
  }
}

void StepLevel(std::optional<Work>* work, const Files& files, ByteReader* input) {
  const std::size_t step = input->Below(8);
  if (step == 0 || !*work) {
    work->emplace(A0557, input);
  }
  if (step == 1) {
    A0508((*work)->address, input->Below(4) == 3 ? 960 : kBlock);
  }
  if (step == 2) {
    A0122((*work)->address, files.Read("upl.music.bin", (*work)->param_bytes).get());
  }
  const Samples in(2 * kBlock), out(2 * kBlock);
  for (std::size_t blocks = step > 2 ? 1 + input->Below(32) : 0; blocks > 0; --blocks) {
    Fill(in, input);
    if (A0217((*work)->address, in.data(), out.data()) == kOk) {
      TrapUnlessFinite(out);
    }
  }
}

// Instances that are known by a pointer, which is also used after the end of its instance.
class Cinemas {
 public:
  ~Cinemas() { End(); }
  void Step(const Files& files, ByteReader* input) {
    const std::size_t step = input->Below(8);
    uint32_t param_bytes = 0;
    if (A0333(&param_bytes) != kOk) {
      __builtin_trap();
    }
    if (step < 2) {
      End();
    }
    if (step == 1) {
      const auto params = files.Read("upmix.cinema.hps.bin", param_bytes);
      instance_ = alive_ = A0218(params.get(), files.path(), input->OneOf(kConfigs));
    } else if (step == 2) {
      A0593(instance_);
    } else if (step > 2) {
      const Planes in(2, kBlock), out(2, kBlock);
      in.FillAll(input);
      out.Check(A0238(in.pointers.data(), out.pointers.data(), instance_));
    }
  }

 private:
  void End() {
    if (alive_ != nullptr && A0213(&alive_) != kOk) {
      __builtin_trap();
    }
  }
  void* instance_ = nullptr;
  void* alive_ = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const Files files;
  constexpr int kMostSteps = 200;
  files.Renew();
  for (const auto set_up : {A0507, A0216, A0779, A0244, A0834}) {
    if (set_up() != kOk) {
      __builtin_trap();
    }
  }
  ByteReader input(data, size);
  Handles equalizers(kEqualizerEntries, Equalize), virtualizers(kVirtualizerEntries, Virtualize);
  Cinemas cinema;
  std::optional<Work> music, level;
  for (int i = 0; i < kMostSteps && !input.empty(); ++i) {
    const uint32_t step = input.Below(6);
    if (step == 0) {
      files.Rewrite(&input);
    }
    if (step == 1) {
      equalizers.Step(files, &input);
    }
    if (step == 2) {
      virtualizers.Step(files, &input);
    }
    if (step == 3) {
      cinema.Step(files, &input);
    }
    if (step == 4) {
      StepMusic(&music, files, &input);
    }
    if (step == 5) {
      StepLevel(&level, files, &input);
    }
  }
  return 0;
}
