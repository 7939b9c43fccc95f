// The command protocol: what each command checks, answers, leaves alone and counts.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/effect/effect_client.h"

namespace kelda {
namespace {

using test::Bytes;
using test::Effect;
using test::Lines;
using test::Param;
using test::Reply;
using test::Request;

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

const std::string kError = "E/KelUpm: ERROR: ";

TEST_F(CommandTest, RefusesMalformedCommandsAndChangesNothing) {
  std::string before;
  const auto refused = [&](const Request& request, const std::string& text) {
    for (const size_t offset : {0, 1}) {
      const Reply reply = effect().Command(request, offset);
      const std::string which = std::to_string(request.code) + " of " +
                                std::to_string(request.data.size()) + " bytes: " + text;
      EXPECT_EQ(reply.result, -22) << which;
      EXPECT_TRUE(reply.untouched()) << which;
      EXPECT_EQ(reply.size, request.reply_size) << which;
      EXPECT_EQ(test::TakeLog(), text.empty() ? Lines{} : Lines{kError + text}) << which;
      EXPECT_EQ(effect().Dump(), before) << which;
    }
  };
  // The reply that a command wants, in every wrong way.
  const auto refused_replies = [&](const Request& request, const std::string& text) {
    Request wrong = request;
    wrong.null_reply = true;
    refused(wrong, text);
    wrong = request;
    wrong.null_reply_size = true;
    refused(wrong, text);
    wrong = request;
    --wrong.reply_size;
    refused(wrong, text);
    wrong.reply_size += 2;
    if (request.code != EFFECT_CMD_GET_PARAM) refused(wrong, text);
  };
  const std::string config(sizeof(effect_config_t), '\0');
  const std::string mode = Param(0, Bytes(1));
  const std::string set = "set with invalid param";
  const std::string get = "EFFECT_CMD_GET_PARAM: Invalid param";
  const std::string device = "EFFECT_CMD_SET_DEVICE: Invalid param";
  for (const bool enabled : {false, true}) {
    if (enabled) effect().Enable();
    before = effect().Dump();
    refused_replies({.code = EFFECT_CMD_INIT}, "init with Invalid param");
    refused_replies({.code = EFFECT_CMD_SET_CONFIG, .data = config}, set);
    refused({.code = EFFECT_CMD_SET_CONFIG, .data = config.substr(1)}, "");
    refused({.code = EFFECT_CMD_SET_CONFIG, .data = config + "x"}, "");
    refused({.code = EFFECT_CMD_SET_CONFIG, .data = config, .null_data = true}, "");
    refused_replies({.code = EFFECT_CMD_ENABLE}, "enable with invalid param");
    refused_replies({.code = EFFECT_CMD_DISABLE}, "disable with invalid param");
    refused_replies({.code = EFFECT_CMD_SET_PARAM, .data = mode}, set);
    refused({.code = EFFECT_CMD_SET_PARAM, .data = mode, .null_data = true}, set);
    // Too short; a wrong psize; a vsize that reaches beyond the payload.
    for (const std::string& data :
         {mode.substr(0, 15), std::string(), Param(0, Bytes(1), 4, 3), Param(0, Bytes(1), 4, 8),
          Param(0, "abc", 4), Param(10, "", 1), Param(10, "a&1", 0xFFFFFFFF)}) {
      refused({.code = EFFECT_CMD_SET_PARAM, .data = data}, set);
    }
    refused_replies({.code = EFFECT_CMD_GET_PARAM, .data = mode, .reply_size = 20}, get);
    refused({.code = EFFECT_CMD_GET_PARAM, .data = mode.substr(0, 15), .reply_size = 20}, get);
    refused({.code = EFFECT_CMD_GET_PARAM, .data = mode, .null_data = true, .reply_size = 20}, get);
    refused_replies({.code = EFFECT_CMD_SET_DEVICE, .data = Bytes(4)}, device);
    refused({.code = EFFECT_CMD_SET_DEVICE, .data = mode, .reply_room = 16}, device);
    refused({.code = EFFECT_CMD_SET_DEVICE, .data = "abc"}, device);
    refused({.code = EFFECT_CMD_SET_DEVICE, .data = Bytes(4), .null_data = true}, device);
    refused_replies({.code = EFFECT_CMD_GET_CONFIG, .reply_size = sizeof(effect_config_t)},
                    "EFFECT_CMD_GET_CONFIG: Invalid param");
    for (const uint32_t code : {22u, 0xFFFFu, 0x10001u, 0xFFFFFFFFu}) {
      refused({.code = code}, "Unknown command is specified: " + std::to_string(code));
    }
    std::vector<float> out;
    EXPECT_EQ(effect().Process(test::Ramp(8), &out), enabled ? 0 : -61);
  }
}

TEST_F(CommandTest, IgnoresWhatItDoesNotSupportWithAWarning) {
  const std::pair<uint32_t, const char*> kUnsupported[] = {{6, "SET_PARAM_DEFERRED"},
                                                           {7, "SET_PARAM_COMMIT"},
                                                           {10, "SET_VOLUME"},
                                                           {11, "SET_AUDIO_MODE"},
                                                           {12, "SET_CONFIG_REVERSE"},
                                                           {13, "SET_INPUT_DEVICE"},
                                                           {15, "GET_CONFIG_REVERSE"},
                                                           {16, "GET_FEATURE_SUPPORTED_CONFIGS"},
                                                           {17, "GET_FEATURE_CONFIG"},
                                                           {18, "SET_FEATURE_CONFIG"},
                                                           {19, "SET_AUDIO_SOURCE"},
                                                           {20, "OFFLOAD"},
                                                           {0x10000, "FIRST_PROPRIETARY"}};
  for (const auto& [code, name] : kUnsupported) {
    EXPECT_TRUE(effect().Command({.code = code}).untouched());
    EXPECT_EQ(
        effect()
            .Command({.code = code, .null_data = true, .null_reply = true, .null_reply_size = true})
            .result,
        0);
    const std::string line = std::string("W/KelUpm: Unsupported command: EFFECT_CMD_") + name;
    EXPECT_EQ(test::TakeLog(), (Lines{line, line}));
  }
}

TEST_F(CommandTest, StatesAndCounters) {
  std::vector<float> out;
  const auto state = [&] { return effect().Process(test::Ramp(8), &out) == 0 ? 2 : 1; };
  const auto counters = [&](int enable, int disable, int set_config) {
    EXPECT_EQ(effect().Dump().find(Counters(enable, disable, set_config)), 0u) << effect().Dump();
  };
  counters(0, 0, 0);
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_DISABLE}).result, -38);
  effect().Enable();
  EXPECT_EQ(state(), 2);
  const Reply again = effect().Command({.code = EFFECT_CMD_ENABLE});
  EXPECT_EQ(again.result, -38);
  EXPECT_TRUE(again.untouched());
  EXPECT_EQ(test::TakeLog(), (Lines{kError + "disable errors due to invalid state (=1)",
                                    kError + "ebable at uninitialized state"}));
  counters(1, 0, 0);
  effect().Disable();
  EXPECT_EQ(state(), 1);
  effect().Enable();
  effect().Init();  // from the enabled state, too
  EXPECT_EQ(state(), 1);
  effect().Enable();
  effect().Disable();
  effect().SetConfig(test::StereoConfig());
  effect().SetConfig(effect_config_t{});  // refused, and counted
  counters(3, 2, 2);
}

