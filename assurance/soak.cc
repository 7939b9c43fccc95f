// A day of use, faster than it passes: hosts that create and release the effect, plug
// headphones in and out, take calls, change applications, modes and HRTFs, in the block
// sizes of real ones, over the signal library and the default tuning that ship. Watches
// the answers, the frame counters and the memory.
#include <android/log.h>
#include <cutils/properties.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/include/upmix_lib.h"
#include "processors/upl.h"
#include "tests/laboratory/resources.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

using test::HeapBytes;

constexpr size_t kPeriod = 1024;
constexpr size_t kMostHosts = 3;
constexpr size_t kBlocks[] = {64, 192, 240, 256, 441, 480, 512, 960, 1024, 1920, 3840, 8192};
// As loud as allowed, quiet, barely a normal number, no longer one, silence.
constexpr float kLevels[] = {1.2f, 0.01f, 1e-37f, 1e-41f, 0.0f};
constexpr audio_devices_t kDevices[] = {
    AUDIO_DEVICE_OUT_SPEAKER, AUDIO_DEVICE_OUT_WIRED_HEADSET, AUDIO_DEVICE_OUT_USB_HEADSET,
    AUDIO_DEVICE_OUT_BLUETOOTH_A2DP, AUDIO_DEVICE_OUT_BLE_HEADSET};
constexpr const char* kApplications[] = {"com.example.music&0", "com.example.video&1",
                                         "com.example.game&0", "com.unknown&1", "com.unknown&0"};

int g_errors_logged = 0;

void Require(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what);
}

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  size_t Below(size_t limit) { return engine_() % limit; }
  template <typename T, size_t kSize>
  const T& Of(const T (&values)[kSize]) {
    return values[Below(kSize)];
  }
  float Noise() { return static_cast<float>(engine_()) / 0x1p63f - 1.0f; }

 private:
  std::mt19937_64 engine_;  // the same sequence with every standard library
};

// One host with an instance of the effect.
class Host {
 public:
  Host(const EffectLibrary& library, Random* random) : session_(library), random_(random) {
    Begin();
    block_.resize(2 * random_->Of(kBlocks));
    CheckCounters();
  }

  // Something happens. Whether the instance got a new engine.
  bool Event() {
    const bool renewed = Happen();
    CheckCounters();
    return renewed;
  }

  void Play() {
    if (random_->Below(64) == 0) level_ = random_->Of(kLevels);
    for (float& sample : block_) sample = level_ * random_->Noise();
    const size_t frames = block_.size() / 2;
    session_.Process(block_.data(), frames);
    Require(std::all_of(block_.begin(), block_.end(),
                        [](float sample) { return std::abs(sample) <= 1.5f; }),
            "a sample that is no number, or beyond all that was played");
    if (!session_.enabled()) return;
    input_ += static_cast<uint32_t>(frames);
    if (frames != kPeriod) waiting_ = (waiting_ + frames) % kPeriod;
  }

  size_t block_frames() const { return block_.size() / 2; }

 private:
  bool Happen() {
    const auto hrtf = static_cast<uint32_t>(1 + random_->Below(2));
    switch (random_->Below(12)) {
      case 0:
      case 1:
      case 2:
        session_.SetDevice(random_->Of(kDevices));
        break;
      case 3:
      case 4:
        session_.SetParam(EffectParam::kMode, static_cast<uint32_t>(random_->Below(4)));
        break;
      case 5:
        session_.SetParam(EffectParam::kAppPackage, random_->Of(kApplications));
        break;
      case 6:
        session_.SetParam(EffectParam::kWiredHrtf, hrtf);
        break;
      case 7:
        session_.SetParam(EffectParam::kBluetoothHrtf, hrtf);
        break;
      case 8:
        session_.SetParam(EffectParam::kReloadTunedAppList, "");
        session_.Reset();
        Flushed();
        break;
      case 9:  // another output thread
        block_.resize(2 * random_->Of(kBlocks));
        session_.Configure();
        ++configs_;
        Flushed();
        break;
      case 10:  // a call begins or ends
        if (!session_.enabled()) {
          Enable();
          break;
        }
        session_.Disable();
        ++disables_;
        Flushed();
        session_.SetDevice(AUDIO_DEVICE_OUT_BLUETOOTH_SCO);
        break;
      default:
        session_.Init();
        Flushed();
        input_ = dropped_ = 0;
        Begin();
        return true;
    }
    return false;
  }

  void Begin() {
    Enable();
    session_.SetDevice(random_->Of(kDevices));
    session_.SetParam(EffectParam::kMode, static_cast<uint32_t>(random_->Below(4)));
  }

  void Enable() {
    session_.Enable();
    ++enables_;
  }

  void Flushed() {
    dropped_ += static_cast<uint32_t>(waiting_);
    waiting_ = 0;
  }

  // Compares what the effect counts, all modulo 2^32, with what was done.
  void CheckCounters() {
    const std::string dump = session_.Dump();
    const auto count = [&](const std::string& label) {
      const size_t at = dump.find(label + ": ");
      Require(at != std::string::npos, "no " + label + " in the dump");
      return static_cast<uint32_t>(std::stoull(dump.substr(at + label.size() + 2)));
    };
    const uint32_t processed = count("process");
    const uint32_t queued = processed - count("output ") - count("discard");
    const bool right = count("enableCount") == enables_ && count("disableCount") == disables_ &&
                       count("setconfigCoun") == configs_ && count("input  ") == input_ &&
                       input_ - processed == waiting_ + dropped_ && queued < 8 * kPeriod;
    Require(right, "the counters are wrong after " + std::to_string(input_) + " frames, " +
                       std::to_string(waiting_ + dropped_) + " of them not processed:\n" + dump);
  }

