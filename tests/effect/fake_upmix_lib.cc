#include "tests/effect/fake_upmix_lib.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>

#include "platform/include/upmix_lib.h"

namespace {

constexpr int kBlock = 1024;
constexpr int kChunk = 64;
constexpr int kMaxInstances = 4096;  // that one test makes

// ---- What a test sets and reads. Fixed sizes: the audio path must not allocate.

struct EntryState {
  char name[8];
  int32_t status;
  int32_t detail;
  int nth;
  int count;
};
EntryState g_entries[64];

char g_calls[4096][192];
std::size_t g_call_count = 0;

EntryState& Entry(std::string_view name) {
  for (EntryState& entry : g_entries) {
    if (entry.name[0] == '\0') {
      name.copy(entry.name, sizeof(entry.name) - 1);
    }
    if (entry.name == name) {
      return entry;
    }
  }
  std::abort();
}

// Counts the call and returns the status that it is to have.
int32_t Called(const char* entry) {
  EntryState& state = Entry(entry);
  ++state.count;
  return state.nth == 0 || state.nth == state.count ? state.status : 0;
}

void Append(char* call, std::string_view word) {
  const std::size_t length = std::strlen(call);
  call[length + word.copy(call + length, sizeof(g_calls[0]) - 1 - length)] = '\0';
}

// Called, with a record of the entry and of `words`, which are texts or numbers.
template <class... Words>
int32_t Recorded(const char* entry, const Words&... words) {
  if (g_call_count < std::size(g_calls)) {
    char* const call = g_calls[g_call_count++];
    call[0] = '\0';
    Append(call, entry);
    [[maybe_unused]] const auto append = [call](const auto& word) {
      Append(call, " ");
      if constexpr (std::is_arithmetic_v<std::decay_t<decltype(word)>>) {
        Append(call, std::to_string(word));  // short enough to need no allocation
      } else {
        Append(call, word);
      }
    };
    (append(words), ...);
  }
  return Called(entry);
}

// ---- The arithmetic.

// One channel: gain x what came kDelay frames ago.
template <int kDelay>
struct DelayLine {
  float held[kDelay];
  int oldest;

  float Next(float sample) {
    std::swap(held[oldest], sample);
    oldest = oldest + 1 < kDelay ? oldest + 1 : 0;
    return sample;
  }
};

template <int kDelay>
struct StereoDelay {
  DelayLine<kDelay> left, right;
};

// Instances of a component that hands out handles.
template <int kDelay>
struct HandleComponent {
  struct Instance {
    bool exists, initialized;
    int32_t last_detail;
    StereoDelay<kDelay> delay;
  };
  const uint32_t first_handle;
  Instance instances[kMaxInstances];
  uint32_t created = 0;

  Instance* Find(uint32_t handle) {
    const uint32_t index = handle - first_handle;
    return index < created && instances[index].exists ? &instances[index] : nullptr;
  }

  int32_t Create(const char* entry, uint32_t* handle, const char* directory, const char* file) {
    if (const int32_t status = Recorded(entry, directory, file)) {
      return status;
    }
    if (created == std::size(instances)) {
      return -1000;
    }
    instances[created] = {true, false, 0, {}};
    *handle = first_handle + created++;
    return 0;
  }

  // For the calls that need nothing but a live handle. A misused handle gives
  // -1001.
  int32_t Use(const char* entry, uint32_t handle) {
    const int32_t status = Recorded(entry, handle);
    Instance* const instance = Find(handle);
    if (instance == nullptr) {
      return -1001;
    }
    instance->last_detail = Entry(entry).detail;
    return status;
  }

  int32_t Initialize(const char* entry, uint32_t handle) {
    const int32_t status = Use(entry, handle);
    if (status == 0) {
      Find(handle)->initialized = true;
    }
    return status;
  }

  int32_t Flush(const char* entry, uint32_t handle) {
    const int32_t status = Use(entry, handle);
    if (status == 0) {
      Find(handle)->delay = {};
    }
    return status;
  }

  int32_t ErrorDetail(const char* entry, uint32_t handle, int32_t* error, int32_t* detail) {
    const int32_t status = Called(entry);
    Instance* const instance = Find(handle);
    if (status != 0 || instance == nullptr) {
      return -1001;
    }
    *error = -1;
    *detail = instance->last_detail;
    return 0;
  }

  int32_t Destroy(const char* entry, uint32_t* handle) {
    const int32_t status = Use(entry, *handle);
    if (status == 0) {
      Find(*handle)->exists = false;  // and leaves *handle to the caller
    }
    return status;
  }

