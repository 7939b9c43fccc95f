// Whether anything clicks: every change of mode, application, output device and HRTF, at
// the block sizes of hosts, over the signal library and the default tuning that ship.
//
// The figure of a change compares the half second after it with the second before it and the
// rest after it: the largest energy of the second difference in any 64 frames, over the largest
// such energy there. The input is a few steady tones, whose second difference is small and even.
// Output that goes on smoothly, or fades over any audible length, stays near 0 dB; a cut stands
// out by tens of dB. As a control, the same output is cut off at a hundred places; none of these
// cuts may count as smooth.
//
// Only a change into music or cinema fades, and only in blocks that are not exactly a period,
// because these skip the ring in which fades are made. Where nothing fades, an abrupt change is
// reported as one without a fade and is not a fault.
#include <android/log.h>
#include <cutils/properties.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <numbers>
#include <string>
#include <vector>

#include "tools/framework/effect_session.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kHalf = kSampleRateHz / 2;
constexpr std::size_t kPeriod = 1024;
constexpr std::size_t kWindow = 64;
constexpr double kSmoothDb = 3;

constexpr const char* kModes[] = {"off", "music", "cinema"};
constexpr const char* kApplications[] = {"com.example.game&0", "com.example.music&0",
                                         "com.example.video&0"};

struct Setup {
  uint32_t mode, device, ears;

  uint32_t runs() const { return device == 0 ? 0 : mode; }
};

struct Change {
  const char* what;  // "mode", "application", "device", "HRTF"
  Setup from, to;

  bool fades() const { return to.runs() != 0 && to.runs() != from.runs(); }
  bool by_application() const { return what == std::string("application"); }
};

std::vector<Change> AllChanges() {
  std::vector<Change> changes;
  for (uint32_t mode = 0; mode < 3; ++mode) {
    for (uint32_t ears = 1; ears < 3; ++ears) {
      for (uint32_t device = 0; device < 3; ++device) {
        const Setup from{mode, device, ears};
        for (uint32_t other = 0; other < 3; ++other) {
          if (other != device) {
            changes.push_back({"device", from, {mode, other, ears}});
          }
          if (other == mode || device == 0) {
            continue;
          }
          changes.push_back({"mode", from, {other, device, ears}});
          changes.push_back({"application", from, {other, device, ears}});
        }
        if (device != 0) {
          changes.push_back({"HRTF", from, {mode, device, 3 - ears}});
        }
      }
    }
  }
  return changes;
}

void Apply(const Setup& setup, bool by_application, EffectSession* session) {
  constexpr uint32_t kAuto = 3;
  const audio_devices_t devices[] = {AUDIO_DEVICE_OUT_SPEAKER, AUDIO_DEVICE_OUT_WIRED_HEADPHONE,
                                     AUDIO_DEVICE_OUT_BLUETOOTH_A2DP};
  session->SetParam(EffectParam::kWiredHrtf, setup.ears);
  session->SetParam(EffectParam::kBluetoothHrtf, setup.ears);
  if (by_application) {
    session->SetParam(EffectParam::kAppPackage, kApplications[setup.mode]);
  }
  session->SetParam(EffectParam::kMode, by_application ? kAuto : setup.mode);
  session->SetDevice(devices[setup.device]);
}

// Interleaved tones, the same in both channels but for one.
std::vector<float> Tones(std::size_t frames) {
  std::vector<float> tones(kChannels * frames);
  for (std::size_t n = 0; n < tones.size(); ++n) {
    const std::size_t frame = n / kChannels;
    const double turns = 2 * std::numbers::pi * static_cast<double>(frame) / kSampleRateHz;
    const double own_hz = n % kChannels == 0 ? 311 : 467;
    tones[n] = static_cast<float>(0.12 * std::sin(turns * 220) + 0.08 * std::sin(turns * 137) +
                                  0.08 * std::sin(turns * own_hz));
  }
  return tones;
}

// What is heard in four half seconds; the change comes at the end of the second.
std::vector<float> Play(const EffectLibrary& library, const Change& change,
                        std::size_t block_frames) {
  EffectSession session(library);
  session.Enable();
  Apply(change.from, change.by_application(), &session);
  const std::size_t settling = 2 * kHalf / block_frames * block_frames;
  std::vector<float> heard = Tones(settling + 4 * kHalf);
  std::size_t frame = 0;
  const auto play_until = [&](std::size_t end) {
    for (; frame + block_frames <= end; frame += block_frames) {
      session.Process(&heard[kChannels * frame], block_frames);
    }
  };
  play_until(settling + 2 * kHalf);
  Apply(change.to, change.by_application(), &session);
  play_until(settling + 4 * kHalf);
  // The change comes exactly after the second half second.
  const std::size_t changed = (settling + 2 * kHalf) / block_frames * block_frames;
  heard.erase(heard.begin(),
              heard.begin() + static_cast<std::ptrdiff_t>(kChannels * (changed - 2 * kHalf)));
  heard.resize(kChannels * (frame - changed + 2 * kHalf));
  return heard;
}

