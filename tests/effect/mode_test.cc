// Which stages run, and which tuning files are loaded in which order, for every way
// that mode, application, device and HRTF come to be set.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <map>
#include <random>

#include "tests/effect/effect_client.h"

namespace kelda {
namespace {

using test::Effect;
using test::Lines;

constexpr uint32_t kSpeaker = AUDIO_DEVICE_OUT_SPEAKER;
constexpr uint32_t kWired = AUDIO_DEVICE_OUT_WIRED_HEADPHONE;
constexpr uint32_t kBluetooth = AUDIO_DEVICE_OUT_BLUETOOTH_A2DP;
enum Mode : uint32_t { kOff, kMusic, kCinema, kAuto };
enum Param : uint32_t { kWiredHrtf = 1, kBluetoothHrtf, kReload, kAppPackage = 10 };
enum Hrtf : uint32_t { kStandard = 1, kPersonalized = 2 };

class ModeTest : public test::DataDirTest {
 protected:
  ModeTest() {
    WriteTuning();
    Write("tunedapp_list", "com.film,CINEMA\ncom.song,MUSIC\ncom.game,OFF\n");
  }

  // The files loaded since the last time, in order: those that calls of the signal
  // library name, one a call, in brackets.
  std::string Loaded() const {
    std::string files;
    for (const std::string& call : TakeCalls()) {
      const std::string entry = call.substr(0, 5);
      for (const char* loading : {"A0122", "A0559", "A0782", "A0218", "A0243"}) {
        if (entry != loading) continue;
        std::string text = call.substr(6);
        if (const size_t dir = text.find("DIR "); dir != std::string::npos) text.erase(dir, 4);
        files += "[" + text + "]";
      }
    }
    return files;
  }
};

// Everything that one headphone output loads at its first use.
std::string TuningOf(const std::string& device, const std::string& kind) {
  return "[upmix.music." + kind + ".bin][" + device + ".hki.config][upmix.cinema." + kind +
         ".bin " + device + ".hki.config]" + (kind == "hpp" ? "[" + device + ".ba.config]" : "");
}

TEST_F(ModeTest, FilesOfADeviceAndOfAMode) {
  Effect effect;
  TakeCalls();
  effect.SetMode(kMusic);  // no device yet
  EXPECT_EQ(effect.Stages(), "P----");
  EXPECT_EQ(Loaded(), "");
  effect.SetDevice(kWired);  // the mode first, then the device's files
  EXPECT_EQ(effect.Stages(), "-M--L");
  EXPECT_EQ(Loaded(), "[upl.music.bin]" + TuningOf("wired", "hps"));
  effect.SetDevice(kWired);  // the same again: nothing to load
  effect.SetMode(kMusic);
  EXPECT_EQ(Loaded(), "");
  effect.SetMode(kCinema);
  EXPECT_EQ(effect.Stages(), "--C-L");
  EXPECT_EQ(Loaded(), "[upl.cinema.bin]");
  effect.SetDevice(kBluetooth);
  EXPECT_EQ(Loaded(), TuningOf("bluetooth", "hps"));
  effect.SetParam(kWiredHrtf, kPersonalized);  // for the output that is not in use
  EXPECT_EQ(effect.Stages(), "--C-L");
  EXPECT_EQ(Loaded(), "");
  effect.SetDevice(kWired);
  EXPECT_EQ(effect.Stages(), "--CEL");
  EXPECT_EQ(Loaded(), TuningOf("wired", "hpp"));
  effect.SetParam(kWiredHrtf, kStandard);
  EXPECT_EQ(effect.Stages(), "--C-L");
  EXPECT_EQ(Loaded(),
            "[upmix.music.hps.bin][wired.hki.config][upmix.cinema.hps.bin wired.hki.config]");
  effect.SetMode(kOff);
  EXPECT_EQ(Loaded(), "[upl.cinema.bin]");  // the level control's flush, from memory
  effect.SetDevice(kSpeaker);
  EXPECT_EQ(effect.Stages(), "P----");
  EXPECT_EQ(Loaded(), "");
}

TEST_F(ModeTest, HrtfTypesComeFromTheConfigurationFiles) {
  Write("wired.hki.config", "personalized.hki\n");
  Write("bluetooth.hki.config", "speaker.hki\n");
  Effect effect;
  TakeCalls();
  // Personalized: the equalizer runs with the upmix off, too.
  effect.SetDevice(kWired);
  EXPECT_EQ(effect.Stages(), "P--E-");
  EXPECT_EQ(Loaded(), TuningOf("wired", "hpp"));
  effect.SetDevice(kSpeaker);  // stays on, until a mode changes to off
  EXPECT_EQ(effect.Stages(), "P--E-");
  effect.SetDevice(kBluetooth);
  EXPECT_EQ(effect.Stages(), "P----");
  EXPECT_EQ(Loaded(), TuningOf("bluetooth", "hps"));
  effect.SetDevice(kWired);
  effect.SetMode(kMusic);
  EXPECT_EQ(effect.Stages(), "-M-EL");
  effect.SetDevice(kSpeaker);
  EXPECT_EQ(effect.Stages(), "P----");
}

TEST_F(ModeTest, AnyOrderOfSettingsAgreesWithTheRules) {
  const uint32_t seed = test::NewSeed();
  std::mt19937 random(seed);
  const std::pair<const char*, uint32_t> kApps[] = {
      {"com.film&0", kCinema},  {"com.film&1", kCinema},   {"com.song&1", kMusic},
      {"com.game&1", kOff},     {"com.other&1", kCinema},  {"com.other&", kMusic},
      {"com.other&0", kMusic},  {"com.other&11", kCinema}, {"&1", kCinema},
      {"com.other&01", kMusic}, {"com.other&&1", kMusic},  {"com.film2&", kMusic}};
  std::map<uint32_t, uint32_t> hrtf;
  uint32_t requested = 0, actual = 0, app = 0, device = 0;
  bool equalizer = false;
  const auto personalized = [&] { return device != kSpeaker && hrtf[device] == kPersonalized; };
  const auto run = [&](uint32_t mode) {
    const uint32_t effective = device == kSpeaker ? kOff : mode;
    if (effective == actual) return;
    actual = effective;
    equalizer = actual != kOff && personalized();
  };
  std::optional<Effect> effect;
  for (int step = 0; step < 3000; ++step) {
    std::string what;
    const uint32_t choice = step == 0 ? 99 : static_cast<uint32_t>(random() % 100);
    if (choice < 30) {
      const auto mode = static_cast<uint32_t>(random() % 4);
      what = "mode " + std::to_string(mode);
      effect->SetMode(mode);
      if (mode != requested) {
        requested = mode;
        run(requested == kAuto ? app : requested);
      }
    } else if (choice < 60) {
      device = std::array{kSpeaker, kWired, kBluetooth}[random() % 3];
      what = "device " + std::to_string(device);
      effect->SetDevice(device);
      run(requested == kAuto ? app : requested);
      if (device != kSpeaker) equalizer = personalized();
    } else if (choice < 80) {
      const auto& [package, mode] = kApps[random() % std::size(kApps)];
      what = std::string("app ") + package;
      effect->SetText(kAppPackage, package);
      if (requested == kAuto) run(mode);
      app = mode;
    } else if (choice < 98) {
      const uint32_t of = random() % 2 == 0 ? kWired : kBluetooth;
      const auto type = static_cast<uint32_t>(kStandard + random() % 2);
      what = "hrtf " + std::to_string(type) + " of " + std::to_string(of);
      effect->SetParam(of == kWired ? kWiredHrtf : kBluetoothHrtf, type);
      hrtf[of] = type;
      if (device == of) equalizer = personalized();
    } else {
      what = "new engine";
      if (step == 0) effect.emplace();
      effect->Init();
      requested = actual = kOff;
      app = kMusic;
      device = kSpeaker;
      hrtf = {{kWired, kStandard}, {kBluetooth, kStandard}};
      equalizer = false;
    }
    const std::string expected = std::string(actual == kOff ? "P" : "-") +
                                 (actual == kMusic ? "M" : "-") + (actual == kCinema ? "C" : "-") +
                                 (equalizer ? "E" : "-") + (actual != kOff ? "L" : "-");
    ASSERT_EQ(effect->Stages(), expected) << "seed " << seed << ", step " << step << ": " << what;
  }
}

TEST_F(ModeTest, ApplicationListIsReadAgainOnRequestOnly) {
  Effect effect;
  effect.SetDevice(kWired);
  effect.SetMode(kAuto);
  EXPECT_EQ(effect.Stages(), "-M--L");  // no application yet
  Write("tunedapp_list", "com.song,CINEMA\n");
  effect.SetText(kAppPackage, "com.song&0");
  EXPECT_EQ(effect.Stages(), "-M--L");
  effect.SetText(kReload, "");
  EXPECT_EQ(effect.Stages(), "-M--L");  // counts from the next application on
  effect.SetText(kAppPackage, "com.song&0");
  EXPECT_EQ(effect.Stages(), "--C-L");
  std::filesystem::remove(Path("tunedapp_list"));
  effect.SetText(kReload, "");
  effect.SetText(kAppPackage, "com.song&0");
  EXPECT_EQ(effect.Stages(), "-M--L");
  // Kept while another mode is requested, applied by the change to automatic.
  effect.SetMode(kMusic);
  effect.SetText(kAppPackage, "com.any&1");
  EXPECT_EQ(effect.Stages(), "-M--L");
  effect.SetMode(kAuto);
  EXPECT_EQ(effect.Stages(), "--C-L");
}

}  // namespace
}  // namespace kelda
