// The five components, driven through their C entries as hosts do, behind one face.
#ifndef KELDA_TESTS_LABORATORY_COMPONENTS_H_
#define KELDA_TESTS_LABORATORY_COMPONENTS_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "platform/include/upmix_lib.h"
#include "tests/laboratory/life_cycle.h"
#include "tests/laboratory/signals.h"
#include "tests/laboratory/temporary_folder.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_parameters.h"
#include "upmix-lib/upmix/cinema_parameters.h"
#include "upmix-lib/upmix/music_parameters.h"
#include "upmix-lib/upmix/plane_upmix.h"

namespace kelda::upmix_lib {

inline constexpr std::size_t kBlock = kBlockFrames;

// ---- Parameters and data.

template <typename Parameters>
Parameters Sealed(Parameters parameters, const DataKind& kind) {
  Seal(std::as_writable_bytes(std::span(&parameters, 1)), kind);
  return parameters;
}

inline MusicParameters MusicDefaults() {
  return DefaultParameters<MusicParameters>(kMusicKind, kMusicFields);
}
inline CinemaParameters CinemaDefaults() {
  return DefaultParameters<CinemaParameters>(kCinemaKind, kCinemaFields);
}
inline LevelParameters LevelDefaults() {
  return DefaultParameters<LevelParameters>(kLevelKind, kLevelFields);
}

// HRIRs of zeros, without a room.
inline HrirSet SilentHrirs(int taps) {
  HrirSet set;
  set.source = "made";
  set.licence = "none";
  set.taps = taps;
  set.room = {kRoomOffDb, kRoomOffDb, 0.1f, 3.0f, 5000.0f, {}};
  set.responses.resize(kPlanes * kEars * static_cast<std::size_t>(taps));
  return set;
}

// Of decaying noise, no two alike.
inline HrirSet NoiseHrirs(int taps, uint32_t seed) {
  HrirSet set = SilentHrirs(taps);
  set.responses = Noise(set.responses.size(), seed);
  for (std::size_t i = 0; i < set.responses.size(); ++i) {
    const double tap = static_cast<double>(i % static_cast<std::size_t>(taps));
    set.responses[i] *= static_cast<float>(std::exp(-4.0 * tap / taps));
  }
  return set;
}

// Those that let through, unchanged and to both ears, the planes in `audible`.
inline HrirSet Probe(std::initializer_list<std::size_t> audible) {
  HrirSet set = SilentHrirs(32);
  for (const std::size_t plane : audible) {
    set.responses[plane * 2 * 32] = set.responses[(plane * 2 + 1) * 32] = 1.0f;
  }
  return set;
}

// A curve with a tail, in either form.
inline EqualizerTuning FiveBands(EqualizerForm form) {
  EqualizerTuning tuning;
  tuning.form = form;
  tuning.curves = {{{{BandType::kLowShelf, 100, 5, 0.7f},
                     {BandType::kHighPass, 15, 0, 0.7f},
                     {BandType::kPeaking, 200, -3, 4},
                     {BandType::kPeaking, 3000, 4, 2},
                     {BandType::kHighShelf, 9000, -4, 0.7f}},
                    {0.9f, -0.3f, 0.2f, 0.1f, -0.05f, 0.02f}}};
  return tuning;
}

// A data file, and the configuration file "config" that names it.
inline void InstallIn(const TemporaryFolder& folder, std::span<const std::byte> data) {
  folder.Write("data", data);
  folder.Write("config", "data\n");
}

// ---- Instances.

class Component {
 public:
  Component(std::size_t inputs, std::size_t outputs) : inputs_(inputs), outputs_(outputs) {}
  Component(const Component&) = delete;
  Component& operator=(const Component&) = delete;
  virtual ~Component() = default;

  std::size_t inputs() const { return inputs_; }
  std::size_t outputs() const { return outputs_; }

  // Processes one block of kBlock frames; allocates nothing.
  virtual int32_t Block(const float* const* in, float* const* out) = 0;
  // Clears the signal history: where there is no entry for that, by a new load.
  virtual int32_t Flush() = 0;

