// A standby of the host sounds like an instance that got the host's commands in their order,
// whatever it did before.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>

#include "changeover/instance.h"
#include "changeover/session.h"
#include "changeover/worker.h"
#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"
#include "tests/laboratory/effect_client.h"
#include "tools/framework/effect_report.h"

namespace kelda {
namespace {

using changeover::Instance;
using changeover::Outcome;
using changeover::Setting;
using Kind = Setting::Kind;

// What the settings are as commands of the record.
void Send(const Setting& setting, test::Effect* effect) {
  switch (setting.kind) {
    case Kind::Mode:
      return effect->SetMode(setting.value);
    case Kind::Device:
      return effect->SetDevice(setting.value);
    case Kind::WiredHrtf:
      return effect->SetParam(test::kWiredHrtf, setting.value);
    case Kind::BluetoothHrtf:
      return effect->SetParam(test::kBluetoothHrtf, setting.value);
    case Kind::Application:
      return effect->SetText(test::kAppPackage,
                             setting.package + (setting.value != 0 ? "&1" : "&0"));
    default:
      return effect->SetText(test::kReloadTunedAppList, "x");
  }
}

std::vector<tools::Stage> Running(const std::string& dump) {
  std::vector<tools::Stage> running;
  for (const tools::Stage& stage : tools::ParseStages(dump)) {
    if (stage.runs) {
      running.push_back(stage);
    }
  }
  return running;
}

const Setting kSettings[] = {
    {Kind::Mode, 0},
    {Kind::Mode, 1},
    {Kind::Mode, 2},
    {Kind::Mode, 3},
    {Kind::Device, AUDIO_DEVICE_OUT_SPEAKER},
    {Kind::Device, AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
    {Kind::Device, AUDIO_DEVICE_OUT_BLUETOOTH_A2DP},
    {Kind::WiredHrtf, 1},
    {Kind::WiredHrtf, 2},
    {Kind::BluetoothHrtf, 1},
    {Kind::BluetoothHrtf, 2},
    {Kind::Application, 0, "com.off"},
    {Kind::Application, 1, "com.other"},
    {Kind::ReloadApplications},
};

class ChangeoverTest : public test::DataDirTest {
 protected:
  // Sets `standby` to what is heard after the commands `order`, and compares it with an instance
  // that got them. An application's mode changes with the list.
  void Try(const std::vector<Setting>& order, Instance* standby) {
    Write("tunedapp_list", "com.off,OFF\n");
    test::Effect effect;
    Outcome outcome;
    effect.Enable();
    Write("tunedapp_list", "com.off,CINEMA\n");
    for (const Setting& setting : order) {
      Send(setting, &effect);
      outcome.Follow(setting);
    }
    SCOPED_TRACE(NameOf(outcome.sound()).text);
    standby->Set(outcome.sound());  // what it returns is for the signal library that ships
    ASSERT_EQ(Running(standby->report()), Running(effect.Dump()));
    effect.Reset();
    std::vector<float> heard, direct;
    for (unsigned period = 0; period < 2; ++period) {
      const std::vector<float> in = test::Ramp(1024, 2, 1024 * period);
      std::vector<float> out;
      effect.Process(in, &out);
      direct.insert(direct.end(), out.begin(), out.end());
      standby->Process(in.data());
      heard.insert(heard.end(), standby->output(), standby->output() + in.size());
    }
    const bool delays = outcome.sound().mode == UpmixMode::Off;
    direct.insert(direct.begin(), delays ? 2 * changeover::kChainFrames : 0, 0.0f);
    ASSERT_TRUE(std::equal(heard.begin(), heard.end(), direct.begin()));
    fake::TakeCalls();
  }
};

// Every order of three commands, and long ones at random.
TEST_F(ChangeoverTest, AStandbyAgreesWithAnInstanceThatGotTheCommandsInTheirOrder) {
  WriteTuning("personalized.hki");
  Write("bluetooth.hki.config", "standard.hki\n");
  fake::Reset();
  const auto standby = Instance::Make(test::Library(), 0);
  ASSERT_NE(standby, nullptr);
  constexpr std::size_t kCount = std::size(kSettings);
  for (std::size_t order = 0; order < kCount * kCount * kCount; ++order) {
    const std::size_t first = order / kCount / kCount, second = order / kCount % kCount;
    SCOPED_TRACE(testing::Message() << first << ", " << second << ", " << order % kCount);
    ASSERT_NO_FATAL_FAILURE(
        Try({kSettings[first], kSettings[second], kSettings[order % kCount]}, standby.get()));
  }
  std::mt19937 random(1);
  for (int walk = 0; walk < 200; ++walk) {
    std::vector<Setting> order(12);
    std::generate(order.begin(), order.end(), [&] { return kSettings[random() % kCount]; });
    SCOPED_TRACE(testing::Message() << "walk " << walk);
    ASSERT_NO_FATAL_FAILURE(Try(order, standby.get()));
  }
}

// One call of the signal library fails, for every entry and every call that a day of changes makes
// of it. What is heard after each setting is the new sound, or the old one if the turn says so.
class ChangeoverFaultsTest : public ChangeoverTest {
 protected:
  // Of a constant: what each stage makes of it tells which of them run.
  static constexpr std::array<float, 2> kIn = {1, -3};
  static std::array<float, 2> HeardAs(const changeover::Sound& sound) {
    const float equalizer = sound.headphone == ParameterSet::WiredPersonalized ? 0.5f : 1.0f;
    const std::array<float, 2> out[] = {
        kIn, {0.25f * 50 * kIn[0], 0.25f * 28 * kIn[1]}, {0.25f * 4 * kIn[1], 0.25f * 2 * kIn[0]}};
    const auto [left, right] = out[static_cast<std::size_t>(sound.mode)];
    return {equalizer * left, equalizer * right};
  }

  // The last frame of a few periods, the last two of which went well.
  std::array<float, 2> Play(changeover::Session* session, const char* entry, int nth) {
    std::vector<float> block(2 * 1024);
    for (int left = 5; left > 0; --left) {
      for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] = kIn[i % 2];
      }
      const bool before = fake::Count(entry) < nth;
      session->Process(block.data(), block.data(), 1024);
      left = before && fake::Count(entry) >= nth ? std::max(left, 3) : left;
    }
    return {block[block.size() - 2], block[block.size() - 1]};
  }

