// Each component as its wrapper in processors/ uses it: the same entries in the same
// order, with the files of a tuning directory.
#include <array>
#include <cstddef>
#include <random>

#include "platform/audio_format.h"
#include "settings/tuning_directory.h"
#include "tools/library/library_trial.h"

namespace kelda::tools {
namespace {

constexpr int kChunk = 64;  // the block of the music upmix
constexpr const char* kNoSuchFile = "kelda-doctor-has-no-such.config";

// Noise that peaks at -12 dBFS.
GuardedFloats Noise(std::size_t floats) {
  GuardedFloats noise(floats);
  std::minstd_rand random(1);
  for (std::size_t i = 0; i < floats; ++i) {
    noise.data()[i] =
        static_cast<float>(random()) / static_cast<float>(random.max()) * 0.5f - 0.25f;
  }
  return noise;
}

template <std::size_t kCount>
std::array<float*, kCount> PlanePointers(GuardedFloats* planes) {
  std::array<float*, kCount> pointers;
  for (std::size_t c = 0; c < kCount; ++c) {
    pointers[c] = planes->data() + c * (planes->size() / kCount);
  }
  return pointers;
}

std::string Bytes(uint32_t work, uint32_t params) {
  return "work " + std::to_string(work) + " bytes, parameters " + std::to_string(params) + " bytes";
}

// The entries that both components with handles have for the life of an instance.
struct HandleEntries {
  const char *setup_name, *create_name, *initialize_name, *flush_name, *detail_name, *close_name,
      *destroy_name;
  int32_t (*setup)();
  int32_t (*create)(uint32_t*, const char*, const char*);
  int32_t (*initialize)(uint32_t);
  int32_t (*flush)(uint32_t);
  int32_t (*detail)(uint32_t, int32_t*, int32_t*);
  int32_t (*close)(uint32_t);
  int32_t (*destroy)(uint32_t*);
};

// `process` takes the handle of the instance and calls Block.
void TryHandleComponent(ComponentTrial* trial, const HandleEntries& entries, const char* config,
                        const std::function<void(uint32_t handle)>& process) {
  trial->Call(entries.setup_name, "set-up", entries.setup());
  uint32_t handle = 0;
  const bool refused = entries.create(&handle, trial->directory.c_str(), kNoSuchFile) != 0;
  trial->Refused(entries.create_name, "create from a file that is missing", refused);
  trial->Expect(!refused || handle == 0, "the failed create wrote a handle");
  handle = 0;
  if (!trial->Call(entries.create_name, std::string("create from ") + config,
                   entries.create(&handle, trial->directory.c_str(), config))) {
    return;
  }
  trial->Expect(handle != 0, "the handle is 0, which means none");
  if (trial->Call(entries.initialize_name, "initialise", entries.initialize(handle)) &&
      trial->Call(entries.flush_name, "flush", entries.flush(handle))) {
    process(handle);
  }
  int32_t error = 0, detail = 0;
  trial->Call(entries.detail_name, "error detail", entries.detail(handle, &error, &detail));
  trial->Call(entries.close_name, "close", entries.close(handle));
  trial->Call(entries.destroy_name, "destroy", entries.destroy(&handle));
}

void TryEqualizer(ComponentTrial* trial) {
  const UpmixLibEntries& e = trial->entries;
  const HandleEntries entries{"A0507", "A0243", "A0214", "A0237", "A0332", "A0562", "A0812",
                              e.A0507, e.A0243, e.A0214, e.A0237, e.A0332, e.A0562, e.A0812};
  TryHandleComponent(trial, entries, tuning_file::kWiredBa.name, [&](uint32_t handle) {
    GuardedFloats noise = Noise(2 * kPeriodFrames), planes(2 * kPeriodFrames);
    const auto pointers = PlanePointers<2>(&planes);
    trial->Block("A0836", kPeriodFrames, &planes, [&] {
      std::copy_n(noise.data(), noise.size(), planes.data());
      return e.A0836(handle, pointers.data());
    });
  });
}

void TryMusicUpmix(ComponentTrial* trial) {
  const UpmixLibEntries& e = trial->entries;
  trial->Call("A0216", "set-up", e.A0216());
  uint32_t work_bytes = 0, param_bytes = 0;
  const int32_t sizes = e.A0511(&work_bytes, &param_bytes);
  if (!trial->Call("A0511", Bytes(work_bytes, param_bytes), sizes)) {
    return;
  }
  const std::vector<char> params = trial->Parameters(tuning_file::kStandardMusic.name, param_bytes);
  std::vector<char> work = trial->WorkMemory(work_bytes);
  if (work.empty() || !trial->Call("A0559", "initialise", e.A0559(params.data(), work.data()))) {
    return;
  }
  GuardedFloats in = Noise(2 * kChunk), out(kSurroundPlanes * kChunk);
  const auto from = PlanePointers<2>(&in);
  const auto to = PlanePointers<kSurroundPlanes>(&out);
  trial->Block("A0239", kChunk, &out, [&] { return e.A0239(from.data(), to.data(), work.data()); });
  trial->CheckWorkMemory(work);
}

void TryVirtualizer(ComponentTrial* trial) {
  const UpmixLibEntries& e = trial->entries;
  const HandleEntries entries{"A0779", "A0782", "A0556", "A0236", "A0783", "A0212", "A0810",
                              e.A0779, e.A0782, e.A0556, e.A0236, e.A0783, e.A0212, e.A0810};
  TryHandleComponent(trial, entries, tuning_file::kWiredHki.name, [&](uint32_t handle) {
    GuardedFloats in = Noise(kSurroundPlanes * kPeriodFrames), out(2 * kPeriodFrames);
    const auto to = PlanePointers<2>(&out);
    const int32_t flags[kSurroundPlanes] = {};
    int32_t kind = 2;  // a stream's first block, then the second, then the rest
    trial->Block("A0560", kPeriodFrames, &out, [&] {
      const int32_t status = e.A0560(handle, kind, kPeriodFrames, to.data(), in.data(), flags);
      kind = kind > 0 ? kind - 1 : 0;
      return status;
    });
  });
}

void TryCinema(ComponentTrial* trial) {
  const UpmixLibEntries& e = trial->entries;
  trial->Call("A0244", "set-up", e.A0244());
  uint32_t param_bytes = 0;
  const int32_t sizes = e.A0333(&param_bytes);
  if (!trial->Call("A0333", "parameters " + std::to_string(param_bytes) + " bytes", sizes)) {
    return;
  }
  const std::vector<char> params =
      trial->Parameters(tuning_file::kStandardCinema.name, param_bytes);
  const char* const directory = trial->directory.c_str();
  void* const none = e.A0218(params.data(), directory, kNoSuchFile);
  trial->Refused("A0218", "create from a file that is missing", none == nullptr);
  void* instance = e.A0218(params.data(), directory, tuning_file::kWiredHki.name);
  if (!trial->Call("A0218", std::string("create from ") + tuning_file::kWiredHki.name,
                   instance == nullptr ? -1 : 0)) {
    return;
  }
  GuardedFloats in = Noise(2 * kPeriodFrames), out(2 * kPeriodFrames);
  const auto from = PlanePointers<2>(&in);
  const auto to = PlanePointers<2>(&out);
  trial->Block("A0238", kPeriodFrames, &out,
               [&] { return e.A0238(from.data(), to.data(), instance); });
  trial->Call("A0593", "flush", e.A0593(instance));
  trial->Call("A0213", "destroy", e.A0213(&instance));
}

void TryLevelControl(ComponentTrial* trial) {
  const UpmixLibEntries& e = trial->entries;
  trial->Call("A0834", "set-up", e.A0834());
  uint32_t work_bytes = 0, param_bytes = 0;
  const int32_t sizes = e.A0557(&work_bytes, &param_bytes);
  if (!trial->Call("A0557", Bytes(work_bytes, param_bytes), sizes)) {
    return;
  }
  const std::vector<char> params = trial->Parameters(tuning_file::kMusicLevel.name, param_bytes);
  std::vector<char> work = trial->WorkMemory(work_bytes);
  if (work.empty() || !trial->Call("A0508", "initialise", e.A0508(work.data(), kPeriodFrames)) ||
      !trial->Call("A0122", std::string("apply ") + tuning_file::kMusicLevel.name,
                   e.A0122(work.data(), params.data()))) {
    return;
  }
  GuardedFloats in = Noise(2 * kPeriodFrames), out(2 * kPeriodFrames);  // interleaved
  trial->Block("A0217", kPeriodFrames, &out,
               [&] { return e.A0217(work.data(), in.data(), out.data()); });
  trial->CheckWorkMemory(work);
}

}  // namespace

const std::vector<Component>& Components() {
  static const std::vector<Component> components = {{"headphone equalizer", TryEqualizer},
                                                    {"music upmix", TryMusicUpmix},
                                                    {"virtualizer", TryVirtualizer},
                                                    {"cinema upmix", TryCinema},
                                                    {"level control", TryLevelControl}};
  return components;
}

}  // namespace kelda::tools