  // Whole blocks, each after `before`, which is given its number.
  Planes Process(const Planes& in, const std::function<void(std::size_t)>& before = {}) {
    EXPECT_EQ(in.size(), inputs_);
    Planes out(outputs_, Signal(in[0].size()));
    for (std::size_t at = 0; at + kBlock <= in[0].size(); at += kBlock) {
      if (before) {
        before(at / kBlock);
      }
      const float* from[kPlanes];
      float* to[kPlanes];
      for (std::size_t p = 0; p < inputs_; ++p) {
        from[p] = &in[p][at];
      }
      for (std::size_t p = 0; p < outputs_; ++p) {
        to[p] = &out[p][at];
      }
      EXPECT_EQ(Block(from, to), kOk);
    }
    return out;
  }

 private:
  const std::size_t inputs_, outputs_;
};

// Of either component that is known by handles.
class HandleInstance : public Component {
 public:
  HandleInstance(const LifeCycle& entries, std::size_t inputs, std::span<const std::byte> data)
      : Component(inputs, 2), entries_(entries) {
    InstallIn(directory_, data);
    EXPECT_EQ(entries_.set_up(), kOk);
    EXPECT_EQ(entries_.create(&handle_, directory_.path().c_str(), "config"), kOk);
    EXPECT_EQ(entries_.initialize(handle_), kOk);
    EXPECT_EQ(HandleInstance::Flush(), kOk);
  }
  ~HandleInstance() override {
    EXPECT_EQ(entries_.close(handle_), kOk);
    EXPECT_EQ(entries_.destroy(&handle_), kOk);
  }
  int32_t Flush() override { return entries_.flush(handle_); }

  uint32_t handle() const { return handle_; }
  // What the instance was created from.
  const TemporaryFolder& directory() const { return directory_; }

 private:
  const LifeCycle& entries_;
  TemporaryFolder directory_;
  uint32_t handle_ = 0;
};

class EqualizerInstance : public HandleInstance {
 public:
  explicit EqualizerInstance(const EqualizerTuning& tuning)
      : HandleInstance(kEqualizerEntries, 2, BuildEqualizerFile(tuning)) {}
  int32_t Block(const float* const* in, float* const* out) override {
    for (const std::size_t ear : {0u, 1u}) {
      std::copy_n(in[ear], kBlock, out[ear]);
    }
    return A0836(handle(), out);
  }
};

class VirtualizerInstance : public HandleInstance {
 public:
  explicit VirtualizerInstance(const HrirSet& hrirs)
      : HandleInstance(kVirtualizerEntries, kPlanes, EncodeHrirSet(hrirs)) {}
  int32_t Block(const float* const* in, float* const* out) override {
    for (std::size_t p = 0; p < kPlanes; ++p) {
      std::copy_n(in[p], kBlock, &planes_[p * kBlock]);
    }
    return A0560(handle(), kind, frames, out, planes_.data(), flags.data());
  }
  // Replaces the files that the instance was created from.
  void Install(const HrirSet& hrirs) const { InstallIn(directory(), EncodeHrirSet(hrirs)); }

  // What the blocks come with.
  int32_t kind = 0, frames = kBlockFrames;
  std::array<int32_t, kPlanes> flags = {};

 private:
  Signal planes_ = Signal(kPlanes * kBlock);
};

// In work memory of exactly the reported size, at an odd address.
class MusicInstance : public Component {
 public:
  explicit MusicInstance(const MusicParameters& parameters = MusicDefaults())
      : Component(2, kPlanes), parameters_(Sealed(parameters, kMusicKind)) {
    uint32_t param_bytes = 0;
    EXPECT_EQ(A0216(), kOk);
    EXPECT_EQ(A0511(&work_bytes_, &param_bytes), kOk);
    EXPECT_EQ(param_bytes, sizeof(parameters_));
    memory_ = std::make_unique<char[]>(work_bytes_ + 1);
    EXPECT_EQ(MusicInstance::Flush(), kOk);
  }
  int32_t Block(const float* const* in, float* const* out) override {
    for (std::size_t at = 0; at < kBlock; at += kHopFrames) {
      const float* from[2] = {in[0] + at, in[1] + at};
      float* to[kPlanes];
      for (std::size_t p = 0; p < kPlanes; ++p) {
        to[p] = out[p] + at;
      }
      if (const int32_t status = A0239(from, to, work())) {
        return status;
      }
    }
    return kOk;
  }
  int32_t Flush() override { return A0559(&parameters_, work()); }

