// The command protocol: what each command checks, answers, leaves alone and counts.
#include <cutils/properties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <sstream>

#include "tests/effect/test_support.h"
#include "tests/laboratory/effect_client.h"

namespace kelda {
namespace {

using test::Bytes;
using test::Effect;
using test::Lines;
using test::Param;
using test::Reply;
using test::Request;

const std::string kError = "E/KelUpm: ERROR: ", kWarning = "W/KelUpm: ";

class CommandTest : public test::DataDirTest {
 protected:
  CommandTest() {
    WriteTuning();
    effect_.emplace();
    test::TakeLog();
  }
  Effect& effect() { return *effect_; }

 private:
  std::optional<Effect> effect_;
};

std::string Counters(int enable, int disable, int set_config) {
  return "Upmix:\n    enableCount: " + std::to_string(enable) +
         "\n    disableCount: " + std::to_string(disable) +
         "\n    setconfigCoun: " + std::to_string(set_config) + "\n";
}

// Numbers, hexadecimal, with a name each.
std::map<uint32_t, std::string> Names(const std::string& text) {
  std::istringstream words(text);
  std::map<uint32_t, std::string> names;
  uint32_t number = 0;
  while (words >> std::hex >> number) {
    words >> names[number];
  }
  return names;
}

TEST_F(CommandTest, RefusesMalformedCommandsAndChangesNothing) {
  const std::string init = "init with Invalid param", enable = "enable with invalid param",
                    disable = "disable with invalid param", set = "set with invalid param",
                    get = "EFFECT_CMD_GET_PARAM: Invalid param",
                    device = "EFFECT_CMD_SET_DEVICE: Invalid param",
                    get_config = "EFFECT_CMD_GET_CONFIG: Invalid param";
  const std::string config(sizeof(effect_config_t), '\0'), mode = Param(0, Bytes(1));
  std::vector<std::pair<Request, std::string>> bad = {
      {{.code = EFFECT_CMD_SET_CONFIG, .data = config.substr(1)}, ""},
      {{.code = EFFECT_CMD_SET_CONFIG, .data = config + "x"}, ""},
      {{.code = EFFECT_CMD_SET_CONFIG, .data = config, .null_data = true}, ""},
      {{.code = EFFECT_CMD_SET_PARAM, .data = mode, .null_data = true}, set},
      {{.code = EFFECT_CMD_GET_PARAM, .data = mode.substr(0, 15), .reply_size = 20}, get},
      {{.code = EFFECT_CMD_GET_PARAM, .data = mode, .null_data = true, .reply_size = 20}, get},
      {{.code = EFFECT_CMD_SET_DEVICE, .data = mode, .reply_room = 16}, device},
      {{.code = EFFECT_CMD_SET_DEVICE, .data = "abc"}, device},
      {{.code = EFFECT_CMD_SET_DEVICE, .data = Bytes(4), .null_data = true}, device}};
  // Too short; a wrong psize; a vsize that reaches beyond the payload.
  for (const std::string& data :
       {mode.substr(0, 15), std::string(), Param(0, Bytes(1), 4, 3), Param(0, Bytes(1), 4, 8),
        Param(0, "abc", 4), Param(10, "", 1), Param(10, "a&1", 0xFFFFFFFF)}) {
    bad.push_back({{.code = EFFECT_CMD_SET_PARAM, .data = data}, set});
  }
  for (const uint32_t code : {22u, 0xFFFFu, 0x10001u, 0xFFFFFFFFu}) {
    bad.push_back({{.code = code}, "Unknown command is specified: " + std::to_string(code)});
  }
  // The reply that each command wants, in every wrong way.
  const std::pair<Request, std::string> kWantReply[] = {
      {{.code = EFFECT_CMD_INIT}, init},
      {{.code = EFFECT_CMD_ENABLE}, enable},
      {{.code = EFFECT_CMD_DISABLE}, disable},
      {{.code = EFFECT_CMD_SET_CONFIG, .data = config}, set},
      {{.code = EFFECT_CMD_SET_PARAM, .data = mode}, set},
      {{.code = EFFECT_CMD_GET_PARAM, .data = mode, .reply_size = 20}, get},
      {{.code = EFFECT_CMD_SET_DEVICE, .data = Bytes(4)}, device},
      {{.code = EFFECT_CMD_GET_CONFIG, .reply_size = sizeof(effect_config_t)}, get_config}};
  for (const auto& [request, text] : kWantReply) {
    bad.insert(bad.end(), 4, {request, text});
    bad.end()[-4].first.null_reply = true;
    bad.end()[-3].first.null_reply_size = true;
    --bad.end()[-2].first.reply_size;
    ++bad.end()[-1].first.reply_size;
    if (request.code == EFFECT_CMD_GET_PARAM) {
      bad.pop_back();  // which takes larger ones
    }
  }

  for (const bool enabled : {false, true}) {
    if (enabled) {
      effect().Enable();
    }
    const std::string before = effect().Dump();
    for (std::size_t row = 0; row < bad.size(); ++row) {
      const auto& [request, text] = bad[row];
      for (const std::size_t offset : {0, 1}) {
        SCOPED_TRACE(testing::Message() << "row " << row << ", code " << request.code);
        const Reply reply = effect().Command(request, offset);
        EXPECT_EQ(reply.result, -22);
        EXPECT_TRUE(reply.untouched());
        EXPECT_EQ(reply.size, request.reply_size);
        EXPECT_EQ(test::TakeLog(), text.empty() ? Lines{} : Lines{kError + text});
        EXPECT_EQ(effect().Dump(), before);
      }
    }
    std::vector<float> out;
    EXPECT_EQ(effect().Process(test::Ramp(8), &out), enabled ? 0 : -61);
  }
  const auto command = (*effect().handle())->command;
  EXPECT_EQ(command(nullptr, EFFECT_CMD_RESET, 0, nullptr, nullptr, nullptr), -22);
  EXPECT_EQ(test::TakeLog(), Lines{kError + "command called with NULL pointer"});
}

TEST_F(CommandTest, IgnoresWhatItDoesNotSupportWithAWarning) {
  const std::string unsupported = kWarning + "Unsupported command: ";
  for (const auto& [code, name] :
       Names("6 SET_PARAM_DEFERRED 7 SET_PARAM_COMMIT a SET_VOLUME b SET_AUDIO_MODE "
             "c SET_CONFIG_REVERSE d SET_INPUT_DEVICE f GET_CONFIG_REVERSE "
             "10 GET_FEATURE_SUPPORTED_CONFIGS 11 GET_FEATURE_CONFIG 12 SET_FEATURE_CONFIG "
             "13 SET_AUDIO_SOURCE 14 OFFLOAD 10000 FIRST_PROPRIETARY")) {
    const Request nothing = {
        .code = code, .null_data = true, .null_reply = true, .null_reply_size = true};
    EXPECT_TRUE(effect().Command({.code = code}).untouched());
    EXPECT_EQ(effect().Command(nothing).result, 0);
    EXPECT_EQ(test::TakeLog(), Lines(2, (unsupported + "EFFECT_CMD_").append(name)));
  }
}

TEST_F(CommandTest, StatesAndCounters) {
  std::vector<float> out;
  const auto enabled = [&] { return effect().Process(test::Ramp(8), &out) == 0; };
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_DISABLE}).result, -38);
  effect().Enable();
  EXPECT_TRUE(enabled());
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_ENABLE}).result, -38);
  EXPECT_EQ(test::TakeLog(), (Lines{kError + "disable errors due to invalid state (=1)",
                                    kError + "ebable at uninitialized state"}));
  EXPECT_EQ(effect().Dump().find(Counters(1, 0, 0)), 0u);
  effect().Disable();
  EXPECT_FALSE(enabled());
  effect().Enable();
  effect().SetMode(1);
  // Also from the enabled state. The payload is ignored.
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_INIT, .cmd_size = 77, .null_data = true}).status(),
            0);
  EXPECT_EQ(effect().Mode(), 0u);
  EXPECT_FALSE(enabled());
  effect().Enable();
  effect().Disable();
  effect().SetConfig(test::StereoConfig());
  effect().SetConfig(effect_config_t{});  // refused, and counted
  EXPECT_EQ(effect().Dump().find(Counters(3, 2, 2)), 0u) << effect().Dump();
}