  EffectSession session_;
  Random* random_;
  float level_ = 1.2f;
  std::vector<float> block_;
  uint32_t enables_ = 0, disables_ = 0, configs_ = 1;
  uint32_t input_ = 0, dropped_ = 0;
  size_t waiting_ = 0;  // frames that do not fill a period yet
};

// What an engine leaves behind on purpose: its level control, with work memory, parameter
// data and the path of the file. As the allocator rounds it.
size_t EngineLeak(const std::filesystem::path& tuning) {
  uint32_t work = 0, params = 0;
  Require(A0557(&work, &params) == 0, "the signal library does not tell its sizes");
  size_t bytes = 0;
  const size_t path = (tuning / "upl.cinema.bin").string().size() + 1;
  for (const size_t size : {sizeof(Upl), size_t{work}, size_t{params}, path}) {
    bytes += (size + 8 + 15) / 16 * 16;
  }
  return bytes;
}

struct Limits {
  double hours = 0.2, minutes = 10;
  uint64_t seed = 1;
};

// Everything once, so that what is made at the first use is there.
void WarmUp(const EffectLibrary& library, Random* random) {
  std::vector<std::unique_ptr<Host>> hosts;
  for (size_t i = 0; i < kMostHosts; ++i) hosts.push_back(std::make_unique<Host>(library, random));
  for (int event = 0; event < 500; ++event) {
    Host& host = *hosts[random->Below(kMostHosts)];
    host.Event();
    host.Play();
  }
}

// The whole run. Returns whether memory and log are as they should be; throws what else
// goes wrong.
bool Soak(const Limits& limits) {
  UseTuningDirectory("");
  const EffectLibrary library(DefaultEffectLibrary());
  const size_t leak = EngineLeak(DefaultTuningDirectory());
  Random random(limits.seed);
  std::vector<std::unique_ptr<Host>> hosts;
  const auto begin = std::chrono::steady_clock::now();
  const auto minutes = [&] {
    return std::chrono::duration<double, std::ratio<60>>(std::chrono::steady_clock::now() - begin)
        .count();
  };
  uint64_t frames = 0, events = 0, engines = 0;
  WarmUp(library, &random);
  const size_t heap = HeapBytes();
  constexpr double kFramesPerHour = 3600.0 * kSampleRateHz;
  const auto wanted = static_cast<uint64_t>(limits.hours * kFramesPerHour);
  while (frames < wanted && minutes() < limits.minutes) {
    if (hosts.size() < kMostHosts && (hosts.empty() || random.Below(8) == 0)) {
      hosts.push_back(std::make_unique<Host>(library, &random));
      engines += 2;  // create makes one, the session's first command another
    } else if (random.Below(16) == 0) {
      hosts.erase(hosts.begin() + static_cast<ptrdiff_t>(random.Below(hosts.size())));
      continue;
    }
    Host& host = *hosts[random.Below(hosts.size())];
    engines += host.Event() ? 1 : 0;
    ++events;
    for (const auto& each : hosts) {
      const size_t until = kSampleRateHz * (1 + random.Below(30)) / 10;
      for (size_t played = 0; played < until; played += each->block_frames()) {
        each->Play();
        frames += each->block_frames();
      }
    }
  }
  hosts.clear();
  const double growth = static_cast<double>(HeapBytes()) - static_cast<double>(heap);
  const double allowed = static_cast<double>(engines * leak);
  std::printf("%.2f hours of sound in %.1f minutes, seed %llu: %.1f million frames, %llu events\n",
              static_cast<double>(frames) / kFramesPerHour, minutes(),
              static_cast<unsigned long long>(limits.seed), 1e-6 * static_cast<double>(frames),
              static_cast<unsigned long long>(events));
  std::printf("memory: grew by %.0f bytes; the level controls that %llu engines leave are %.0f\n",
              growth, static_cast<unsigned long long>(engines), allowed);
  constexpr double kAllocator = 2048;  // what it may have put aside since
  const bool good = growth <= allowed + kAllocator && g_errors_logged == 0;
  std::printf("errors in the log: %d\n", g_errors_logged);
  std::printf("\n%s: %.2f hours of sound, %llu events, %llu engines\n", good ? "pass" : "FAIL",
              static_cast<double>(frames) / kFramesPerHour, static_cast<unsigned long long>(events),
              static_cast<unsigned long long>(engines));
  return good;
}

}  // namespace
}  // namespace kelda::tools

int main(int argc, char** argv) try {
  CLI::App app("A day of use of the effect, faster than it passes.");
  kelda::tools::Limits limits;
  app.add_option("--hours", limits.hours, "hours of sound, 24 for a day")->capture_default_str();
  app.add_option("--minutes", limits.minutes, "end after so many minutes")->capture_default_str();
  app.add_option("--seed", limits.seed, "of what happens when")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_logger([](const __android_log_message* message) {
    if (message->priority < ANDROID_LOG_WARN) return;
    ++kelda::tools::g_errors_logged;
    std::fprintf(stderr, "%s: %s\n", message->tag, message->message);
  });
  return kelda::tools::Soak(limits) ? 0 : 1;
} catch (const std::exception& failure) {
  std::printf("FAIL: %s\n", failure.what());
  return 1;
}
