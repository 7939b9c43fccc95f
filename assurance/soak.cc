// A day of use, faster than real time: hosts, each on a thread of its own, that create and release
// the effect, behind its record or behind the host that changes settings without a click, plug
// headphones in and out, take calls, and change applications, modes and HRTFs, with the block sizes
// of real hosts, the signal library and the default tuning that ship. Checks the answers, the frame
// counters, the memory and the log, and that what a host hears does not depend on the others. In
// the build with RealtimeSanitizer the program ends at the first call of the audio path that may
// block, in the one with ThreadSanitizer at the first race.
#include <android/log.h>
#include <cutils/properties.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "changeover/session.h"
#include "changeover/worker.h"
#include "platform/audio_format.h"
#include "platform/include/upmix_lib.h"
#include "platform/may_block.h"
#include "processors/lum_upmix_lib.h"
#include "processors/upl.h"
#include "tests/laboratory/effect_client.h"
#include "tests/laboratory/resources.h"
#include "tests/laboratory/temporary_folder.h"
#include "upmix-lib/base/audio_format.h"

namespace kelda {
namespace {

// What the effect and the signal library each state of the audio that passes between them.
static_assert(kSampleRateHz == upmix_lib::kSampleRateHz);
static_assert(kPeriodFrames == upmix_lib::kBlockFrames);
static_assert(LumUpmixLib::kChunkFrames == upmix_lib::kHopFrames);
static_assert(kStereoPlanes == upmix_lib::kEars && kSurroundPlanes == upmix_lib::kPlanes);
static_assert(kMusicDelayFrames == upmix_lib::kUpmixLatencyFrames &&
              kCinemaDelayFrames == upmix_lib::kUpmixLatencyFrames &&
              kLevelControlDelayFrames == upmix_lib::kLevelLatencyFrames);

constexpr uint64_t kHosts = 3;
constexpr std::size_t kBlocks[] = {1,   64,  192,  240,  256,  441, 480,
                                   512, 960, 1024, 1920, 3840, 8192};
// As loud as allowed, quiet, barely a normal number, no longer one, silence.
constexpr float kLevels[] = {1.2f, 0.01f, 1e-37f, 1e-41f, 0.0f};
constexpr audio_devices_t kDevices[] = {
    AUDIO_DEVICE_OUT_SPEAKER, AUDIO_DEVICE_OUT_WIRED_HEADSET, AUDIO_DEVICE_OUT_USB_HEADSET,
    AUDIO_DEVICE_OUT_BLUETOOTH_A2DP, AUDIO_DEVICE_OUT_BLE_HEADSET};
constexpr const char* kApplications[] = {"com.example.music&0", "com.example.video&1",
                                         "com.example.game&0", "com.unknown&1", "com.unknown&0"};

std::atomic<int> g_errors_logged{0};

void Require(bool holds, const std::string& what) {
  if (!holds) {
    throw std::runtime_error(what);
  }
}

// What a host did and heard.
struct Life {
  uint64_t frames = 0, events = 0, engines = 0;
  uint64_t levelled = 0;  // engines whose level control has a file
  std::size_t heard = 0;  // a hash
  bool operator==(const Life&) const = default;
};

// One host with an instance of the effect. The same seed is the same life.
class Host {
 public:
  explicit Host(uint64_t seed) : random_(seed) {
    Require(effect_.Process(in_.data(), out_.data(), 1) == -ENODATA, "it is enabled");
    life_.engines = 1;
    Begin();
  }

  // So many times, something happens and is heard for a while.
  Life Live(uint64_t events) {
    for (; life_.events < events; ++life_.events) {
      Happen();
      CheckCounters();
      const std::size_t until = static_cast<std::size_t>(kSampleRateHz) * (1 + Below(30)) / 10;
      for (std::size_t played = 0; played < until; played += frames_) {
        Play();
      }
    }
    life_.levelled += levelled_ ? 1 : 0;
    return life_;
  }

 private:
  std::size_t Below(std::size_t limit) { return random_() % limit; }
  template <typename T, std::size_t kSize>
  const T& Of(const T (&values)[kSize]) {
    return values[Below(kSize)];
  }

