// A standby of the host sounds like an instance that got the host's commands in their order,
// whatever it did before, for every order of three commands.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>

#include "changeover/instance.h"
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
  // Before the orders that begin with `first`, if there are any: an application whose mode changes
  // with the list.
  void TryOrders(const Setting& first) {
    fake::Reset();
    const auto standby = Instance::Make(test::Library(), 0);
    ASSERT_NE(standby, nullptr);
    for (const Setting& second : kSettings) {
      for (const Setting& third : kSettings) {
        Write("tunedapp_list", "com.off,OFF\n");
        test::Effect effect;
        Outcome outcome;
        effect.Enable();
        Write("tunedapp_list", "com.off,CINEMA\n");
        for (const Setting& setting : {first, second, third}) {
          Send(setting, &effect);
          outcome.Follow(setting);
        }
        standby->Set(outcome.sound());  // what it returns is for the signal library that ships
        const std::string order = std::to_string(&second - kSettings) + ", " +
                                  std::to_string(&third - kSettings) + ": " +
                                  NameOf(outcome.sound()).text;
        ASSERT_EQ(Running(standby->report()), Running(effect.Dump())) << order;
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
        ASSERT_TRUE(std::equal(heard.begin(), heard.end(), direct.begin())) << order;
        fake::TakeCalls();
      }
    }
  }
};

TEST_F(ChangeoverTest, AStandbyAgreesWithAnInstanceThatGotTheCommandsInTheirOrder) {
  WriteTuning("personalized.hki");
  Write("bluetooth.hki.config", "standard.hki\n");
  for (const Setting& first : kSettings) {
    SCOPED_TRACE("after " + std::to_string(&first - kSettings));
    ASSERT_NO_FATAL_FAILURE(TryOrders(first));
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
