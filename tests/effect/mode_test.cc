// Which stages run, and which tuning files are loaded in which order, for every way
// that mode, application, device and HRTF come to be set.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>

#include "engine/plan.h"
#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"
#include "tests/laboratory/effect_client.h"

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
  ModeTest() { WriteTuning(); }
};

// Every call that sets up, empties, processes and ends, of every component.
TEST_F(ModeTest, CallsInTheLifeOfAnInstance) {
  setenv("KELDA_DATA_DIR", (dir() + "//").c_str(), 1);  // the library gets no '/' at the end
  std::optional<Effect> effect(std::in_place);
  effect->SetParam(kWiredHrtf, kPersonalized);
  effect->SetMode(kMusic);
  effect->Enable();
  TakeCalls();
  const auto process = [&](int blocks) {
    std::vector<float> out;
    for (int i = 0; i < blocks; ++i) effect->Process(test::Ramp(1024), &out);
    return TakeCalls();
  };
  effect->SetDevice(kWired);
  EXPECT_EQ(TakeCalls(), (Lines{"A0508 1024", "A0122 upl.music.bin", "A0559 upmix.music.hpp.bin",
                                "A0782 DIR wired.hki.config", "A0556 1001", "A0236 1001",
                                "A0218 upmix.cinema.hpp.bin DIR wired.hki.config",
                                "A0243 DIR wired.ba.config", "A0214 1", "A0237 1"}));
  EXPECT_EQ(process(3), (Lines{"A0560 2 1024", "A0560 1 1024", "A0560 0 1024"}));
  effect->Reset();
  EXPECT_EQ(TakeCalls(),
            (Lines{"A0236 1001", "A0593 1", "A0237 1", "A0508 1024", "A0122 upl.music.bin"}));
  fake::Fail("A0560", -1);  // a failed block counts
  EXPECT_EQ(process(2), (Lines{"A0560 1 1024", "A0560 0 1024"}));
  effect->SetParam(kWiredHrtf, kStandard);  // the equalizer is kept
  EXPECT_EQ(TakeCalls(), (Lines{"A0559 upmix.music.hps.bin", "A0212 1001", "A0810 1001",
                                "A0782 DIR wired.hki.config", "A0556 1002", "A0236 1002", "A0213 1",
                                "A0218 upmix.cinema.hps.bin DIR wired.hki.config"}));
  effect->SetParam(kWiredHrtf, kPersonalized);
  EXPECT_EQ(TakeCalls(), (Lines{"A0559 upmix.music.hpp.bin", "A0212 1002", "A0810 1002",
                                "A0782 DIR wired.hki.config", "A0556 1003", "A0236 1003", "A0213 2",
                                "A0218 upmix.cinema.hpp.bin DIR wired.hki.config", "A0562 1",
                                "A0812 1", "A0243 DIR wired.ba.config", "A0214 2", "A0237 2"}));
  effect->SetDevice(kWired);                    // the same again: nothing to load
  effect->SetParam(kBluetoothHrtf, kStandard);  // of the output that is not in use
  EXPECT_EQ(TakeCalls(), Lines{});
  effect->SetMode(kCinema);  // flushes the stage that stops
  EXPECT_EQ(TakeCalls(), (Lines{"A0236 1003", "A0508 1024", "A0122 upl.cinema.bin"}));
  effect->SetDevice(kBluetooth);
  EXPECT_EQ(TakeCalls(), (Lines{"A0559 upmix.music.hps.bin", "A0212 1003", "A0810 1003",
                                "A0782 DIR bluetooth.hki.config", "A0556 1004", "A0236 1004",
                                "A0213 3", "A0218 upmix.cinema.hps.bin DIR bluetooth.hki.config"}));
  effect->SetParam(kBluetoothHrtf, kPersonalized);
  EXPECT_EQ(TakeCalls().back(), "A0237 3");
  std::filesystem::remove(Path("upl.cinema.bin"));
  effect->SetDevice(kSpeaker);  // the level control is emptied from what it holds
  EXPECT_EQ(TakeCalls(), (Lines{"A0593 5", "A0508 1024", "A0122 upl.cinema.bin"}));
  effect->Init();  // the old engine has gone before the new one comes
  EXPECT_EQ(TakeCalls(),
            (Lines{"A0212 1005", "A0810 1005", "A0213 5", "A0562 3", "A0812 3", "A0216", "A0511",
                   "A0779", "A0244", "A0333", "A0507", "A0557", "A0834"}));
  effect->SetDevice(kWired);
  TakeCalls();
  effect.reset();
  EXPECT_EQ(TakeCalls(), (Lines{"A0212 1006", "A0810 1006", "A0213 6"}));
}