  void Play() {
    if (Below(64) == 0) {
      level_ = Of(kLevels);
    }
    for (std::size_t i = 0; i < 2 * frames_; ++i) {
      in_[i] = level_ * (static_cast<float>(random_()) / 0x1p63f - 1.0f);
    }
    std::vector<float>& heard = Below(2) == 0 ? in_ : out_;
    const int32_t status = effect_.Process(in_.data(), heard.data(), frames_);
    Require(status == (enabled_ ? 0 : -ENODATA), "a block has status " + std::to_string(status));
    life_.frames += frames_;
    if (!enabled_) {
      return;
    }
    Require(std::all_of(heard.begin(), heard.begin() + static_cast<std::ptrdiff_t>(2 * frames_),
                        [](float sample) { return std::abs(sample) <= 1.5f; }),
            "a sample that is not a number, or louder than anything that was played");
    const std::string_view bytes(reinterpret_cast<const char*>(heard.data()),
                                 2 * frames_ * sizeof(float));
    life_.heard = 31 * life_.heard + std::hash<std::string_view>()(bytes);
    input_ += static_cast<uint32_t>(frames_);
    if (frames_ != kPeriodFrames) {
      waiting_ = (waiting_ + frames_) % kPeriodFrames;
    }
  }

  void Happen() {
    const auto hrtf = static_cast<uint32_t>(1 + Below(2));
    const std::size_t what = Below(12);
    if (what < 3) {
      effect_.SetDevice(Of(kDevices));
    }
    if (what == 3 || what == 4) {
      effect_.SetMode(static_cast<uint32_t>(Below(4)));
    }
    if (what == 5) {
      effect_.SetText(test::kAppPackage, Of(kApplications));
    }
    if (what == 6) {
      effect_.SetParam(test::kWiredHrtf, hrtf);
    }
    if (what == 7) {
      effect_.SetParam(test::kBluetoothHrtf, hrtf);
    }
    if (what == 8) {
      effect_.SetText(test::kReloadTunedAppList, "");
      effect_.Reset();
      Flushed();
    }
    if (what == 9) {  // another output thread
      frames_ = Of(kBlocks);
      Require(effect_.SetConfig(test::StereoConfig()) == 0, "the configuration is refused");
      ++configs_;
      Flushed();
    }
    if (what == 10 && !enabled_) {  // a call ends
      Enable();
    } else if (what == 10) {
      effect_.Disable();
      enabled_ = false;
      ++disables_;
      Flushed();
      effect_.SetDevice(AUDIO_DEVICE_OUT_BLUETOOTH_SCO);
    }
    if (what == 11) {
      life_.levelled += levelled_ ? 1 : 0;
      effect_.Init();
      ++life_.engines;
      enabled_ = false;
      Flushed();
      input_ = dropped_ = 0;
      Begin();
    }
  }

  void Begin() {
    Enable();
    effect_.SetDevice(Of(kDevices));
    effect_.SetMode(static_cast<uint32_t>(Below(4)));
    CheckCounters();
  }

  void Enable() {
    effect_.Enable();
    enabled_ = true;
    ++enables_;
  }

  void Flushed() {
    dropped_ += static_cast<uint32_t>(waiting_);
    waiting_ = 0;
  }

  // Compares what the effect counts with what was done.
  void CheckCounters() {
    const std::string dump = effect_.Dump();
    levelled_ = dump.find("bin=upl.") != std::string::npos;
    const auto count = [&](const std::string& label) {
      const std::size_t at = dump.find(label + ": ");
      Require(at != std::string::npos, "no " + label + " in the dump");
      return static_cast<uint32_t>(std::stoull(dump.substr(at + label.size() + 2)));
    };
    const uint32_t processed = count("process");
    const uint32_t queued = processed - count("output ") - count("discard");
    const bool right = count("enableCount") == enables_ && count("disableCount") == disables_ &&
                       count("setconfigCoun") == configs_ && count("input  ") == input_ &&
                       input_ - processed == waiting_ + dropped_ && queued < 8 * kPeriodFrames;
    Require(right, "the counters are wrong after " + std::to_string(input_) + " frames, " +
                       std::to_string(waiting_ + dropped_) + " of them not processed:\n" + dump);
  }

