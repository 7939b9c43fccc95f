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
// The door is the effect's own record, or the host that changes settings by a crossfade. Through
// the record only a change into music or cinema fades, and only in blocks that are not exactly a
// period, because these skip the ring in which fades are made. Where nothing fades, an abrupt
// change is reported as one without a fade and is not a fault. Through the host nothing may be
// abrupt, and a change that was not made is a fault: after each, the stages that run, with their
// files, must be those of an instance that got the same settings through the record.
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

#include "tools/framework/effect_report.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/host_session.h"
#include "tools/framework/installation.h"
#include "tools/framework/setting.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kHalf = kSampleRateHz / 2;
constexpr std::size_t kPeriod = 1024;
constexpr std::size_t kWindow = 64;
constexpr double kSmoothDb = 3;

constexpr const char* kModes[] = {"off", "music", "cinema"};
constexpr const char* kApplications[] = {"com.example.game", "com.example.music",
                                         "com.example.video"};
constexpr const char* kDevices[] = {"speaker", "wired", "bluetooth"};
constexpr const char* kEars[] = {"", "standard", "personalized"};

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

// An instance behind its record.
class Direct {
 public:
  explicit Direct(const EffectLibrary& library) : session_(library) {}
  void Enable() { session_.Enable(); }
  void Apply(const Setting& setting) { tools::Apply(setting, &session_); }
  void Process(float* block, std::size_t frames) { session_.Process(block, frames); }
  std::string Dump() { return session_.Dump(); }

 private:
  EffectSession session_;
};

template <typename Door>
void Apply(const Setup& setup, bool by_application, Door* door) {
  const auto set = [&](const std::string& text) { door->Apply(ParseSetting(text)); };
  set(std::string("wired-hrtf=") + kEars[setup.ears]);
  set(std::string("bluetooth-hrtf=") + kEars[setup.ears]);
  if (by_application) {
    set(std::string("app=") + kApplications[setup.mode]);
  }
  set(std::string("mode=") + (by_application ? "auto" : kModes[setup.mode]));
  set(std::string("device=") + kDevices[setup.device]);
}

std::vector<Stage> Running(const std::string& dump) {
  std::vector<Stage> stages = ParseStages(dump);
  stages.erase(std::remove_if(stages.begin(), stages.end(), [](const Stage& s) { return !s.runs; }),
               stages.end());
  return stages;
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

struct Heard {
  std::vector<float> sound;
  std::vector<Stage> stages;  // that run at its end
};

// What is heard in four half seconds; the change comes at the end of the second.
template <typename Door>
Heard Play(const EffectLibrary& library, const Change& change, std::size_t block_frames) {
  Door door(library);
  Apply(change.from, change.by_application(), &door);
  door.Enable();
  const std::size_t settling = 2 * kHalf / block_frames * block_frames;
  std::vector<float> heard = Tones(settling + 4 * kHalf);
  std::size_t frame = 0;
  const auto play_until = [&](std::size_t end) {
    for (; frame + block_frames <= end; frame += block_frames) {
      door.Process(&heard[kChannels * frame], block_frames);
    }
  };
  play_until(settling + 2 * kHalf);
  Apply(change.to, change.by_application(), &door);
  play_until(settling + 4 * kHalf);
  // The change comes exactly after the second half second.
  const std::size_t changed = (settling + 2 * kHalf) / block_frames * block_frames;
  heard.erase(heard.begin(),
              heard.begin() + static_cast<std::ptrdiff_t>(kChannels * (changed - 2 * kHalf)));
  heard.resize(kChannels * (frame - changed + 2 * kHalf));
  return {std::move(heard), Running(door.Dump())};
}

// The stages that run after the change, in an instance behind its record.
std::vector<Stage> StagesAfter(const EffectLibrary& library, const Change& change) {
  Direct direct(library);
  Apply(change.from, change.by_application(), &direct);
  Apply(change.to, change.by_application(), &direct);
  return Running(direct.Dump());
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
  int changes = 0, smooth = 0, abrupt = 0, clicks = 0, not_made = 0;
  double worst_db = -1e9;
};

// Prints the groups. Whether no fade clicks, no change is missing and no cut goes unnoticed.
bool Measure(bool host, const std::vector<std::size_t>& blocks) {
  UseTuningDirectory("");
  const EffectLibrary library(DefaultEffectLibrary());
  std::map<std::string, std::map<std::size_t, Group>> groups;
  double control_db = 1e9;
  for (const Change& change : AllChanges()) {
    for (const std::size_t block : blocks) {
      const Heard heard =
          host ? Play<HostSession>(library, change, block) : Play<Direct>(library, change, block);
      const bool made = !host || heard.stages == StagesAfter(library, change);
      const double figure_db = Figure(heard.sound);
      control_db = std::min(control_db, Control(heard.sound));
      const bool fades = host || (change.fades() && block != kPeriod);
      const bool smooth = figure_db <= kSmoothDb;
      std::string name = std::string(change.what) + " within ";
      if (change.to.runs() != change.from.runs()) {
        name = std::string(change.what) + " into ";
      }
      Group& group = groups[name + kModes[change.to.runs()]][block];
      ++group.changes;
      ++(!made ? group.not_made : smooth ? group.smooth : fades ? group.clicks : group.abrupt);
      group.worst_db = std::max(group.worst_db, figure_db);
    }
  }
  bool good = control_db > kSmoothDb;
  Group total;
  std::printf(
      "| change | block | changes | smooth | abrupt, no fade | clicks | not made | worst figure |\n"
      "|---|---|---|---|---|---|---|---|\n");
  for (const auto& [name, by_block] : groups) {
    for (const auto& [block, group] : by_block) {
      std::printf("| %s | %zu | %d | %d | %d | %d | %d | %.1f dB |\n", name.c_str(), block,
                  group.changes, group.smooth, group.abrupt, group.clicks, group.not_made,
                  group.worst_db);
      good &= group.clicks == 0 && group.not_made == 0;
      total.changes += group.changes;
      total.smooth += group.smooth;
      total.abrupt += group.abrupt;
      total.clicks += group.clicks;
      total.not_made += group.not_made;
    }
  }
  std::printf("\nSmooth is up to %.0f dB; the least of all cuts reaches %.1f dB.\n", kSmoothDb,
              control_db);
  std::printf("\n%s: of %d changes %d smooth, %d abrupt", good ? "pass" : "FAIL", total.changes,
              total.smooth, host ? total.clicks : total.abrupt);
  if (host) {
    std::printf(", %d not made\n", total.not_made);
  } else {
    std::printf(" without a fade, %d clicks\n", total.clicks);
  }
  return good;
}

}  // namespace
}  // namespace kelda::tools

int main(int argc, char** argv) try {
  CLI::App app("Measures whether changes of mode, application, device and HRTF click.");
  std::vector<std::size_t> blocks = {480, 960, 1024, 1920};
  std::string door = "aeli";
  app.add_option("--door", door, "aeli: the effect's record; host: the host over it")
      ->check(CLI::IsMember({"aeli", "host"}))
      ->capture_default_str();
  app.add_option("--blocks", blocks, "frames of the host's blocks")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  return kelda::tools::Measure(door == "host", blocks) ? 0 : 1;
} catch (const std::exception& failure) {
  std::printf("FAIL: %s\n", failure.what());
  return 1;
}
