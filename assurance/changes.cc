// What is heard of a change through the host, beside an instance behind the effect's record that
// ran in the new sound all along: level, what else differs, whether the crossfade combs, how long a
// change takes, and what its roll-in costs.
#include <android/log.h>
#include <cutils/properties.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/laboratory/audio_files.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/host_session.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

using changeover::Session;
using changeover::Turn;
using changeover::Worker;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kPeriod = kPeriodFrames;
// The host's audio is so much later than that of whole periods through the record.
constexpr std::size_t kLater = Session::kLatencyFrames - changeover::kChainFrames;
constexpr double kLevelGoalDb = 1;

double Db(double power) { return 10 * std::log10(power + 1e-30); }

// Interleaved noise whose spectrum falls as that of music does, half of it common to both channels,
// at the given level in dBFS, second by second.
std::vector<float> Programme(const std::vector<double>& levels_db) {
  std::vector<float> sound(kChannels * kSampleRateHz * levels_db.size());
  uint32_t state = 1;
  const auto noise = [&] {
    state = 1664525 * state + 1013904223;  // Numerical Recipes' generator
    return static_cast<double>(state >> 8) / 0x1p23 - 1;
  };
  double smooth[3] = {};
  for (std::size_t i = 0; i < sound.size(); i += 2) {
    for (double& part : smooth) {
      part += 0.15 * (noise() - part);
    }
    // The mean square of each channel is 2 * (1 / 3) * 0.15 / 1.85.
    const double gain = std::pow(10, levels_db[i / 2 / kSampleRateHz] / 20) / std::sqrt(0.05405);
    sound[i] = static_cast<float>(gain * (smooth[0] + smooth[1]));
    sound[i + 1] = static_cast<float>(gain * (smooth[0] + smooth[2]));
  }
  return sound;
}

struct Comparison {
  double level_db = 0;    // worst of tenths of a second
  double residue_db = 0;  // what is left of the difference at equal level
};

// The host's sound from frame `first` of the input on, for a second, beside that of the other.
Comparison Compare(const std::vector<float>& host, const std::vector<float>& other,
                   std::size_t first) {
  constexpr std::size_t kTenth = kChannels * kSampleRateHz / 10;
  Comparison result;
  double both = 0, mine = 0, its = 0;
  for (std::size_t part = 0; part < 10; ++part) {
    double mine_now = 0, its_now = 0;
    for (std::size_t i = 0; i < kTenth; ++i) {
      const std::size_t at = kChannels * first + part * kTenth + i;
      const double a = host[at + kChannels * kLater], b = other[at];
      mine_now += a * a, its_now += b * b, both += a * b;
    }
    mine += mine_now, its += its_now;
    const double level_db = Db(mine_now) - Db(its_now);
    result.level_db = std::fabs(level_db) > std::fabs(result.level_db) ? level_db : result.level_db;
  }
  result.residue_db = Db(1 - both * both / (mine * its));
  return result;
}

void Set(HostSession* host, const char* setting) { host->Apply(ParseSetting(setting)); }

// A session with the setting `from`, changed to `to` after `seconds`; the direct instance has `to`
// from the start. Both begin in music.
Comparison Changed(const EffectLibrary& library, const std::vector<float>& sound,
                   std::size_t seconds, const char* from, const char* to, bool warm = false) {
  EffectSession direct(library);
  HostSession host(library, {.keep_warm = warm});
  for (const char* const setting : {"device=wired", "mode=music"}) {
    Apply(ParseSetting(setting), &direct);
    Set(&host, setting);
  }
  Apply(ParseSetting(to), &direct);
  direct.Enable();
  host.Enable();
  std::vector<float> heard = sound, other = sound;
  std::size_t fade = 0;
  const std::size_t change = seconds * kSampleRateHz / kPeriod;
  for (std::size_t period = 0; kChannels * kPeriod * (period + 1) <= sound.size(); ++period) {
    if (period == 5 * kSampleRateHz / kPeriod) {
      Set(&host, from);  // what serves next has served before, for this programme, and waits since
    }
    if (period == change) {
      Set(&host, to);
    }
    host.Process(&heard[kChannels * kPeriod * period], kPeriod);
    direct.Process(&other[kChannels * kPeriod * period], kPeriod);
    for (const Turn& turn : host.session().TakeTurns()) {
      fade = static_cast<std::size_t>(turn.end);
    }
  }
  return Compare(heard, other, kPeriod * fade + changeover::Crossfade::kFrames);
}

constexpr const char* kLevelsHead =
    "| change | programme | level, worst tenth of a second | residue at equal level |\n"
    "|---|---|---:|---:|\n";