TEST_F(CommandTest, DumpText) {
  effect().SetMode(1);
  effect().SetParam(2, 2);
  effect().SetDevice(AUDIO_DEVICE_OUT_BLUETOOTH_A2DP);
  effect().Enable();
  std::vector<float> out;
  for (const unsigned frames : {1024u, 480u, 2600u, 200u}) {
    effect().Process(test::Ramp(frames), &out);
  }
  effect().Reset();
  EXPECT_EQ(effect().Dump(),
            Counters(1, 0, 0) +
                "  - AudioProcessSequencer:\n"
                "    input  : 4304\n"
                "    process: 4096\n"
                "    output : 3824\n"
                "    discard: 272\n"
                "    processors:\n"
                "      [ ] pass: \n"
                "      [*] upmm: hki=bluetooth.hki.config:standard.hki, bin=upmix.music.hpp.bin\n"
                "      [ ] upmc: hki=bluetooth.hki.config:standard.hki, bin=upmix.cinema.hpp.bin\n"
                "      [*] hpeq: ba=bluetooth.ba.config:bluetooth.ba\n"
                "      [*] upl : bin=upl.music.bin\n");
  test::TakeLog();
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_DUMP, .null_data = true}).result, 0);
  const int file = open(Path("dump").c_str(), O_WRONLY | O_CREAT, 0600);
  const Request short_dump = {
      .code = EFFECT_CMD_DUMP, .data = Bytes(static_cast<uint32_t>(file)), .cmd_size = 3};
  EXPECT_EQ(effect().Command(short_dump).result, 0);
  EXPECT_EQ(Read("dump"), "");
  close(file);
  const Reply closed = effect().Command({.code = EFFECT_CMD_DUMP, .data = Bytes(0xFFFFFFFF)}, 1);
  EXPECT_EQ(closed.result, 0);
  EXPECT_TRUE(closed.untouched());
  EXPECT_EQ(test::TakeLog(), Lines{});
}