TEST_F(CommandTest, InitMakesANewEngine) {
  effect().SetMode(3);
  effect().SetDevice(AUDIO_DEVICE_OUT_USB_HEADSET);
  EXPECT_EQ(effect().Stages(), "-M--L");
  Write("wired.hki.config", "personalized.hki");
  Write("tunedapp_list", "com.film,CINEMA");
  TakeCalls();
  // The payload is not looked at. The old engine has gone before the new one comes.
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_INIT, .cmd_size = 77, .null_data = true}).status(),
            0);
  EXPECT_EQ(TakeCalls(), (Lines{"A0212 1001", "A0810 1001", "A0213 1", "A0216", "A0511", "A0779",
                                "A0244", "A0333", "A0507", "A0557", "A0834"}));
  EXPECT_EQ(effect().Stages(), "P----");
  EXPECT_EQ(effect()
                .Command({.code = EFFECT_CMD_GET_PARAM, .data = Param(0, ""), .reply_size = 20})
                .Word(16),
            0u);
  effect().SetMode(3);
  effect().SetText(10, "com.film&0");
  effect().SetDevice(AUDIO_DEVICE_OUT_USB_HEADSET);
  EXPECT_EQ(effect().Stages(), "--CEL");
}

TEST_F(CommandTest, DumpText) {
  effect().SetMode(1);
  effect().SetDevice(AUDIO_DEVICE_OUT_BLUETOOTH_A2DP);
  effect().Enable();
  std::vector<float> out;
  for (const unsigned frames : {1024u, 480u, 2600u, 200u})
    effect().Process(test::Ramp(frames), &out);
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
                "      [*] upmm: hki=bluetooth.hki.config:standard.hki, bin=upmix.music.hps.bin\n"
                "      [ ] upmc: hki=bluetooth.hki.config:standard.hki, bin=upmix.cinema.hps.bin\n"
                "      [ ] hpeq: ba=:\n"
                "      [*] upl : bin=upl.music.bin\n");
  test::TakeLog();
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_DUMP, .null_data = true}).result, 0);
  const Reply closed = effect().Command({.code = EFFECT_CMD_DUMP, .data = Bytes(0xFFFFFFFF)}, 1);
  EXPECT_EQ(closed.result, 0);
  EXPECT_TRUE(closed.untouched());
  EXPECT_EQ(test::TakeLog(), Lines{});
}