// In real music, every four seconds.
void MeasureFile(const EffectLibrary& library, const std::string& path) {
  const Audio audio = ReadAudio(path);
  if (audio.channels != 2 || audio.rate_hz != kSampleRateHz) {
    throw std::runtime_error(path + " is not stereo at 48 kHz");
  }
  std::fputs(kLevelsHead, stdout);
  const auto length = static_cast<std::size_t>(audio.frames()) / kSampleRateHz;
  for (const auto& [from, to] :
       {std::pair{"mode=off", "mode=music"}, {"mode=off", "mode=cinema"}}) {
    for (std::size_t seconds = 12; seconds + 3 <= length; seconds += 4) {
      const std::vector<float> sound(
          audio.samples.begin(),
          audio.samples.begin() +
              static_cast<std::ptrdiff_t>(kChannels * kSampleRateHz * (seconds + 3)));
      const Comparison figures = Changed(library, sound, seconds, from, to);
      std::printf("| %s to %s | %s, at %zu s | %+.2f dB | %.0f dB |\n", from, to, path.c_str(),
                  seconds, figures.level_db, figures.residue_db);
      std::fflush(stdout);
    }
  }
}

bool MeasureLevels(const EffectLibrary& library) {
  bool good = true;
  std::fputs(kLevelsHead, stdout);
  const auto row = [&](const char* from, const char* to, const std::string& name,
                       const std::vector<double>& levels, std::size_t seconds, bool judged,
                       bool warm = false) {
    const Comparison figures = Changed(library, Programme(levels), seconds, from, to, warm);
    std::printf("| %s to %s | %s%s | %+.2f dB | %.0f dB |\n", from, to, name.c_str(),
                judged ? "" : " (not judged)", figures.level_db, figures.residue_db);
    std::fflush(stdout);
    good &= !judged || std::fabs(figures.level_db) <= kLevelGoalDb;
  };
  const auto levels = [](double first, std::size_t seconds, double then, std::size_t more) {
    std::vector<double> all(seconds, first);
    all.insert(all.end(), more + 3, then);
    return all;
  };
  constexpr double kPause = -200;
  for (const auto& [from, to] : {std::pair{"mode=off", "mode=music"},
                                 {"mode=off", "mode=cinema"},
                                 {"mode=cinema", "mode=music"}}) {
    for (const double level_db : {-12.0, -23.0, -30.0, -33.0}) {
      char name[32];
      std::snprintf(name, sizeof(name), "%.0f dBFS", level_db);
      row(from, to, name, levels(level_db, 20, level_db, 0), 20, true);
    }
    for (const std::size_t after : {2u, 6u, 12u}) {
      row(from, to, "-12, then " + std::to_string(after) + " s of -33 dBFS",
          levels(-12, 20, -33, after), 20 + after, true);
    }
    for (const std::size_t after : {2u, 6u}) {
      const std::string then = "then " + std::to_string(after) + " s of ";
      row(from, to, "-22, " + then + "-14 dBFS", levels(-22, 20, -14, after), 20 + after, true);
      // The other's gain still rises, by 3 dB a second.
      std::vector<double> paused = levels(-12, 20, -28, after);
      paused.insert(paused.begin() + 20, 3, kPause);
      row(from, to, "-12, a pause, " + then + "-28 dBFS", paused, 23 + after, false);
    }
  }
  constexpr const char *kStandard = "wired-hrtf=standard",
                       *kPersonalized = "wired-hrtf=personalized";
  for (const auto& [from, to] : {std::pair{kStandard, kPersonalized}, {kPersonalized, kStandard}}) {
    for (const bool warm : {false, true}) {
      for (const double level_db : {-12.0, -23.0, -33.0}) {
        char name[32];
        std::snprintf(name, sizeof(name), "%s%.0f dBFS", warm ? "kept warm, " : "", level_db);
        row(from, to, name, levels(level_db, 20, level_db, 0), 20, true, warm);
      }
    }
  }
  return good;
}

// The largest correlation of off with the new sound; a comb would have it elsewhere than at 0.
void MeasureComb(const EffectLibrary& library) {
  const std::vector<float> sound = Programme(std::vector<double>(3, -20));
  for (const char* const mode : {"mode=music", "mode=cinema"}) {
    HostSession host(library);
    Set(&host, "device=wired");
    Set(&host, mode);
    host.Enable();
    std::vector<float> heard = sound;
    host.Process(heard.data(), heard.size() / kChannels);
    double largest = -1e9;
    int at = 0;
    for (int lag = -200; lag <= 200; ++lag) {
      double sum = 0;
      for (std::size_t frame = kSampleRateHz; frame < 2 * kSampleRateHz; ++frame) {
        const std::size_t later = frame + Session::kLatencyFrames + static_cast<std::size_t>(lag);
        sum += double{sound[kChannels * frame]} * double{heard[kChannels * later]};
      }
      if (sum > largest) {
        largest = sum;
        at = lag;
      }
    }
    std::printf("%s beside off: largest correlation at lag %d\n", mode, at);
  }
}

double ThreadMs() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return 1e3 * static_cast<double>(now.tv_sec) + 1e-6 * static_cast<double>(now.tv_nsec);
}