TEST_F(CommandTest, ConfigurationIsCheckedAndKept) {
  const auto stored = [&](std::size_t offset) {
    const Request get = {.code = EFFECT_CMD_GET_CONFIG, .reply_size = sizeof(effect_config_t)};
    return effect().Command(get, offset).bytes;
  };
  EXPECT_EQ(stored(0), std::string(sizeof(effect_config_t), '\0'));
  effect_config_t config = test::StereoConfig();
  config.inputCfg.samplingRate = config.outputCfg.samplingRate = 0;  // any, if both agree
  config.inputCfg.mask = 0x1234;
  config.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_ACCUMULATE;
  config.inputCfg.buffer.frameCount = 77;
  const std::string payload(reinterpret_cast<char*>(&config), sizeof(config));
  for (const std::size_t offset : {0, 1, 3}) {
    const Reply reply = effect().Command({.code = EFFECT_CMD_SET_CONFIG, .data = payload}, offset);
    EXPECT_EQ(reply.status(), 0);
    EXPECT_EQ(stored(offset), payload);
  }
  using Change = void (*)(effect_config_t*);
  const Change kRefused[] = {
      [](effect_config_t* c) { c->inputCfg.samplingRate = 44100; },
      [](effect_config_t* c) { c->outputCfg.channels = 0xC; },
      [](effect_config_t* c) { c->inputCfg.format = 1; },
      [](effect_config_t* c) { c->outputCfg.format = 1; },
      [](effect_config_t* c) { c->inputCfg.format = c->outputCfg.format = 4; },
  };
  for (const Change change : kRefused) {
    effect_config_t refused = test::StereoConfig();
    change(&refused);
    EXPECT_EQ(effect().SetConfig(refused), -22);
    EXPECT_EQ(test::TakeLog(), Lines{kError + "Invalid config for upm"});
  }
  EXPECT_EQ(stored(0), payload);  // the last accepted one
}

TEST_F(CommandTest, ChannelMasks) {
  const auto set = [&](uint32_t mask) {
    effect_config_t config = test::StereoConfig();
    config.inputCfg.channels = config.outputCfg.channels = mask;
    return effect().SetConfig(config);
  };
  for (const uint32_t mask : {0x3u, 0x5u, 0x800001u}) {
    EXPECT_EQ(set(mask), 0) << mask;
  }
  EXPECT_EQ(test::TakeLog(), Lines{});
  // All others are refused; the last ones have no names.
  for (const auto& [mask, name] :
       Names("0 NONE 1 OUT_MONO 7 OUT_TRI b OUT_2POINT1 f OUT_3POINT1 33 OUT_QUAD 37 OUT_PENTA "
             "3f OUT_5POINT1 103 OUT_TRI_BACK 107 OUT_SURROUND 13f OUT_6POINT1 603 OUT_QUAD_SIDE "
             "60f OUT_5POINT1_SIDE 63f OUT_7POINT1 2d03f OUT_5POINT1POINT4 "
             "2d63f OUT_7POINT1POINT4 c0003 OUT_2POINT0POINT2 c0007 OUT_3POINT0POINT2 "
             "c000b OUT_2POINT1POINT2 c000f OUT_3POINT1POINT2 c003f OUT_5POINT1POINT2 "
             "c063f OUT_7POINT1POINT2 72f607 OUT_13POINT_KELDA ffffff OUT_22POINT2 "
             "302d63f OUT_9POINT1POINT4 30ed63f OUT_9POINT1POINT6 20000001 OUT_MONO_HAPTIC_A "
             "20000003 OUT_STEREO_HAPTIC_A 30000000 OUT_HAPTIC_AB 30000001 OUT_MONO_HAPTIC_AB "
             "30000003 OUT_STEREO_HAPTIC_AB "
             "4 - c0004 - ffffffff - 80000003 - 1000001 - 3000000 - 20000000 - 20000002 -")) {
    EXPECT_EQ(set(mask), -22) << std::hex << mask;
    Lines log = {kError +
                 "Unsupported input channels: " + (name == "-" ? "" : "AUDIO_CHANNEL_" + name)};
    if (const uint32_t top = mask & 0xFF000000; top != 0) {
      log.insert(log.begin(), kError + "Unsupported channels in " + std::to_string(top));
    }
    EXPECT_EQ(test::TakeLog(), log) << std::hex << mask;
  }
}