  std::mt19937_64 random_;  // the same sequence with every standard library
  test::Effect effect_;
  Life life_;
  float level_ = 1.2f;
  std::size_t frames_ = 480;  // of a block
  std::vector<float> in_ = std::vector<float>(std::size_t{2} * 8192), out_ = in_;
  bool enabled_ = false, levelled_ = false;
  uint32_t enables_ = 0, disables_ = 0, configs_ = 0;
  uint32_t input_ = 0, dropped_ = 0;
  std::size_t waiting_ = 0;  // frames that do not fill a period yet
};

Life LiveBehindTheRecord(uint64_t seed, uint64_t events) { return Host(seed).Live(events); }

// The same day behind the host that changes settings without a click: its worker takes a step
// before each block, so that the same seed is the same life.
Life LiveBehindTheHost(uint64_t seed, uint64_t events) {
  using changeover::Session;
  using changeover::Setting;
  std::mt19937_64 random(seed);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  const auto worker = changeover::Worker::Make(test::Library(), changeover::Worker::Threads::None);
  const auto session = Session::Open(worker.get(), {.keep_warm = seed % 4 == 0});
  Require(session != nullptr, "there is no session");
  Life life;
  life.engines = life.levelled = 3;  // one that is heard, a standby, one to be safe
  std::vector<float> in(std::size_t{2} * 8192), out = in;
  std::size_t frames = 480;
  float level = 1.2f;
  session->Start();
  for (; life.events < events; ++life.events) {
    constexpr Setting::Kind kKinds[] = {
        Setting::Kind::Mode,         Setting::Kind::Mode,
        Setting::Kind::Device,       Setting::Kind::Device,
        Setting::Kind::WiredHrtf,    Setting::Kind::BluetoothHrtf,
        Setting::Kind::ReloadTuning, Setting::Kind::ReloadApplications};
    const Setting::Kind kind = kKinds[below(std::size(kKinds))];
    Require(session->Set({kind, kind == Setting::Kind::Mode ? static_cast<uint32_t>(below(4))
                                : kind == Setting::Kind::Device
                                    ? kDevices[below(std::size(kDevices))]
                                    : 1 + static_cast<uint32_t>(below(2))}) == 0,
            "a setting is refused");
    const uint64_t what = below(8);
    frames = what < 3 ? kBlocks[below(std::size(kBlocks))] : frames;
    if (what == 3) {
      session->Reset();
    } else if (what == 4) {
      session->Stop();
      worker->Step();
      session->Start();
    }
    const uint64_t until = uint64_t{kSampleRateHz} * (1 + below(30)) / 10;
    for (uint64_t played = 0; played < until; played += frames) {
      level = below(64) == 0 ? kLevels[below(std::size(kLevels))] : level;
      for (std::size_t i = 0; i < 2 * frames; ++i) {
        in[i] = level * (static_cast<float>(random()) / 0x1p63f - 1.0f);
      }
      std::vector<float>& heard = below(2) == 0 ? in : out;
      worker->Step();
      session->Process(in.data(), heard.data(), frames);
      life.frames += frames;
      Require(std::all_of(heard.begin(), heard.begin() + static_cast<std::ptrdiff_t>(2 * frames),
                          [](float sample) { return std::abs(sample) <= 1.5f; }),
              "a sample that is not a number, or louder than anything that was played");
      const std::string_view bytes(reinterpret_cast<const char*>(heard.data()),
                                   2 * frames * sizeof(float));
      life.heard = 31 * life.heard + std::hash<std::string_view>()(bytes);
    }
  }
  return life;
}

// Every other host uses the record.
Life Live(uint64_t seed, uint64_t events) {
  return seed % 2 == 0 ? LiveBehindTheHost(seed, events) : LiveBehindTheRecord(seed, events);
}

// The memory that engines leave on purpose, as the allocator rounds it: their level controls, with
// work memory, parameter data and the path of the file.
std::size_t Leak(const Life& life, const std::string& tuning) {
  uint32_t work = 0, params = 0;
  Require(A0557(&work, &params) == 0, "the signal library does not report its sizes");
  const auto rounded = [](std::size_t bytes) { return (bytes + 8 + 15) / 16 * 16; };
  const std::size_t of_each = rounded(sizeof(Upl)) + rounded(work) + rounded(params);
  const std::size_t of_each_path = rounded((tuning + "/upl.cinema.bin").size() + 1);
  return static_cast<std::size_t>(life.engines) * of_each +
         static_cast<std::size_t>(life.levelled) * of_each_path;
}

struct Limits {
  double hours = 0.2, minutes = 10;
  uint64_t events = 30;  // in the life of a host
  uint64_t seed = 1;
};

// The whole run. Returns whether memory and log are as they should be; throws what else
// goes wrong.
bool Soak(const Limits& limits) {
  const TemporaryFolder tuning;
  std::filesystem::copy(DEFAULT_TUNING, tuning.path());
  setenv("KELDA_DATA_DIR", tuning.path().c_str(), 1);
  const auto begin = std::chrono::steady_clock::now();
  const auto minutes = [&] {
    return std::chrono::duration<double, std::ratio<60>>(std::chrono::steady_clock::now() - begin)
        .count();
  };
  Life all;
  uint64_t next_seed = limits.seed;
  std::size_t heap = 0, allowed = 0;
  constexpr double kFramesPerHour = 3600.0 * kSampleRateHz;
  const auto wanted = static_cast<uint64_t>(limits.hours * kFramesPerHour);
  for (uint64_t round = 0; all.frames < wanted && minutes() < limits.minutes; ++round) {
    property_set("vendor.kelda.pcmdump", round == 0 ? "2" : "0");
    std::vector<std::future<Life>> together;
    together.reserve(kHosts);
    for (uint64_t host = 0; host < kHosts; ++host) {
      together.push_back(std::async(std::launch::async, Live, next_seed + host, limits.events));
    }
    std::vector<Life> lives;
    lives.reserve(together.size());
    for (auto& life : together) {
      lives.push_back(life.get());
    }
    together.clear();
    for (const Life& life : lives) {
      all.frames += life.frames;
      all.events += life.events;
      all.engines += life.engines;
      allowed += Leak(life, tuning.path());
      if (round % 16 == 0) {
        Require(Live(next_seed, limits.events) == life, "a host hears something else than alone");
        allowed += Leak(life, tuning.path());
      }
      ++next_seed;
    }
    if (round == 0) {  // what is made at the first use is there
      heap = test::HeapBytes();
      allowed = 0;
    }
  }
  const auto growth = static_cast<std::ptrdiff_t>(test::HeapBytes() - heap);
  std::printf("%.2f hours of sound in %.1f minutes, seed %llu: %.1f million frames, %llu events\n",
              static_cast<double>(all.frames) / kFramesPerHour, minutes(),
              static_cast<unsigned long long>(limits.seed), 1e-6 * static_cast<double>(all.frames),
              static_cast<unsigned long long>(all.events));
  std::printf("memory: grew by %td bytes; the level controls that %llu engines leave are %zu\n",
              growth, static_cast<unsigned long long>(all.engines), allowed);
  constexpr std::ptrdiff_t kAllocator = 512;  // what it may have put aside since
  const bool good =
      growth <= static_cast<std::ptrdiff_t>(allowed) + kAllocator && g_errors_logged == 0;
  std::printf("errors in the log: %d\n\n%s\n", g_errors_logged.load(), good ? "pass" : "FAIL");
  return good;
}

#ifdef KELDA_REALTIME_SANITIZER
void Allocate() KELDA_NONBLOCKING {
  void* volatile memory = std::malloc(1);
  std::free(memory);
}
#else
void Allocate() {}
#endif

}  // namespace
}  // namespace kelda