TEST_F(CommandTest, GetAndSetConfig) {
  effect_config_t stored{};
  const auto get = [&](size_t offset) {
    return effect().Command({.code = EFFECT_CMD_GET_CONFIG, .reply_size = sizeof(stored)}, offset);
  };
  EXPECT_EQ(get(0).bytes, std::string(sizeof(stored), '\0'));
  effect_config_t config = test::StereoConfig();
  config.inputCfg.mask = 0x1234;
  config.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_ACCUMULATE;
  config.inputCfg.buffer.frameCount = 77;
  const std::string payload(reinterpret_cast<char*>(&config), sizeof(config));
  for (const size_t offset : {0, 1, 3}) {
    const Reply reply = effect().Command({.code = EFFECT_CMD_SET_CONFIG, .data = payload}, offset);
    EXPECT_EQ(reply.result, 0);
    EXPECT_EQ(reply.status(), 0);
    EXPECT_EQ(get(offset).bytes, payload);
    EXPECT_EQ(get(offset).result, 0);
  }
  config.outputCfg.format = 1;
  EXPECT_EQ(effect().SetConfig(config), -22);
  EXPECT_EQ(get(0).bytes, payload);  // the last accepted one
}

TEST_F(CommandTest, GetParamAnswersWithTheCommandsHead) {
  effect().SetMode(2);
  for (const size_t offset : {0, 1, 2}) {
    // psize is not looked at, and copied with the rest.
    Reply reply = effect().Command(
        {.code = EFFECT_CMD_GET_PARAM, .data = Param(0, "ignored", 99, 12), .reply_size = 24},
        offset);
    EXPECT_EQ(reply.result, 0);
    EXPECT_EQ(reply.size, 20u);
    EXPECT_EQ(reply.bytes,
              Bytes(0) + Bytes(12) + Bytes(4) + Bytes(0) + Bytes(2) + "\xAA\xAA\xAA\xAA");
    for (const uint32_t id : {1u, 2u, 10u, 0x80000000u}) {
      reply = effect().Command(
          {.code = EFFECT_CMD_GET_PARAM, .data = Param(id, ""), .reply_size = 20}, offset);
      EXPECT_EQ(reply.result, 0);
      EXPECT_EQ(reply.size, 16u);
      EXPECT_EQ(reply.bytes, Bytes(0) + Bytes(4) + Bytes(0) + Bytes(id) + "\xAA\xAA\xAA\xAA");
    }
    const std::string unknown = "W/KelUpm: Unknown param is specified: ";
    EXPECT_EQ(test::TakeLog(),
              (Lines{unknown + "1", unknown + "2", unknown + "10", unknown + "-2147483648"}));
  }
}

