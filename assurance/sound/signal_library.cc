#include "assurance/sound/signal_library.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <span>
#include <utility>

#include "settings/tuning_directory.h"
#include "tests/laboratory/temporary_folder.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/upmix/cinema_parameters.h"

namespace kelda::sound {
namespace {

using upmix_lib::kBlockFrames;
using upmix_lib::kHopFrames;

void Require(bool succeeded, const std::string& what) {
  if (!succeeded) {
    throw std::runtime_error("the signal library failed: " + what);
  }
}

std::vector<char> Parameters(const std::filesystem::path& file, uint32_t bytes) {
  std::ifstream stream(file, std::ios::binary);
  std::vector<char> data{std::istreambuf_iterator<char>(stream), {}};
  Require(data.size() == bytes, file.string() + " has the wrong length");
  return data;
}

// Has `process` turn blocks of `frames` frames into `outputs` planes, `latency` frames late.
Planes InBlocks(const Planes& in, std::size_t outputs, std::size_t frames, std::size_t latency,
                const std::function<int32_t(const float* const*, float* const*)>& process) {
  const std::size_t length = in[0].size();
  const std::size_t blocks = (length + latency + frames - 1) / frames;
  Planes from = in, to(outputs, Signal(blocks * frames));
  for (Signal& plane : from) {
    plane.resize(blocks * frames);
  }
  for (std::size_t block = 0; block < blocks; ++block) {
    std::vector<const float*> sources;
    std::vector<float*> targets;
    for (const Signal& plane : from) {
      sources.push_back(&plane[block * frames]);
    }
    for (Signal& plane : to) {
      targets.push_back(&plane[block * frames]);
    }
    Require(process(sources.data(), targets.data()) == 0, "a block");
  }
  for (Signal& plane : to) {
    plane.erase(plane.begin(), plane.begin() + static_cast<std::ptrdiff_t>(latency));
    plane.resize(length);
  }
  return to;
}

}  // namespace

SignalLibrary::SignalLibrary(const std::filesystem::path& library, std::filesystem::path tuning)
    : tuning_(std::move(tuning)) {
  void* const handle = dlopen(std::filesystem::absolute(library).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    throw std::runtime_error(dlerror());
  }
  entries_ = tools::UpmixLibEntries::Of(handle);
}

Planes SignalLibrary::Upmix(const Planes& stereo) const {
  uint32_t work_bytes = 0, param_bytes = 0;
  Require(entries_.A0216() == 0 && entries_.A0511(&work_bytes, &param_bytes) == 0, "set-up");
  const auto params = Parameters(tuning_ / tuning_file::kStandardMusic.name, param_bytes);
  std::vector<char> work(work_bytes);
  Require(entries_.A0559(params.data(), work.data()) == 0, "A0559");
  return InBlocks(stereo, upmix_lib::kPlanes, kHopFrames, upmix_lib::kUpmixLatencyFrames,
                  [&](const float* const* in, float* const* out) {
                    return entries_.A0239(in, out, work.data());
                  });
}

Planes SignalLibrary::Virtualize(const Planes& seven) const {
  uint32_t handle = 0;
  Require(entries_.A0779() == 0 &&
              entries_.A0782(&handle, tuning_.c_str(), tuning_file::kWiredHki.name) == 0 &&
              entries_.A0556(handle) == 0 && entries_.A0236(handle) == 0,
          "A0782");
  const int32_t flags[upmix_lib::kPlanes] = {};
  int32_t kind = 2;  // the stream's first block, the one behind it, every other
  Signal planes(upmix_lib::kPlanes * kBlockFrames);
  Planes ears = InBlocks(
      seven, upmix_lib::kEars, kBlockFrames, 0, [&](const float* const* in, float* const* out) {
        for (std::size_t p = 0; p < upmix_lib::kPlanes; ++p) {
          std::copy_n(in[p], kBlockFrames, &planes[p * kBlockFrames]);
        }
        return entries_.A0560(handle, std::exchange(kind, kind > 0 ? kind - 1 : 0), kBlockFrames,
                              out, planes.data(), flags);
      });
  entries_.A0212(handle);
  entries_.A0810(&handle);
  return ears;
}

Planes SignalLibrary::Cinema(const Planes& stereo) const {
  uint32_t param_bytes = 0;
  Require(entries_.A0333(&param_bytes) == 0, "A0333");
  return Cinema(stereo, Parameters(tuning_ / tuning_file::kStandardCinema.name, param_bytes),
                tuning_);
}

std::vector<char> SignalLibrary::CinemaWithoutRoom() const {
  uint32_t param_bytes = 0;
  Require(entries_.A0333(&param_bytes) == 0, "A0333");
  auto params = Parameters(tuning_ / tuning_file::kStandardCinema.name, param_bytes);
  for (const std::size_t field : {offsetof(upmix_lib::CinemaParameters, room_level_db),
                                  offsetof(upmix_lib::CinemaParameters, room_early_level_db)}) {
    std::memcpy(&params[field], &upmix_lib::kRoomOffDb, sizeof(upmix_lib::kRoomOffDb));
  }
  upmix_lib::DataKind kind = upmix_lib::kCinemaKind;
  std::memcpy(&kind.version, &params[offsetof(upmix_lib::DataHeader, version)],
              sizeof(kind.version));  // of this library, which may be an older one
  upmix_lib::Seal(std::as_writable_bytes(std::span(params)), kind);
  return params;
}

Planes SignalLibrary::CinemaRoom(const Planes& stereo) const {
  Planes room = Cinema(stereo);
  AddTo(room, Cinema(stereo, CinemaWithoutRoom(), tuning_), -1);
  return room;
}

Planes SignalLibrary::CinemaPlanes(const Planes& stereo) const {
  const std::vector<char> params = CinemaWithoutRoom();
  Planes planes;
  for (std::size_t plane = 0; plane < upmix_lib::kPlanes; plane += 2) {
    upmix_lib::HrirSet ears;
    ears.taps = 1;
    ears.room = {upmix_lib::kRoomOffDb, upmix_lib::kRoomOffDb, 0.1f, 3.0f, 5000.0f, {}};
    ears.responses.resize(upmix_lib::kPlanes * upmix_lib::kEars);
    ears.responses[plane * upmix_lib::kEars] = 1;
    if (plane + 1 < upmix_lib::kPlanes) {
      ears.responses[(plane + 1) * upmix_lib::kEars + 1] = 1;
    }
    const TemporaryFolder folder;
    folder.Write("probe.hki", std::span<const std::byte>(upmix_lib::EncodeHrirSet(ears)));
    folder.Write(tuning_file::kWiredHki.name, "probe.hki\n");
    for (Signal& ear : Cinema(stereo, params, folder.path())) {
      planes.push_back(std::move(ear));
    }
  }
  planes.resize(upmix_lib::kPlanes);
  return planes;
}

Planes SignalLibrary::Cinema(const Planes& stereo, const std::vector<char>& params,
                             const std::filesystem::path& folder) const {
  Require(entries_.A0244() == 0, "set-up");
  void* instance = entries_.A0218(params.data(), folder.c_str(), tuning_file::kWiredHki.name);
  Require(instance != nullptr, "A0218");
  Planes out = InBlocks(
      stereo, upmix_lib::kEars, kBlockFrames, upmix_lib::kUpmixLatencyFrames,
      [&](const float* const* in, float* const* to) { return entries_.A0238(in, to, instance); });
  entries_.A0213(&instance);
  return out;
}

}  // namespace kelda::sound
