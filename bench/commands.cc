// What the control path costs with the default tuning. During these calls the host holds a
// lock that other effects wait for; the budget of each call is 5 ms. Counters: the median and
// the longest, in milliseconds of the thread.
#include <android/log.h>
#include <cutils/properties.h>

#include <functional>
#include <memory>
#include <string>

#include "bench/against_copy.h"
#include "tests/laboratory/effect_client.h"
#include "tools/framework/effect_session.h"

namespace kelda::bench {
namespace {

using tools::EffectSession;

constexpr uint32_t kMusic = 1, kCinema = 2, kStandard = 1, kPersonalized = 2;
constexpr audio_devices_t kWired = AUDIO_DEVICE_OUT_WIRED_HEADPHONE;
constexpr audio_devices_t kBluetooth = AUDIO_DEVICE_OUT_BLUETOOTH_A2DP;

const tools::EffectLibrary& Library() {
  static const tools::EffectLibrary library = [] {
    setenv("KELDA_DATA_DIR", DEFAULT_TUNING, 1);
    property_set("vendor.kelda.effect", "1");
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    return tools::EffectLibrary(EFFECT_LIBRARY);
  }();
  return library;
}

// A command to an instance that plays music on wired headphones with personal ears, all
// stages loaded, and what is done before it. The row without a command times create.
struct Row {
  const char* name;
  std::function<void(EffectSession&)> before, act;
};

const auto kNothing = [](EffectSession&) {};

const Row kRows[] = {
    {"create", nullptr, nullptr},
    {"INIT", kNothing, [](EffectSession& s) { s.Init(); }},
    {"SET_CONFIG", kNothing, [](EffectSession& s) { s.Configure(); }},
    {"RESET", kNothing, [](EffectSession& s) { s.Reset(); }},
    {"DISABLE", kNothing, [](EffectSession& s) { s.Disable(); }},
    {"DUMP", kNothing, [](EffectSession& s) { s.Dump(); }},
    {"mode: music to cinema", kNothing,
     [](EffectSession& s) { s.SetParam(UpmixParam::Mode, kCinema); }},
    {"mode: cinema to music", [](EffectSession& s) { s.SetParam(UpmixParam::Mode, kCinema); },
     [](EffectSession& s) { s.SetParam(UpmixParam::Mode, kMusic); }},
    {"mode: music to off", kNothing, [](EffectSession& s) { s.SetParam(UpmixParam::Mode, 0u); }},
    {"HRTF: personalized to standard", kNothing,
     [](EffectSession& s) { s.SetParam(UpmixParam::WiredHrtf, kStandard); }},
    {"HRTF: standard to personalized",
     [](EffectSession& s) { s.SetParam(UpmixParam::WiredHrtf, kStandard); },
     [](EffectSession& s) { s.SetParam(UpmixParam::WiredHrtf, kPersonalized); }},
    {"HRTF of the other output", kNothing,
     [](EffectSession& s) { s.SetParam(UpmixParam::BluetoothHrtf, kStandard); }},
    {"device: wired to Bluetooth", kNothing, [](EffectSession& s) { s.SetDevice(kBluetooth); }},
    {"device: the same again", kNothing, [](EffectSession& s) { s.SetDevice(kWired); }},
    {"device: wired to speaker", kNothing,
     [](EffectSession& s) { s.SetDevice(AUDIO_DEVICE_OUT_SPEAKER); }},
    {"device: first headphones", [](EffectSession& s) { s.Init(); },
     [](EffectSession& s) { s.SetDevice(kWired); }},
    {"application", [](EffectSession& s) { s.SetParam(UpmixParam::Mode, 3u); },
     [](EffectSession& s) { s.SetParam(UpmixParam::AppPackage, "com.example.video&1"); }},
    {"reload of the application list", kNothing,
     [](EffectSession& s) { s.SetParam(UpmixParam::ReloadTunedAppList, ""); }},
};

void Command(benchmark::State& state, const Row& row) {
  std::vector<double> times;
  for ([[maybe_unused]] auto _ : state) {
    double time = 0;
    if (row.act == nullptr) {
      effect_handle_t handle = nullptr;
      const auto& info = Library().info();
      time = Time(1, [&] { info.create_effect(&test::kUuid, 0, 0, &handle); });
      info.release_effect(handle);
    } else {
      EffectSession session(Library());
      session.SetParam(UpmixParam::WiredHrtf, kPersonalized);
      session.SetParam(UpmixParam::BluetoothHrtf, kPersonalized);
      session.SetParam(UpmixParam::Mode, kMusic);
      session.SetDevice(kWired);
      session.Enable();
      row.before(session);
      time = Time(1, [&] { row.act(session); });
    }
    state.SetIterationTime(time);
    times.push_back(1e3 * time);
  }
  state.counters["median_ms"] = Median(times);
  state.counters["longest_ms"] = *std::max_element(times.begin(), times.end());
}

const bool kRegistered = [] {
  for (const Row& row : kRows) {
    benchmark::RegisterBenchmark((std::string("Command/") + row.name).c_str(), Command, row)
        ->Iterations(40)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
  return true;
}();

}  // namespace
}  // namespace kelda::bench