  int Live() const {
    return static_cast<int>(
        std::count_if(instances, instances + created, [](const Instance& i) { return i.exists; }));
  }
};

HandleComponent<3> g_equalizer{1, {}};
HandleComponent<142> g_virtualizer{1001, {}};

struct Cinema {
  bool exists;
  int id;
  StereoDelay<142> delay;
};
Cinema g_cinemas[kMaxInstances];
int g_cinema_created = 0;

constexpr uint32_t kLevelMagic = 0x4c45564c;
struct Level {
  uint32_t magic;
  bool configured;
  StereoDelay<2> delay;
};
static_assert(sizeof(Level) <= fake::kLevelWorkBytes);
constexpr char kMusicMagic[] = "music work memory";

// Parameter data starts with text in the tests. Reads all of it, so that a sanitizer
// notices data that is too short.
const char* ParamText(const void* params, uint32_t bytes) {
  static char text[128];
  std::memcpy(text, params, bytes);
  text[bytes] = '\0';
  return text;
}

int32_t Sizes(const char* entry, uint32_t work, uint32_t params, uint32_t* work_bytes,
              uint32_t* param_bytes) {
  *work_bytes = work;  // also in failure, which is when nobody may believe them
  *param_bytes = params;
  return Recorded(entry);
}

}  // namespace

namespace fake {

void Reset() {
  std::fill(std::begin(g_entries), std::end(g_entries), EntryState{});
  g_call_count = 0;
  g_equalizer.created = 0;
  g_virtualizer.created = 0;
  g_cinema_created = 0;
}

void Fail(const std::string& entry, int32_t status, int32_t detail, int nth) {
  Entry(entry).status = status;
  Entry(entry).detail = detail;
  Entry(entry).nth = nth;
}

std::vector<std::string> TakeCalls() {
  std::vector<std::string> calls(g_calls, g_calls + g_call_count);
  g_call_count = 0;
  return calls;
}

int Count(const std::string& entry) { return Entry(entry).count; }

int LiveInstances() {
  const auto cinemas = std::count_if(g_cinemas, g_cinemas + g_cinema_created,
                                     [](const Cinema& cinema) { return cinema.exists; });
  return g_equalizer.Live() + g_virtualizer.Live() + static_cast<int>(cinemas);
}

}  // namespace fake

// ---- Headphone equalizer.

int32_t A0507() { return Recorded("A0507"); }
int32_t A0243(uint32_t* handle, const char* directory, const char* file) {
  return g_equalizer.Create("A0243", handle, directory, file);
}
int32_t A0214(uint32_t handle) { return g_equalizer.Initialize("A0214", handle); }
int32_t A0237(uint32_t handle) { return g_equalizer.Flush("A0237", handle); }
int32_t A0836(uint32_t handle, float* const* planes) {
  const int32_t status = Called("A0836");
  auto* const instance = g_equalizer.Find(handle);
  if (instance == nullptr || !instance->initialized) {
    return -1001;
  }
  instance->last_detail = Entry("A0836").detail;
  if (status != 0) {
    return status;
  }
  for (int f = 0; f < kBlock; ++f) {
    planes[0][f] = 0.5f * instance->delay.left.Next(planes[0][f]);
    planes[1][f] = 0.5f * instance->delay.right.Next(planes[1][f]);
  }
  return 0;
}
int32_t A0332(uint32_t handle, int32_t* error, int32_t* detail) {
  return g_equalizer.ErrorDetail("A0332", handle, error, detail);
}
int32_t A0562(uint32_t handle) { return g_equalizer.Use("A0562", handle); }
int32_t A0812(uint32_t* handle) { return g_equalizer.Destroy("A0812", handle); }

// ---- Music upmix.

int32_t A0216() { return Recorded("A0216"); }
int32_t A0511(uint32_t* work_bytes, uint32_t* param_bytes) {
  return Sizes("A0511", fake::kMusicWorkBytes, fake::kMusicParamBytes, work_bytes, param_bytes);
}
int32_t A0559(const void* params, void* work) {
  if (params == nullptr || work == nullptr) {
    return Recorded("A0559", "null"), -1002;
  }
  const int32_t status = Recorded("A0559", ParamText(params, fake::kMusicParamBytes));
  std::memset(work, 0, fake::kMusicWorkBytes);
  if (status == 0) {
    std::memcpy(work, kMusicMagic, sizeof(kMusicMagic));
  }
  return status;
}
int32_t A0239(const float* const* in, float* const* out, void* work) {
  if (const int32_t status = Called("A0239")) {
    return status;
  }
  if (std::memcmp(work, kMusicMagic, sizeof(kMusicMagic)) != 0) {
    return -1001;
  }
  for (int c = 0; c < 7; ++c) {
    for (int f = 0; f < kChunk; ++f) {
      out[c][f] = static_cast<float>(c + 1) * in[c % 2][f];
    }
  }
  return 0;
}

// ---- Virtualizer.

