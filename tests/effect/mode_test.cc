// Which stages run, and which tuning files are loaded in which order, for every way
// that mode, application, device and HRTF come to be set.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstring>
#include <filesystem>

#include "engine/plan.h"
#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"
#include "tests/laboratory/effect_client.h"

namespace kelda {
namespace {

using test::Effect;
using test::kAppPackage;
using test::kBluetoothHrtf;
using test::kWiredHrtf;
using test::Lines;

constexpr uint32_t kSpeaker = AUDIO_DEVICE_OUT_SPEAKER;
constexpr uint32_t kWired = AUDIO_DEVICE_OUT_WIRED_HEADPHONE;
constexpr uint32_t kBluetooth = AUDIO_DEVICE_OUT_BLUETOOTH_A2DP;
enum Mode : uint32_t { kMusic = 1, kCinema, kAuto };
enum Hrtf : uint32_t { kStandard = 1, kPersonalized = 2 };

class ModeTest : public test::DataDirTest {
 protected:
  ModeTest() { WriteTuning(); }
};

// Every call that sets up, empties, processes and ends, of every component.
TEST_F(ModeTest, CallsInTheLifeOfAnInstance) {
  setenv("KELDA_DATA_DIR", (dir() + "//").c_str(), 1);  // the library gets no '/' at the end
  mallopt(M_PERTURB, 0x5A);                             // memory comes with something in it
  std::optional<Effect> effect(std::in_place);
  mallopt(M_PERTURB, 0);
  effect->SetParam(kWiredHrtf, kPersonalized);
  effect->SetMode(kMusic);
  effect->Enable();
  TakeCalls();
  const auto process = [&](int blocks) {
    std::vector<float> out;
    for (int i = 0; i < blocks; ++i) {
      effect->Process(test::Ramp(1024), &out);
    }
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
  effect->SetParam(kWiredHrtf, kStandard);
  EXPECT_EQ(TakeCalls(), Lines{});
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
    for (const auto& [stage, on] : plan.mode_change->switches) {
      add(stage, on);
    }
    if (plan.mode_change->fade) {
      text += "fade ";
    }
    if (plan.mode_change->level) {
      send(*plan.mode_change->level);
    }
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

// What an application is told to play is kept in every mode; a list counts once it is read
// again, and from the next application on.
TEST_F(ModeTest, ApplicationsDecideInAuto) {
  Write("tunedapp_list", "com.film,CINEMA\ncom.song,MUSIC\ncom.game,OFF\n");
  Effect effect;
  effect.SetDevice(kWired);
  effect.SetMode(kMusic);
  effect.SetText(kAppPackage, "com.game&1");
  EXPECT_EQ(effect.Stages(), "-M--L");
  effect.SetMode(kAuto);
  EXPECT_EQ(effect.Stages(), "P----");
  const auto expect_stages = [&](const char* package, const char* stages) {
    effect.SetText(kAppPackage, package);
    EXPECT_EQ(effect.Stages(), stages) << package;
  };
  const std::pair<const char*, const char*> kApps[] = {
      {"com.film&0", "--C-L"},  {"com.song&1", "-M--L"},   {"com.game&1", "P----"},
      {"com.other&1", "--C-L"}, {"com.other&", "-M--L"},   {"com.other&11", "--C-L"},
      {"com.other&0", "-M--L"}, {"&1", "--C-L"},           {"com.other&01", "-M--L"},
      {"com.film&1", "--C-L"},  {"com.other&&1", "-M--L"}, {"com.game&0", "P----"}};
  for (const auto& [package, stages] : kApps) {
    expect_stages(package, stages);
  }
  Write("tunedapp_list", "com.game,CINEMA");
  expect_stages("com.game&0", "P----");
  effect.SetText(test::kReloadTunedAppList, "");
  EXPECT_EQ(effect.Stages(), "P----");
  expect_stages("com.game&0", "--C-L");
  expect_stages("com.film&0", "-M--L");
  Write("wired.hki.config", "speaker.hki\n");
  effect.Init();
  effect.SetDevice(kWired);
  effect.SetMode(kAuto);
  EXPECT_EQ(effect.Stages(), "-M--L");
}

}  // namespace
}  // namespace kelda