  // Returns whether the call was made.
  bool Live(const char* entry, int nth) {
    using changeover::Turn;
    fake::Reset();
    fake::Fail(entry, -7, 42, nth);
    const auto worker =
        changeover::Worker::Make(test::Library(), changeover::Worker::Threads::None);
    const auto session = changeover::Session::Open(worker.get(), {});
    session->Start();
    const Setting kDay[] = {{Kind::Device, AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
                            {Kind::Mode, 1},
                            {Kind::WiredHrtf, 2},
                            {Kind::Mode, 2},
                            {Kind::ReloadTuning},
                            {Kind::Mode, 0},
                            {Kind::Mode, 1},
                            {Kind::WiredHrtf, 1}};
    // An instance that got no size when it was made never has that stage.
    const bool for_ever = std::string("A0511 A0333 A0557").find(entry) != std::string::npos;
    const bool level = std::string("A0508 A0122").find(entry) != std::string::npos;
    Outcome outcome;
    changeover::Sound plays;
    for (const Setting& setting : kDay) {
      const std::string what = std::string(entry) + " " + std::to_string(nth) +
                               " failing, setting " + std::to_string(&setting - kDay);
      const bool struck = fake::Count(entry) >= nth;
      outcome.Follow(setting);
      session->Set(setting);
      worker->Step();
      std::array<float, 2> heard = Play(session.get(), entry, nth);
      worker->Step();
      bool told = false;
      for (const Turn& turn : session->TakeTurns()) {
        plays = turn.outcome == Turn::End::Heard ? turn.sound : plays;
        told |= turn.outcome == Turn::End::NotLoaded;
      }
      EXPECT_TRUE(plays == outcome.sound() || (told && (!struck || for_ever))) << what;
      if (level && heard[0] == 4 * HeardAs(plays)[0]) {  // it failed in the last flush
        heard = HeardAs(plays);
      }
      EXPECT_EQ(heard, HeardAs(plays)) << what;
    }
    return fake::Count(entry) >= nth;
  }

  // The same call for an instance that is set anew right after it played. What an old period left
  // must not pass for a response: the louder frame in it comes where responses are.
  bool SetAnew(const char* entry, int nth) {
    constexpr std::size_t kLoudFrame = 700;
    fake::Reset();
    const auto instance = Instance::Make(test::Library(), 0);
    std::vector<float> period(2 * 1024);
    for (std::size_t i = 0; i < period.size(); ++i) {
      period[i] = (i / 2 == kLoudFrame ? 2.0f : 1.0f) * kIn[i % 2];
    }
    const auto play = [&] {
      for (int i = 0; i < 3; ++i) {
        instance->Process(period.data());
      }
      const float* const last = instance->output() + period.size();
      return std::array{last[-2], last[-1]};
    };
    changeover::Sound sound{UpmixMode::Music, ParameterSet::WiredStandard};
    EXPECT_TRUE(instance->Set(sound));
    play();
    nth += fake::Count(entry);
    fake::Fail(entry, -7, 42, nth);
    sound.mode = UpmixMode::Cinema;
    const bool set = instance->Set(sound);
    const bool struck = fake::Count(entry) >= nth;
    if (set && struck) {
      std::array<float, 2> heard = play();
      const bool unlevelled = std::string("A0508 A0122").find(entry) != std::string::npos;
      heard[0] = unlevelled && heard[0] == 4 * HeardAs(sound)[0] ? HeardAs(sound)[0] : heard[0];
      EXPECT_EQ(heard[0], HeardAs(sound)[0]) << entry << " " << nth;
    }
    return struck;
  }
};

TEST_F(ChangeoverFaultsTest, EveryCallOfEveryEntry) {
  WriteTuning("personalized.hki");
  Write("wired.hki.config", "standard.hki\n");
  for (const char* const entry :
       {"A0507", "A0243", "A0214", "A0237", "A0836", "A0562", "A0812", "A0216", "A0511", "A0559",
        "A0239", "A0779", "A0782", "A0556", "A0236", "A0560", "A0212", "A0810", "A0244", "A0333",
        "A0218", "A0238", "A0593", "A0213", "A0834", "A0557", "A0508", "A0122", "A0217"}) {
    int nth = 1;
    while (Live(entry, nth)) {
      nth += nth < 40 ? 1 : 37;  // after that they are blocks
    }
    EXPECT_GT(nth, 1) << entry << " is never called";
    for (nth = 1; nth < 40 && SetAnew(entry, nth); ++nth) {
    }
    fake::Reset();
  }
}

// Several outputs at once are no headphone, not even words that look like one together.
TEST_F(ChangeoverTest, OneOutputAloneIsAHeadphone) {
  const uint32_t ble = AUDIO_DEVICE_OUT_BLE_HEADSET, speaker = AUDIO_DEVICE_OUT_SPEAKER;
  using Words = std::vector<uint32_t>;
  EXPECT_EQ(changeover::DeviceWord(Words{}), changeover::kNoDevice);
  EXPECT_EQ(changeover::DeviceWord(Words{ble}), ble);
  EXPECT_EQ(changeover::DeviceWord(Words{ble, ble}), ble);
  EXPECT_EQ(changeover::DeviceWord(Words{ble, speaker}), changeover::kNoDevice);
}

}  // namespace
}  // namespace kelda