// A plan as text, by the names that stages have in the dump:
//
//   "-pass -upmc +upmm -hpeq +upl fade upl=upl.music.bin +hpeq ap=wired.hki.config ap= > 1"
//
//   +upmm, -pass       a stage that is switched on, one that is switched off; in their order
//   fade               the change asks for a fade
//   ap=file, ap=       a file that is sent, by its key up to the first '_'; a key without a file
//   > 1                the mode that runs afterwards
std::string Text(const Plan& plan) {
  std::string text;
  const auto add = [&](Stage stage, bool on) {
    text += std::string(on ? "+" : "-") + FactsOf(stage).name + " ";
  };
  const auto send = [&](ParameterSet set) {
    for (const auto& [key, file] : ParametersOf(set)) {
      text += std::string(key, std::strcspn(key, "_")) + "=" + (file ? file : "") + " ";
    }
  };
  if (plan.mode_change) {
    for (const auto& [stage, on] : plan.mode_change->switches) add(stage, on);
    if (plan.mode_change->fade) text += "fade ";
    if (plan.mode_change->level) send(*plan.mode_change->level);
  }
  if (plan.headphone) {
    add(Stage::HeadphoneEqualizer, plan.headphone->equalizer);
    send(plan.headphone->files);
  }
  return text + "> " + std::to_string(static_cast<uint32_t>(plan.mode));
}

TEST(PlanTest, EverySettingHasItsPlan) {
  using enum UpmixMode;
  using enum AudioDeviceType;
  constexpr HrtfType kS = HrtfType::Standard, kP = HrtfType::Personalized;
  const std::string off = "-upmm -upmc -hpeq -upl +pass ",
                    music = "-pass -upmc +upmm -hpeq +upl fade upl=upl.music.bin ",
                    cinema = "-pass -upmm +upmc +hpeq +upl fade upl=upl.cinema.bin ",
                    wired_hps =
                        "-hpeq ap=wired.hki.config ap= music=upmix.music.hps.bin "
                        "cinema=upmix.cinema.hps.bin ",
                    bluetooth_hpp =
                        "+hpeq ap=bluetooth.hki.config ap=bluetooth.ba.config "
                        "music=upmix.music.hpp.bin cinema=upmix.cinema.hpp.bin ";
  const struct {
    Changed changed;
    UpmixMode running;
    EngineSettings settings;  // requested mode, application's, device, Bluetooth's HRTF, wired
    std::string plan;
  } kCases[] = {
      {Changed::Mode, Off, {Music, Cinema, Other, kP, kP}, "> 0"},
      {Changed::Mode, Off, {Music, Cinema, Wired, kP, kS}, music + "> 1"},
      {Changed::Mode, Music, {Music, Cinema, Wired, kP, kS}, "> 1"},
      {Changed::Mode, Music, {Auto, Cinema, Wired, kS, kP}, cinema + "> 2"},
      {Changed::Mode, Cinema, {Auto, Off, Bluetooth, kP, kP}, off + "> 0"},
      {Changed::Mode, Music, {UpmixMode{4}, Music, Wired, kS, kS}, "> 4"},  // no such mode
      {Changed::Device, Off, {Off, Music, Other, kP, kP}, "> 0"},
      {Changed::Device, Cinema, {Cinema, Music, Other, kP, kP}, off + "> 0"},
      {Changed::Device, Off, {Off, Music, Bluetooth, kP, kS}, bluetooth_hpp + "> 0"},
      {Changed::Device, Music, {Music, Music, Bluetooth, kP, kS}, bluetooth_hpp + "> 1"},
      {Changed::Device, Off, {Music, Off, Wired, kP, kS}, music + wired_hps + "> 1"},
      {Changed::Device, Music, {Cinema, Off, Bluetooth, kP, kS}, cinema + bluetooth_hpp + "> 2"},
      {Changed::Hrtf, Off, {Cinema, Music, Wired, kP, HrtfType::Speaker}, wired_hps + "> 0"},
      {Changed::Hrtf, Music, {Music, Music, Bluetooth, kP, kS}, bluetooth_hpp + "> 1"},
  };
  for (const auto& [changed, running, settings, plan] : kCases) {
    EXPECT_EQ(Text(MakePlan(settings, running, changed)), plan);
  }
}