int main(int argc, char** argv) try {
  CLI::App app("A day of use of the effect, faster than real time.");
  kelda::Limits limits;
  app.add_option("--hours", limits.hours, "hours of sound, 24 for a day")->capture_default_str();
  app.add_option("--minutes", limits.minutes, "end after so many minutes")->capture_default_str();
  app.add_option("--events", limits.events, "in the life of a host")->capture_default_str();
  app.add_option("--seed", limits.seed, "of the random events")->capture_default_str();
  app.add_flag_callback("--allocate", kelda::Allocate, "what RealtimeSanitizer has to see");
  CLI11_PARSE(app, argc, argv);
  property_set("vendor.kelda.effect", "1");
  property_set("ro.debuggable", "1");
  __android_log_set_logger([](const __android_log_message* message) {
    // A capture goes beyond its limit; the host ends the one that a standby has begun.
    const bool capture = std::string_view(message->tag) == "KelApsPcmd" ||
                         message->message == std::string_view("ERROR: disable with invalid param");
    if (message->priority < ANDROID_LOG_WARN || capture) {
      return;
    }
    ++kelda::g_errors_logged;
    std::fprintf(stderr, "%s: %s\n", message->tag, message->message);
  });
  return kelda::Soak(limits) ? 0 : 1;
} catch (const std::exception& failure) {
  std::printf("FAIL: %s\n", failure.what());
  return 1;
}
