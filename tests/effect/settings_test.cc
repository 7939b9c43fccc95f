// What the configuration, parameter and device commands accept, refuse and ignore.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/effect/effect_client.h"

namespace kelda {
namespace {

using test::Bytes;
using test::Effect;
using test::Lines;
using test::Param;

class SettingsTest : public test::DataDirTest {
 protected:
  SettingsTest() {
    WriteTuning();
    effect_.emplace();
    test::TakeLog();
  }
  Effect& effect() { return *effect_; }
  uint32_t Mode() {
    return effect()
        .Command({.code = EFFECT_CMD_GET_PARAM, .data = Param(0, ""), .reply_size = 20})
        .Word(16);
  }
  // The status reply of a parameter, whose command is accepted.
  int32_t SetParam(uint32_t id, const std::string& value, std::optional<uint32_t> vsize = {}) {
    const auto reply =
        effect().Command({.code = EFFECT_CMD_SET_PARAM, .data = Param(id, value, vsize)}, 1);
    EXPECT_EQ(reply.result, 0);
    return reply.status();
  }

 private:
  std::optional<Effect> effect_;
};

TEST_F(SettingsTest, ConfigurationsThatDiffer) {
  using Change = void (*)(effect_config_t*);
  const Change kRefused[] = {
      [](effect_config_t* c) { c->inputCfg.samplingRate = 44100; },
      [](effect_config_t* c) { c->outputCfg.channels = 0xC; },
      [](effect_config_t* c) { c->inputCfg.format = 1; },
      [](effect_config_t* c) { c->outputCfg.format = 1; },
      [](effect_config_t* c) { c->inputCfg.format = c->outputCfg.format = 4; },
  };
  for (const Change change : kRefused) {
    effect_config_t config = test::StereoConfig();
    change(&config);
    EXPECT_EQ(effect().SetConfig(config), -22);
    EXPECT_EQ(test::TakeLog(), Lines{"E/KelUpm: ERROR: Invalid config for upm"});
  }
  const Change kAccepted[] = {
      [](effect_config_t* c) { c->inputCfg.samplingRate = c->outputCfg.samplingRate = 0; },
      [](effect_config_t* c) { c->inputCfg.accessMode = 7; },
      [](effect_config_t* c) { c->outputCfg.mask = 0; },
  };
  for (const Change change : kAccepted) {
    effect_config_t config = test::StereoConfig();
    change(&config);
    EXPECT_EQ(effect().SetConfig(config), 0);
  }
  EXPECT_EQ(test::TakeLog(), Lines{});
}

TEST_F(SettingsTest, ChannelMasks) {
  const std::string unsupported = "E/KelUpm: ERROR: Unsupported input channels: ";
  const auto top = [](const char* bits) {
    return std::string("E/KelUpm: ERROR: Unsupported channels in ") + bits;
  };
  const std::pair<uint32_t, Lines> kMasks[] = {
      {0x3, {}},
      {0x5, {}},
      {0x800001, {}},
      {0x0, {unsupported + "AUDIO_CHANNEL_NONE"}},
      {0x1, {unsupported + "AUDIO_CHANNEL_OUT_MONO"}},
      {0x7, {unsupported + "AUDIO_CHANNEL_OUT_TRI"}},
      {0x4, {unsupported}},
      {0xFFFFFF, {unsupported + "AUDIO_CHANNEL_OUT_22POINT2"}},
      {0x80000003, {top("2147483648"), unsupported}},
      {0x1000001, {top("16777216"), unsupported}},
      {0x3000000, {top("50331648"), unsupported}},
      {0x30000000, {top("805306368"), unsupported + "AUDIO_CHANNEL_OUT_HAPTIC_AB"}},
      {0x20000003, {top("536870912"), unsupported + "AUDIO_CHANNEL_OUT_STEREO_HAPTIC_A"}},
  };
  for (const auto& [mask, log] : kMasks) {
    effect_config_t config = test::StereoConfig();
    config.inputCfg.channels = config.outputCfg.channels = mask;
    EXPECT_EQ(effect().SetConfig(config), log.empty() ? 0 : -22) << std::hex << mask;
    EXPECT_EQ(test::TakeLog(), log) << std::hex << mask;
  }
}

TEST_F(SettingsTest, Parameters) {
  const std::string unknown = "W/KelUpm: Unknown param is specified: ";
  const std::string package = "W/KelUpm: Invalid package format (No \"&\": ";
  const struct {
    uint32_t id;
    std::string value;
    int32_t status;
    Lines log;
  } kRows[] = {
      {0, Bytes(3), 0, {}},
      {0, Bytes(4), 0, {"W/KelUpm: Invalid upm mode: 4 is specified"}},
      {0, Bytes(0xFFFFFFFF), 0, {"W/KelUpm: Invalid upm mode: 4294967295 is specified"}},
      {0, "ab", -22, {"E/KelUpm: ERROR: Invalid param size 2"}},
      {0, "", -22, {"E/KelUpm: ERROR: Invalid param size 0"}},
      {0, Bytes(1) + "x", -22, {"E/KelUpm: ERROR: Invalid param size 5"}},
      {1, "abc", -22, {"E/KelUpm: ERROR: hrtf param size is Invalid: 3"}},
      {2, Bytes(1) + Bytes(1), -22, {"E/KelUpm: ERROR: hrtf param size is Invalid: 8"}},
      {1, Bytes(0), 0, {"W/KelUpm: Invalid HRTF type: 0"}},
      {2, Bytes(3), 0, {"W/KelUpm: Invalid HRTF type: 3"}},
      {1, Bytes(2), 0, {}},
      {2, Bytes(1), 0, {}},
      {3, "", 0, {}},
      {3, "anything", 0, {}},
      {10, "", 0, {package}},
      {10, "com.example", 0, {package + "com.example"}},
      {10, std::string("com\0x", 5), 0, {package + "com"}},
      {10, "&", 0, {}},
      {10, "com.example.video&1", 0, {}},
      {4, Bytes(1), 0, {unknown + "4"}},
      {9, "", 0, {unknown + "9"}},
      {11, "", 0, {unknown + "11"}},
      {0xFFFFFFFF, "", 0, {unknown + "-1"}},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(SetParam(row.id, row.value), row.status) << row.id << ' ' << row.value;
    EXPECT_EQ(test::TakeLog(), row.log) << row.id << ' ' << row.value;
    EXPECT_EQ(Mode(), 3u);  // the first row's
  }
  EXPECT_EQ(SetParam(0, Bytes(1) + "behind the value", 4), 0);
  EXPECT_EQ(Mode(), 1u);
}

TEST_F(SettingsTest, DeviceWords) {
  effect().SetMode(1);
  const uint32_t kWired[] = {0x1, 0x4, 0x8, 0x800, 0x1000, 0x4000000, 0x2000, 0x4000, 0x20000};
  const uint32_t kBluetooth[] = {0x10, 0x20, 0x80, 0x100, 0x20000000, 0x20000002};
  // Speaker, SCO car kit, A2DP speaker, HDMI, BLE speaker, two at once, an input's bit.
  const uint32_t kOther[] = {0x0,        0x2,        0x40,   0x200,   0x400,
                             0x20000001, 0x84,       0xC,    0x5,     0x80000004,
                             0xFFFFFFFF, 0x40000000, 0x8000, 0x40000, 0x2000000};
  const auto file = [&] {
    const std::string dump = effect().Dump();
    const size_t at = dump.find("upmm: hki=") + 10;
    return dump.substr(at, dump.find('.', at) - at);
  };
  for (const uint32_t other : kOther) {
    effect().SetDevice(kWired[other % 9]);
    EXPECT_EQ(effect().Stages(), "-M--L");
    effect().SetDevice(other);
    EXPECT_EQ(effect().Stages(), "P----") << std::hex << other;
  }
  for (const auto& [devices, name] :
       {std::pair{std::vector<uint32_t>(kWired, kWired + 9), "wired"},
        {std::vector<uint32_t>(kBluetooth, kBluetooth + 6), "bluetooth"}}) {
    for (const uint32_t device : devices) {
      effect().SetDevice(AUDIO_DEVICE_OUT_SPEAKER);
      effect().SetDevice(device);
      EXPECT_EQ(effect().Stages(), "-M--L") << std::hex << device;
      EXPECT_EQ(file(), name) << std::hex << device;
    }
  }
}

TEST_F(SettingsTest, DirectoriesInThePlaceOfFiles) {
  for (const std::string& name : Files()) {
    std::filesystem::remove(Path(name));
    std::filesystem::create_directory(Path(name));
  }
  std::filesystem::create_directory(Path("tunedapp_list"));
  effect().Init();
  effect().SetMode(3);
  effect().SetParam(1, 2);
  effect().SetDevice(AUDIO_DEVICE_OUT_WIRED_HEADSET);
  effect().SetText(10, "com.a&1");
  effect().SetText(3, "");
  EXPECT_EQ(effect().Stages(), "--CEL");
  effect().Enable();
  std::vector<float> out;
  EXPECT_EQ(effect().Process(test::Ramp(1024), &out), 0);
}

}  // namespace
}  // namespace kelda