TEST_F(ModeTest, AnyOrderOfSettingsIsPlayedAsPlanned) {
  const uint32_t seed = test::NewSeed();
  std::mt19937 random(seed);
  const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
  using List = std::map<std::string, uint32_t>;
  const std::pair<const char*, List> kLists[] = {
      {"com.film,CINEMA\ncom.song,MUSIC\ncom.game,OFF\n",
       {{"com.film", kCinema}, {"com.song", kMusic}, {"com.game", kOff}}},
      {"com.song,CINEMA", {{"com.song", kCinema}}},
      {nullptr, {}}};  // no such file
  const struct {
    const char *setting, *package;
    uint32_t unlisted_mode;
  } kApps[] = {{"com.film&0", "com.film", kMusic},    {"com.song&1", "com.song", kCinema},
               {"com.game&1", "com.game", kCinema},   {"com.other&1", "com.other", kCinema},
               {"com.other&", "com.other", kMusic},   {"com.other&0", "com.other", kMusic},
               {"com.film&11", "com.film", kCinema},  {"&1", "", kCinema},
               {"com.other&01", "com.other", kMusic}, {"com.film&&1", "com.film", kMusic}};
  List in_file, listed;
  EngineSettings settings;
  UpmixMode actual = UpmixMode::Off;
  bool equalizer = false;
  const auto apply = [&](Changed changed) {
    const Plan plan = MakePlan(settings, actual, changed);
    actual = plan.mode;
    if (plan.mode_change) {
      for (const auto& [stage, on] : plan.mode_change->switches) {
        if (stage == Stage::HeadphoneEqualizer) equalizer = on;
      }
    }
    if (plan.headphone) equalizer = plan.headphone->equalizer;
  };
  Effect effect;
  for (int step = 0; step < 3000; ++step) {
    std::string what;
    const uint32_t choice = step == 0 ? 99 : below(100);
    if (choice < 30) {
      const uint32_t mode = below(4);
      what = "mode " + std::to_string(mode);
      effect.SetMode(mode);
      settings.requested_mode = UpmixMode{mode};
      apply(Changed::Mode);
    } else if (choice < 55) {
      settings.device = AudioDeviceType{below(3)};
      const uint32_t device =
          std::array{kSpeaker, kWired, kBluetooth}[static_cast<uint32_t>(settings.device)];
      what = "device " + std::to_string(device);
      effect.SetDevice(device);
      apply(Changed::Device);
    } else if (choice < 75) {
      const auto& [setting, package, unlisted_mode] = kApps[below(std::size(kApps))];
      what = std::string("app ") + setting;
      effect.SetText(kAppPackage, setting);
      settings.app_mode = UpmixMode{listed.contains(package) ? listed[package] : unlisted_mode};
      apply(Changed::Mode);
    } else if (choice < 90) {
      const bool wired = below(2) == 0;
      const uint32_t hrtf = kStandard + below(2);
      (wired ? settings.wired_hrtf : settings.bluetooth_hrtf) = HrtfType{hrtf};
      what = "hrtf " + std::to_string(hrtf) + (wired ? " of wired" : " of bluetooth");
      effect.SetParam(wired ? kWiredHrtf : kBluetoothHrtf, hrtf);
      if (settings.device == (wired ? AudioDeviceType::Wired : AudioDeviceType::Bluetooth)) {
        apply(Changed::Hrtf);
      }
    } else if (choice < 94) {
      what = "list written";
      const auto& [text, list] = kLists[below(std::size(kLists))];
      in_file = list;
      std::filesystem::remove(Path("tunedapp_list"));
      if (text != nullptr) Write("tunedapp_list", text);
    } else if (choice < 97) {
      what = "list read";  // counts from the next application on
      effect.SetText(kReload, "");
      listed = in_file;
    } else {
      what = "new engine";
      settings = {};
      actual = UpmixMode::Off;
      equalizer = false;
      listed = in_file;
      for (const auto& [hrtf, name] :
           {std::pair{&settings.wired_hrtf, "wired"}, {&settings.bluetooth_hrtf, "bluetooth"}}) {
        *hrtf = HrtfType{kStandard + below(2)};
        Write(std::string(name) + ".hki.config",
              *hrtf == HrtfType::Personalized ? "personalized.hki" : "speaker.hki\n");
      }
      effect.Init();
    }
    const bool off = actual == UpmixMode::Off;
    const std::string expected =
        std::string(off ? "P" : "-") + (actual == UpmixMode::Music ? "M" : "-") +
        (actual == UpmixMode::Cinema ? "C" : "-") + (equalizer ? "E" : "-") + (off ? "-" : "L");
    ASSERT_EQ(effect.Stages(), expected) << "seed " << seed << ", step " << step << ": " << what;
  }
}

}  // namespace
}  // namespace kelda