TEST_F(CommandTest, SetDeviceCopiesSixteenBytes) {
  const std::string tail = "0123456789ab";
  for (const size_t offset : {0, 1}) {
    const Reply reply = effect().Command(
        {.code = EFFECT_CMD_SET_DEVICE, .data = Bytes(0x4) + tail, .cmd_size = 4, .reply_room = 16},
        offset);
    EXPECT_EQ(reply.result, 0);
    EXPECT_EQ(reply.bytes, Bytes(0) + tail);
    EXPECT_EQ(reply.size, 4u);
  }
}

TEST_F(CommandTest, NullHandle) {
  const auto command = (*effect().handle())->command;
  EXPECT_EQ(command(nullptr, EFFECT_CMD_RESET, 0, nullptr, nullptr, nullptr), -22);
  EXPECT_EQ(test::TakeLog(), Lines{kError + "command called with NULL pointer"});
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
    const size_t before = Files().size();
    effect().Enable();
    effect().Disable();
    EXPECT_EQ(Files().size(), before + files) << debuggable << ' ' << request;
  }
}

TEST_F(CommandTest, CapturesWhatTheHostGot) {
  property_set("ro.debuggable", "1");
  property_set("vendor.kelda.pcmdump", "1");
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_DISABLE, .null_reply = true}).result, -22);
  effect().Enable();
  std::string heard;
  std::vector<float> out;
  const auto hear = [&](unsigned frames) {
    EXPECT_EQ(effect().Process(test::Ramp(frames), &out, true), 0);
    heard.append(reinterpret_cast<char*>(out.data()), out.size() * sizeof(float));
  };
  const auto captures = [&] {
    Lines names;
    for (const std::string& name : Files()) {
      if (name.starts_with("pcmdump_") && name.ends_with(".pcm")) names.push_back(name);
    }
    return names;
  };
  for (const unsigned frames : {480u, 1024u, 3840u, 960u, 480u}) hear(frames);
  // A refused disable stops the capture, a second one does nothing.
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(effect().Command({.code = EFFECT_CMD_DISABLE, .reply_size = 5}).result, -22);
  }
  effect().Process(test::Ramp(480), &out);
  ASSERT_EQ(captures().size(), 1u);
  EXPECT_TRUE(Read(captures()[0]) == heard);
  test::TakeLog();

  // A refused enable starts one. Its name may be the first one's, if it is still the
  // same second: it goes on at the end then.
  heard = Read(captures()[0]);
  const std::string first = captures()[0];
  EXPECT_EQ(effect().Command({.code = EFFECT_CMD_ENABLE}).result, -38);
  if (captures().size() > 1) heard.clear();
  for (int i = 0; i < 13; ++i) hear(3840);
  test::TakeLog();
  property_set("vendor.kelda.pcmdump", "0");
  effect().Disable();  // no request: the capture goes on, and ends with the engine
  effect().Init();
  const size_t second = 48000 / 3840 * 3840 * 8;  // whole blocks within one second
  const size_t before = heard.size() - 13 * 3840 * 8;
  EXPECT_TRUE(Read(captures().back()) == heard.substr(0, before + second));
}

}  // namespace
}  // namespace kelda