int32_t A0779() { return Recorded("A0779"); }
int32_t A0782(uint32_t* handle, const char* directory, const char* file) {
  return g_virtualizer.Create("A0782", handle, directory, file);
}
int32_t A0556(uint32_t handle) { return g_virtualizer.Initialize("A0556", handle); }
int32_t A0236(uint32_t handle) { return g_virtualizer.Flush("A0236", handle); }
int32_t A0560(uint32_t handle, int32_t kind, int32_t frames, float* const* out, const float* in,
              const int32_t* channel_flags) {
  const int32_t status = Recorded("A0560", kind, frames);
  auto* const instance = g_virtualizer.Find(handle);
  if (instance == nullptr || !instance->initialized) {
    return -1001;
  }
  instance->last_detail = Entry("A0560").detail;
  if (status != 0) {
    return status;
  }
  if (std::any_of(channel_flags, channel_flags + 7, [](int32_t flag) { return flag != 0; })) {
    return -1003;
  }
  for (int f = 0; f < kBlock; ++f) {
    const auto plane = [&](int c) { return in[c * kBlock + f]; };
    const float left = plane(0) + 2 * plane(2) + 3 * plane(4) + 4 * plane(6);
    const float right = plane(1) + 2 * plane(3) + 3 * plane(5);
    out[0][f] = instance->delay.left.Next(left);
    out[1][f] = instance->delay.right.Next(right);
  }
  return 0;
}
int32_t A0783(uint32_t handle, int32_t* error, int32_t* detail) {
  return g_virtualizer.ErrorDetail("A0783", handle, error, detail);
}
int32_t A0212(uint32_t handle) { return g_virtualizer.Use("A0212", handle); }
int32_t A0810(uint32_t* handle) { return g_virtualizer.Destroy("A0810", handle); }

// ---- Cinema upmix.

int32_t A0244() { return Recorded("A0244"); }
int32_t A0333(uint32_t* param_bytes) {
  *param_bytes = fake::kCinemaParamBytes;
  return Recorded("A0333");
}
void* A0218(const void* params, const char* directory, const char* file) {
  if (params == nullptr) {
    return Recorded("A0218", "null"), nullptr;
  }
  if (Recorded("A0218", ParamText(params, fake::kCinemaParamBytes), directory, file) != 0) {
    return nullptr;
  }
  if (g_cinema_created == kMaxInstances) {
    return nullptr;
  }
  Cinema& cinema = g_cinemas[g_cinema_created++];
  cinema = {true, g_cinema_created, {}};
  return &cinema;
}
int32_t A0238(const float* const* in, float* const* out, void* instance) {
  if (const int32_t status = Called("A0238")) {
    return status;
  }
  auto& delay = static_cast<Cinema*>(instance)->delay;
  for (int f = 0; f < kBlock; ++f) {
    out[0][f] = 4 * delay.left.Next(in[1][f]);
    out[1][f] = 2 * delay.right.Next(in[0][f]);
  }
  return 0;
}
int32_t A0593(void* instance) {
  auto* const cinema = static_cast<Cinema*>(instance);
  if (cinema == nullptr) {
    return Recorded("A0593", "null"), -1001;
  }
  if (const int32_t status = Recorded("A0593", cinema->id)) {
    return status;
  }
  cinema->delay = {};
  return 0;
}
int32_t A0213(void** instance) {
  auto* const cinema = static_cast<Cinema*>(*instance);
  if (const int32_t status = Recorded("A0213", cinema->id)) {
    return status;
  }
  cinema->exists = false;  // and leaves *instance to the caller
  return 0;
}

// ---- Level control.

int32_t A0834() { return Recorded("A0834"); }
int32_t A0557(uint32_t* work_bytes, uint32_t* param_bytes) {
  return Sizes("A0557", fake::kLevelWorkBytes, fake::kLevelParamBytes, work_bytes, param_bytes);
}
int32_t A0508(void* work, int32_t block_frames) {
  if (work == nullptr) {
    return Recorded("A0508", "null"), -1002;
  }
  // Memory that is neither zero nor an instance's may hold what another one left.
  Level level;
  std::memcpy(&level, work, sizeof(level));
  const auto* const bytes = static_cast<const char*>(work);
  const bool clean = level.magic == kLevelMagic || std::count(bytes, bytes + fake::kLevelWorkBytes,
                                                              '\0') == int{fake::kLevelWorkBytes};
  if (const int32_t status = Recorded("A0508", clean ? block_frames : -1)) {
    return status;
  }
  level = {kLevelMagic, false, {}};
  std::memset(work, 0, fake::kLevelWorkBytes);
  std::memcpy(work, &level, sizeof(level));
  return 0;
}
int32_t A0122(void* work, const void* params) {
  if (const int32_t status = Recorded("A0122", ParamText(params, fake::kLevelParamBytes))) {
    return status;
  }
  Level level;
  std::memcpy(&level, work, sizeof(level));
  level.configured = true;
  std::memcpy(work, &level, sizeof(level));
  return 0;
}
int32_t A0217(void* work, const float* in, float* out) {
  if (const int32_t status = Called("A0217")) {
    return status;
  }
  Level level;
  std::memcpy(&level, work, sizeof(level));
  if (level.magic != kLevelMagic || !level.configured) {
    return -1001;
  }
  for (int f = 0; f < kBlock; ++f) {
    out[2 * f] = 0.25f * level.delay.left.Next(in[2 * f]);
    out[2 * f + 1] = 0.25f * level.delay.right.Next(in[2 * f + 1]);
  }
  std::memcpy(work, &level, sizeof(level));
  return 0;
}