// Changes at the pace of audio, with the worker on its own thread: from the call to the end of the
// crossfade. `change` gets the number of the change.
using MakeChange = std::function<changeover::Setting(uint32_t number)>;
void MeasureTime(const EffectLibrary& library, const char* name, bool warm,
                 const MakeChange& change) {
  const auto worker = Worker::Make(library.info(), Worker::Threads::Own);
  const auto session = Session::Open(worker.get(), {warm});
  session->Set({changeover::Setting::Kind::Device, AUDIO_DEVICE_OUT_WIRED_HEADPHONE});
  session->Set({changeover::Setting::Kind::Mode, 1});
  session->Start();
  const std::vector<float> sound = Programme(std::vector<double>(1, -20));
  std::vector<float> block(kChannels * kPeriod);
  std::vector<double> times_ms;
  Clock::time_point called;
  bool waits = false;
  const auto start = Clock::now();
  for (uint64_t period = 0; times_ms.size() < 12 && period < 2000; ++period) {
    std::copy_n(&sound[kChannels * kPeriod * (period % 46)], block.size(), block.begin());
    session->Process(block.data(), block.data(), kPeriod);
    for (const Turn& turn : session->TakeTurns()) {
      if (waits && turn.outcome == Turn::End::Heard) {
        times_ms.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - called).count());
        waits = false;
      }
    }
    if (!waits && period % 40 == 39 && period > 150) {
      session->Set(change(static_cast<uint32_t>(times_ms.size())));
      called = Clock::now();
      waits = true;
    }
    std::this_thread::sleep_until(start + (period + 1) * std::chrono::microseconds(21333));
  }
  session->Stop();
  std::sort(times_ms.begin(), times_ms.end());
  if (!times_ms.empty()) {
    std::printf("%s: %zu changes, %.0f ms in the median, %.0f ms at worst\n", name, times_ms.size(),
                times_ms[times_ms.size() / 2], times_ms.back());
  }
}

void MeasureCost(const EffectLibrary& library) {
  HostSession host(library);
  Set(&host, "device=wired");
  host.Enable();
  std::vector<float> sound = Programme(std::vector<double>(4, -20));
  host.Process(sound.data(), sound.size() / kChannels);
  for (const char* const mode : {"mode=music", "mode=cinema"}) {
    const auto instance = changeover::Instance::Make(library.info(), 0);
    changeover::Outcome outcome;
    outcome.Follow({changeover::Setting::Kind::Device, AUDIO_DEVICE_OUT_WIRED_HEADPHONE});
    outcome.Follow({changeover::Setting::Kind::Mode, mode == std::string("mode=music") ? 1u : 2u});
    double set_ms = ThreadMs();
    instance->Set(outcome.sound());
    set_ms = ThreadMs() - set_ms;
    double feed_ms = ThreadMs();
    constexpr std::size_t kRolledIn = changeover::History::kRolledIn;
    for (std::size_t period = 0; period < kRolledIn; ++period) {
      instance->Process(&sound[kChannels * kPeriod * period]);
    }
    feed_ms = ThreadMs() - feed_ms;
    std::printf(
        "%s: set and probed in %.1f ms, rolled in at %.2f ms a second of history, %.1f ms in all\n",
        mode, set_ms, feed_ms * kSampleRateHz / (kRolledIn * kPeriod), feed_ms);
  }
}

}  // namespace
}  // namespace kelda::tools

int main(int argc, char** argv) try {
  CLI::App app("Measures what is heard of a change through the host, and how soon.");
  std::vector<std::string> files;
  app.add_option("FILE", files, "Music: measure the level of changes within it, and nothing else");
  CLI11_PARSE(app, argc, argv);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  kelda::tools::UseTuningDirectory("");
  const kelda::tools::EffectLibrary library(kelda::tools::DefaultEffectLibrary());
  for (const std::string& file : files) {
    kelda::tools::MeasureFile(library, file);
  }
  if (!files.empty()) {
    return 0;
  }
  const bool good = kelda::tools::MeasureLevels(library);
  kelda::tools::MeasureComb(library);
  kelda::tools::MeasureCost(library);
  using Kind = kelda::changeover::Setting::Kind;
  const auto turned = [](Kind kind) {
    return [kind](uint32_t number) {
      return kelda::changeover::Setting{kind, 1 + (number + 1) % 2};
    };
  };
  kelda::tools::MeasureTime(library, "music and cinema", false, turned(Kind::Mode));
  kelda::tools::MeasureTime(library, "kept warm, ears", true, turned(Kind::WiredHrtf));
  kelda::tools::MeasureTime(library, "kept warm, knobs", true, turned(Kind::ReloadTuning));
  std::printf("\n%s\n", good ? "pass" : "FAIL: a level is off by more than 1 dB");
  return good ? 0 : 1;
} catch (const std::exception& failure) {
  std::printf("FAIL: %s\n", failure.what());
  return 1;
}
