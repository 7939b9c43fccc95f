// Which stages run, and which tuning files are loaded in which order, for every way
// that mode, application, device and HRTF come to be set.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <map>
#include <random>

#include "tests/effect/effect_client.h"
#include "tests/effect/fake_upmix_lib.h"

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

TEST_F(ModeTest, AnyOrderOfSettingsAgreesWithTheRules) {
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
  Effect effect;
  for (int step = 0; step < 3000; ++step) {
    std::string what;
    const uint32_t choice = step == 0 ? 99 : below(100);
    if (choice < 30) {
      const uint32_t mode = below(4);
      what = "mode " + std::to_string(mode);
      effect.SetMode(mode);
      if (mode != requested) {
        requested = mode;
        run(requested == kAuto ? app : requested);
      }
    } else if (choice < 55) {
      device = std::array{kSpeaker, kWired, kBluetooth}[below(3)];
      what = "device " + std::to_string(device);
      effect.SetDevice(device);
      run(requested == kAuto ? app : requested);
      if (device != kSpeaker) equalizer = personalized();
    } else if (choice < 75) {
      const auto& [setting, package, unlisted_mode] = kApps[below(std::size(kApps))];
      what = std::string("app ") + setting;
      effect.SetText(kAppPackage, setting);
      app = listed.contains(package) ? listed[package] : unlisted_mode;
      if (requested == kAuto) run(app);
    } else if (choice < 90) {
      const uint32_t of = below(2) == 0 ? kWired : kBluetooth;
      hrtf[of] = kStandard + below(2);
      what = "hrtf " + std::to_string(hrtf[of]) + " of " + std::to_string(of);
      effect.SetParam(of == kWired ? kWiredHrtf : kBluetoothHrtf, hrtf[of]);
      if (device == of) equalizer = personalized();
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
      requested = actual = kOff;
      app = kMusic;
      device = kSpeaker;
      equalizer = false;
      listed = in_file;
      for (const auto& [of, name] : {std::pair{kWired, "wired"}, {kBluetooth, "bluetooth"}}) {
        hrtf[of] = kStandard + below(2);
        Write(std::string(name) + ".hki.config",
              hrtf[of] == kPersonalized ? "personalized.hki" : "speaker.hki\n");
      }
      effect.Init();
    }
    const std::string expected = std::string(actual == kOff ? "P" : "-") +
                                 (actual == kMusic ? "M" : "-") + (actual == kCinema ? "C" : "-") +
                                 (equalizer ? "E" : "-") + (actual != kOff ? "L" : "-");
    ASSERT_EQ(effect.Stages(), expected) << "seed " << seed << ", step " << step << ": " << what;
  }
}

}  // namespace
}  // namespace kelda