TEST_F(CommandTest, SetParam) {
  const std::string unknown = "Unknown param is specified: ", mode = "Invalid upm mode: ",
                    hrtf = "Invalid HRTF type: ", package = "Invalid package format (No \"&\": ";
  const struct {
    uint32_t id;
    std::string value;
    int32_t status;
    std::string log;
  } kRows[] = {
      {0, Bytes(3), 0, ""},
      {0, Bytes(4), 0, kWarning + mode + "4 is specified"},
      {0, Bytes(0xFFFFFFFF), 0, kWarning + mode + "4294967295 is specified"},
      {0, "ab", -22, kError + "Invalid param size 2"},
      {0, "", -22, kError + "Invalid param size 0"},
      {0, Bytes(1) + "x", -22, kError + "Invalid param size 5"},
      {1, "abc", -22, kError + "hrtf param size is Invalid: 3"},
      {2, Bytes(1) + Bytes(1), -22, kError + "hrtf param size is Invalid: 8"},
      {1, Bytes(0), 0, kWarning + hrtf + "0"},
      {2, Bytes(3), 0, kWarning + hrtf + "3"},
      {1, Bytes(2), 0, ""},
      {2, Bytes(1), 0, ""},
      {3, "anything", 0, ""},
      {10, "", 0, kWarning + package},
      {10, std::string("com\0x", 5), 0, kWarning + package + "com"},
      {10, "&", 0, ""},
      {10, "com.example.video&1", 0, ""},
      {4, Bytes(1), 0, kWarning + unknown + "4"},
      {0xFFFFFFFF, "", 0, kWarning + unknown + "-1"},
  };
  for (const auto& row : kRows) {
    const Reply reply =
        effect().Command({.code = EFFECT_CMD_SET_PARAM, .data = Param(row.id, row.value)}, 1);
    EXPECT_EQ(reply.result, 0) << row.id << ' ' << row.value;
    EXPECT_EQ(reply.status(), row.status) << row.id << ' ' << row.value;
    EXPECT_EQ(test::TakeLog(), row.log.empty() ? Lines{} : Lines{row.log}) << row.id;
    EXPECT_EQ(effect().Mode(), 3u);  // the first row's
  }
  effect().Command({.code = EFFECT_CMD_SET_PARAM, .data = Param(0, Bytes(1) + "behind it", 4)});
  EXPECT_EQ(effect().Mode(), 1u);
}

TEST_F(CommandTest, GetParamAnswersWithTheCommandsHead) {
  effect().SetMode(2);
  for (const std::size_t offset : {0, 1, 2}) {
    // psize is ignored, and copied with the rest.
    Reply reply = effect().Command(
        {.code = EFFECT_CMD_GET_PARAM, .data = Param(0, "ignored", 99, 12), .reply_size = 24},
        offset);
    EXPECT_EQ(reply.result, 0);
    EXPECT_EQ(reply.size, 20u);
    EXPECT_EQ(reply.bytes,
              Bytes(0) + Bytes(12) + Bytes(4) + Bytes(0) + Bytes(2) + "\xAA\xAA\xAA\xAA");
    for (const uint32_t id : {1u, 0x80000000u}) {
      reply = effect().Command(
          {.code = EFFECT_CMD_GET_PARAM, .data = Param(id, ""), .reply_size = 20}, offset);
      EXPECT_EQ(reply.result, 0);
      EXPECT_EQ(reply.size, 16u);
      EXPECT_EQ(reply.bytes, Bytes(0) + Bytes(4) + Bytes(0) + Bytes(id) + "\xAA\xAA\xAA\xAA");
    }
    const std::string unknown = kWarning + "Unknown param is specified: ";
    EXPECT_EQ(test::TakeLog(), (Lines{unknown + "1", unknown + "-2147483648"}));
  }
}