  void* work() const { return memory_.get() + 1; }
  std::size_t work_bytes() const { return work_bytes_; }

 private:
  const MusicParameters parameters_;
  uint32_t work_bytes_ = 0;
  std::unique_ptr<char[]> memory_;
};

class CinemaInstance : public Component {
 public:
  explicit CinemaInstance(const CinemaParameters& parameters = CinemaDefaults(),
                          const HrirSet& hrirs = Probe({0, 1, 2, 3, 4, 5, 6}))
      : Component(2, kEars) {
    const CinemaParameters sealed = Sealed(parameters, kCinemaKind);
    const TemporaryFolder directory;
    InstallIn(directory, EncodeHrirSet(hrirs));
    EXPECT_EQ(A0244(), kOk);
    instance_ = A0218(&sealed, directory.path().c_str(), "config");
    EXPECT_NE(instance_, nullptr);
  }
  ~CinemaInstance() override { EXPECT_EQ(A0213(&instance_), kOk); }
  int32_t Block(const float* const* in, float* const* out) override {
    return A0238(in, out, instance_);
  }
  int32_t Flush() override { return A0593(instance_); }

 private:
  void* instance_ = nullptr;
};

// As MusicInstance.
class LevelInstance : public Component {
 public:
  explicit LevelInstance(const LevelParameters& parameters = LevelDefaults())
      : Component(2, 2), parameters_(Sealed(parameters, kLevelKind)) {
    uint32_t work_bytes = 0, param_bytes = 0;
    EXPECT_EQ(A0834(), kOk);
    EXPECT_EQ(A0557(&work_bytes, &param_bytes), kOk);
    EXPECT_EQ(param_bytes, sizeof(parameters_));
    memory_ = std::make_unique<char[]>(work_bytes + 1);
    EXPECT_EQ(A0508(work(), kBlockFrames), kOk);
    EXPECT_EQ(LevelInstance::Flush(), kOk);
  }
  int32_t Block(const float* const* in, float* const* out) override {
    for (std::size_t i = 0; i < 2 * kBlock; ++i) {
      in_[i] = in[i % 2][i / 2];
    }
    const int32_t status = A0217(work(), in_.data(), out_.data());
    for (std::size_t i = 0; i < 2 * kBlock; ++i) {
      out[i % 2][i / 2] = out_[i];
    }
    return status;
  }
  int32_t Flush() override {
    const int32_t status = A0508(work(), kBlockFrames);
    return status == kOk ? A0122(work(), &parameters_) : status;
  }

  void* work() const { return memory_.get() + 1; }

 private:
  const LevelParameters parameters_;
  std::unique_ptr<char[]> memory_;
  Signal in_ = Signal(2 * kBlock), out_ = in_;  // interleaved
};

// One of each, with a name, and the frames after which its silence is exact.
struct Kind {
  const char* name;
  std::function<std::unique_ptr<Component>()> make;
  std::size_t tail_frames;
};
inline std::unique_ptr<Component> MakeEqualizer(EqualizerForm form) {
  return std::make_unique<EqualizerInstance>(FiveBands(form));
}
inline std::unique_ptr<Component> MakeVirtualizer() {
  HrirSet set = NoiseHrirs(256, 7);
  set.room = {-10.0f, -10.0f, 0.2f, 5.0f, 5000.0f, {}};
  return std::make_unique<VirtualizerInstance>(set);
}
inline const Kind kKinds[] = {
    {"EqualizerBands", [] { return MakeEqualizer(EqualizerForm::kBands); }, 100 * kBlock},
    {"EqualizerFir", [] { return MakeEqualizer(EqualizerForm::kFir); }, 2 * kBlock},
    {"Virtualizer", MakeVirtualizer, 14 * kBlock},  // decay, start and a grain of noise
    {"Music", [] { return std::make_unique<MusicInstance>(); }, 24 * kBlock},  // bass below 30 Hz
    {"Cinema", [] { return std::make_unique<CinemaInstance>(); }, 48000},
    {"Level", [] { return std::make_unique<LevelInstance>(); }, 48},
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_LABORATORY_COMPONENTS_H_