// The largest energy of the second difference in any window that ends in [first, last).
double Roughness(const std::vector<float>& heard, std::size_t first, std::size_t last) {
  double largest = 0;
  for (std::size_t channel = 0; channel < kChannels; ++channel) {
    const auto energy = [&](std::size_t frame) {
      const auto at = [&](std::size_t f) { return double{heard[kChannels * f + channel]}; };
      const double difference = at(frame) - 2 * at(frame - 1) + at(frame - 2);
      return difference * difference;
    };
    double sum = 0;
    for (std::size_t frame = first - kWindow; frame < last; ++frame) {
      sum += energy(frame);
      if (frame < first) {
        continue;
      }
      sum -= energy(frame - kWindow);
      largest = std::max(largest, sum);
    }
  }
  return largest;
}

// In dB.
double Figure(const std::vector<float>& heard) {
  constexpr std::size_t kStart = 1000;
  const std::size_t frames = heard.size() / kChannels;
  const double around =
      std::max(Roughness(heard, kStart, 2 * kHalf), Roughness(heard, 3 * kHalf, frames));
  return 10 * std::log10(Roughness(heard, 2 * kHalf, 3 * kHalf) / around);
}

// The smallest figure of a hundred cuts of what is heard, at all phases of the tones.
double Control(std::vector<float> heard) {
  constexpr std::size_t kStep = 37;
  const double around = Roughness(heard, 1000, 2 * kHalf);
  double smallest_db = 1e9;
  for (std::size_t cut = 2 * kHalf; cut > 2 * kHalf - 100 * kStep; cut -= kStep) {
    std::fill(heard.begin() + static_cast<std::ptrdiff_t>(kChannels * cut), heard.end(), 0.0f);
    const double roughness = Roughness(heard, cut, cut + kWindow);
    smallest_db = std::min(smallest_db, 10 * std::log10(roughness / around));
  }
  return smallest_db;
}

struct Group {
  int changes = 0, smooth = 0, abrupt = 0, clicks = 0;
  double worst_db = -1e9;
};

// Prints the groups. Whether no fade clicks and no cut goes unnoticed.
bool Measure(const std::vector<std::size_t>& blocks) {
  UseTuningDirectory("");
  const EffectLibrary library(DefaultEffectLibrary());
  std::map<std::string, std::map<std::size_t, Group>> groups;
  double control_db = 1e9;
  for (const Change& change : AllChanges()) {
    for (const std::size_t block : blocks) {
      const std::vector<float> heard = Play(library, change, block);
      const double figure_db = Figure(heard);
      control_db = std::min(control_db, Control(heard));
      const bool fades = change.fades() && block != kPeriod;
      const bool smooth = figure_db <= kSmoothDb;
      std::string name = std::string(change.what) + " within ";
      if (change.to.runs() != change.from.runs()) {
        name = std::string(change.what) + " into ";
      }
      Group& group = groups[name + kModes[change.to.runs()]][block];
      ++group.changes;
      ++(smooth ? group.smooth : fades ? group.clicks : group.abrupt);
      group.worst_db = std::max(group.worst_db, figure_db);
    }
  }
  bool good = control_db > kSmoothDb;
  Group total;
  std::printf(
      "| change | block | changes | smooth | abrupt, no fade | clicks | worst figure |\n"
      "|---|---|---|---|---|---|---|\n");
  for (const auto& [name, by_block] : groups) {
    for (const auto& [block, group] : by_block) {
      std::printf("| %s | %zu | %d | %d | %d | %d | %.1f dB |\n", name.c_str(), block,
                  group.changes, group.smooth, group.abrupt, group.clicks, group.worst_db);
      good &= group.clicks == 0;
      total.changes += group.changes;
      total.smooth += group.smooth;
      total.abrupt += group.abrupt;
      total.clicks += group.clicks;
    }
  }
  std::printf("\nSmooth is up to %.0f dB; the least of all cuts reaches %.1f dB.\n", kSmoothDb,
              control_db);
  std::printf("\n%s: of %d changes %d smooth, %d abrupt without a fade, %d clicks\n",
              good ? "pass" : "FAIL", total.changes, total.smooth, total.abrupt, total.clicks);
  return good;
}

}  // namespace
}  // namespace kelda::tools

int main(int argc, char** argv) try {
  CLI::App app("Measures whether changes of mode, application, device and HRTF click.");
  std::vector<std::size_t> blocks = {480, 960, 1024, 1920};
  app.add_option("--blocks", blocks, "frames of the host's blocks")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  return kelda::tools::Measure(blocks) ? 0 : 1;
} catch (const std::exception& failure) {
  std::printf("FAIL: %s\n", failure.what());
  return 1;
}