TEST_F(CommandTest, DeviceWords) {
  effect().SetMode(1);
  const std::pair<std::string, std::vector<uint32_t>> kDevices[] = {
      {"wired", {0x1, 0x4, 0x8, 0x800, 0x1000, 0x4000000, 0x2000, 0x4000, 0x20000}},
      {"bluetooth", {0x10, 0x20, 0x80, 0x100, 0x20000000, 0x20000002}},
      // Speaker, SCO car kit, A2DP speaker, HDMI, BLE speaker, two at once, an input's bit.
      {"", {0x0, 0x2, 0x40, 0x200, 0x400, 0x20000001, 0x84, 0xC, 0x80000004, 0xFFFFFFFF}}};
  for (const auto& [name, words] : kDevices) {
    for (const uint32_t word : words) {
      effect().SetDevice(name.empty() ? AUDIO_DEVICE_OUT_LINE : AUDIO_DEVICE_OUT_SPEAKER);
      const std::string tail = "0123456789ab";  // 16 bytes are copied to the reply
      const Reply reply = effect().Command(test::DeviceRequest(word, tail), 1);
      EXPECT_EQ(reply.result, 0);
      EXPECT_EQ(reply.bytes, Bytes(0) + tail);
      EXPECT_EQ(effect().Stages(), name.empty() ? "P----" : "-M--L") << std::hex << word;
      EXPECT_NE(effect().Dump().find("upmm: hki=" + name), std::string::npos) << std::hex << word;
    }
  }
}

// ---- Captures: started and stopped by enable and disable on debuggable builds.

TEST_F(CommandTest, CapturesOnlyWhereBothPropertiesSaySo) {
  for (const auto& [debuggable, request, files] : {std::tuple{"0", "5", 0u},
                                                   {"", "5", 0u},
                                                   {"1", "0", 0u},
                                                   {"1", "-3", 0u},
                                                   {"-1", "1", 1u}}) {
    property_set("ro.debuggable", debuggable);
    property_set("vendor.kelda.pcmdump", request);
    const std::size_t before = Files().size();
    effect().Enable();
    effect().Disable();
    EXPECT_EQ(Files().size(), before + files) << debuggable << ' ' << request;
  }
}

// A refused command also starts or stops a capture. A capture that begins in the same
// second as another has the same name, and is appended to that file.
TEST_F(CommandTest, CapturesWhatTheHostGotForASecond) {
  const auto capture = [&] {
    std::string newest;
    for (const std::string& name : Files()) {
      newest = name.starts_with("pcmdump_") ? name : newest;
    }
    return newest;
  };
  property_set("ro.debuggable", "1");
  property_set("vendor.kelda.pcmdump", "1");
  effect().Enable();
  std::string heard, first;
  std::vector<float> out;
  for (const unsigned frames : {480u, 1024u, 3840u, 960u, 480u}) {
    effect().Process(test::Ramp(frames), &out, true);
    heard.append(reinterpret_cast<char*>(out.data()), out.size() * sizeof(float));
  }
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(effect().Command({.code = EFFECT_CMD_DISABLE, .reply_size = 5}).result, -22);
  }
  effect().Process(test::Ramp(480), &out);
  first = capture();
  EXPECT_TRUE(Read(first) == heard);

  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_ENABLE}).result, -38);
  if (capture() != first) {
    heard.clear();
  }
  for (int frames = 3000; frames <= 17 * 3000; frames += 3000) {
    effect().Process(test::Ramp(3000), &out);
    if (frames > 48000) {
      break;  // whole blocks within one second
    }
    heard.append(reinterpret_cast<char*>(out.data()), out.size() * sizeof(float));
  }
  EXPECT_EQ(test::TakeLog().back(), "E/KelApsPcmd: Excess Dump Limit");
  property_set("vendor.kelda.pcmdump", "0");
  effect().Disable();  // no request: the capture goes on, and ends with the engine
  effect().Init();
  EXPECT_TRUE(Read(capture()) == heard);
}

}  // namespace
}  // namespace kelda
