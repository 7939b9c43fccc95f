// The parts of `kelda render` alone: what it reads from its user, and its progress.
#include <android/log.h>
#include <gtest/gtest.h>
#include <system/audio.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/laboratory/temporary_folder.h"
#include "tests/tools/expectations.h"
#include "tools/audio/progress.h"
#include "tools/framework/block_sizes.h"
#include "tools/framework/device_name.h"
#include "tools/framework/log_capture.h"
#include "tools/render/timeline.h"

namespace kelda::tools {
namespace {

template <typename Action>
std::string UsageRefusal(Action action) {
  return Refusal(ExitCode::kUsage, "", action);
}

TEST(DeviceName, ReadsNamesAndNumbers) {
  const std::pair<const char*, audio_devices_t> kCases[] = {
      {"wired", AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
      {"Bluetooth", AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES},
      {"AUDIO_DEVICE_OUT_BLE_BROADCAST", AUDIO_DEVICE_OUT_BLE_BROADCAST},
      {"audio_device_out_usb_headset", AUDIO_DEVICE_OUT_USB_HEADSET},
      {"BLUETOOTH_A2DP", AUDIO_DEVICE_OUT_BLUETOOTH_A2DP},
      {"hearing_aid", 0x8000000},
      {"8", 8},
      {"0x84", 0x84},
      {"0xFFFFFFFF", 0xFFFFFFFF}};
  for (const auto& [text, device] : kCases) {
    EXPECT_EQ(device, ParseDevice(text)) << text;
  }
  for (const char* text : {"", "wire", "AUDIO_DEVICE_OUT_", "8x", "-1", "0x", "0x1ffffffff"}) {
    EXPECT_FALSE(ParseDevice(text)) << text;
  }
}

TEST(Setting, ReadsKeysAndValues) {
  using Key = Setting::Key;
  const std::pair<const char*, Setting> kCases[] = {
      {"mode=auto", {Key::kMode, 3, ""}},
      {"wired-hrtf=standard", {Key::kWiredHrtf, 1, ""}},
      {"bluetooth-hrtf=personalized", {Key::kBluetoothHrtf, 2, ""}},
      {"app=com.a.b&1", {Key::kApp, 0, "com.a.b&1"}},
      {"reload-apps", {Key::kReloadApps, 0, ""}},
      {"property=a.b=c=d", {Key::kProperty, 0, "a.b=c=d"}}};
  for (const auto& [text, expected] : kCases) {
    const Setting setting = ParseSetting(text);
    EXPECT_EQ(expected.key, setting.key) << text;
    EXPECT_EQ(expected.number, setting.number) << text;
    EXPECT_EQ(expected.text, setting.text) << text;
  }
}

TEST(Setting, RefusesWithTheValueAndWhatIsAllowed) {
  const std::pair<const char*, const char*> kCases[] = {
      {"mode=Music", "unknown mode 'Music' (off, music, cinema, auto)"},
      {"mode", "'mode' needs a value (off|music|cinema|auto)"},
      {"wired-hrtf=speaker", "unknown HRTF type 'speaker' (standard, personalized)"},
      {"app=a&2", "unknown application flag '2' (0, 1)"},
      {"reset=1", "'reset' takes no value, but was given '1'"},
      {"property=x", "a property is NAME=VALUE, not 'x'"},
      {"property=", "a property is NAME=VALUE, not ''"},
      {"volume=1", "unknown key 'volume' (mode, "},
      {"device=x", "unknown device 'x' (wired, "},
  };
  for (const auto& refused : kCases) {
    const std::string message = UsageRefusal([&] { ParseSetting(refused.first); });
    EXPECT_TRUE(message.starts_with(refused.second)) << message;
  }
}

TEST(Timeline, ReadsAScenarioInOrder) {
  const TemporaryFolder folder;
  folder.Write("scenario",
               "# change of scene\n\n  2.5 mode=cinema # now\n0 device=wired\n1e-1\treset\n"
               "2.5 mode=off\n2:30 mode=off\n1:00:00.5 mode=off");
  const auto changes = InOrder(ReadScenario(folder / "scenario"));
  ASSERT_EQ(6u, changes.size());
  EXPECT_EQ(int64_t{150} * 48000, changes[4].frame);
  EXPECT_EQ(int64_t{3600} * 48000 + 24000, changes[5].frame);
  EXPECT_EQ(0, changes[0].frame);
  EXPECT_EQ(4800, changes[1].frame);
  EXPECT_EQ(Setting::Key::kReset, changes[1].setting.key);
  EXPECT_EQ(120000, changes[2].frame);
  EXPECT_EQ(2u, changes[2].setting.number);  // of two at the same time, the first stays so
}

TEST(Timeline, RefusesWithEveryLineThatIsWrong) {
  const TemporaryFolder folder;
  std::string text = "0 mode=off\n1 mode=\x1B[2J\n1 \x1B[2J\n2\n1 mode=off mode=auto\n";
  std::string messages =
      "s:2: unknown mode '\\x1b[2J' (off, music, cinema, auto)\n"
      "s:3: unknown key '\\x1b[2J' (mode, device, wired-hrtf, bluetooth-hrtf, app, "
      "reload-apps, reset, enable, disable, property)\n"
      "s:4: a line is 'TIME key=value', not '2'\n"
      "s:5: a line is 'TIME key=value', not '1 mode=off mode=auto'";
  int line = 5;
  for (const std::string time :
       {"-1", "nan", "1s", "2:60", "-0:01", "1.5:00", "1:", ":1", "0:0:0:1", "99999:00:00"}) {
    text += time + " mode=off\n";
    messages += "\ns:" + std::to_string(++line) + ": not a time: '" + time +
                "' (150 or 2:30, up to 10000000 seconds)";
  }
  folder.Write("s", text);
  EXPECT_EQ(messages, Refusal(ExitCode::kUsage, folder / "", [&] { ReadScenario(folder / "s"); }));
  EXPECT_EQ(folder / "none: cannot be read: No such file or directory",
            UsageRefusal([&] { ReadScenario(folder / "none"); }));
  EXPECT_EQ(folder / ": cannot be read: not a regular file",
            UsageRefusal([&] { ReadScenario(folder / ""); }));
}

TEST(BlockSizes, ReadsAndRepeats) {
  EXPECT_FALSE(ParseBlockRange("960").random());
  EXPECT_EQ(65536u, ParseBlockRange("random:7-65536").max_frames);
  for (const char* text : {"", "0", "65537", "-1", "9x", "random:", "random:5", "random:9-8",
                           "random:0-8", "random:1-65537", "random 1-2"}) {
    EXPECT_EQ(0u, UsageRefusal([&] { ParseBlockRange(text); }).find("not a block size")) << text;
  }
  const BlockRange range = ParseBlockRange("random:1020-1028");
  BlockSizes sizes(range, 5);
  BlockSizes again(range, 5);
  std::set<std::size_t> reached;
  for (int i = 0; i < 1000; ++i) {
    const std::size_t frames = sizes.Next();
    ASSERT_EQ(frames, again.Next());
    ASSERT_TRUE(frames >= 1020 && frames <= 1028 && frames != kPeriodFrames) << frames;
    reached.insert(frames);
  }
  EXPECT_TRUE(reached.contains(1020) && reached.contains(1028));
}

TEST(LogCapture, PutsThePriorityBack) {
  const int before = __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
  { const LogCapture capture; }
  EXPECT_EQ(ANDROID_LOG_FATAL, __android_log_set_minimum_priority(before));
}

TEST(Progress, SaysPartTimeSpeedAndRest) {
  EXPECT_EQ("[=====>              ]  27%  4:05 of 15:00  98x real time  0:06 left",
            FormatProgress(245.0, 900.0, 2.5, 79));
  EXPECT_EQ("[====================] 100%  0:10 of 0:10  4.0x real time  0:00 left",
            FormatProgress(10.0, 10.0, 2.5, 79));
  EXPECT_EQ("1:00  240x real time", FormatProgress(60.0, std::nullopt, 0.25, 79));
  EXPECT_EQ("[=>   ]  27%  4:05 of 15:00  98x real time  0:06 left",
            FormatProgress(245.0, 900.0, 2.5, 53));
  EXPECT_EQ(" 27%  4:05 of 15:00  98x real time  0:06 left", FormatProgress(245.0, 900.0, 2.5, 52));
}

}  // namespace
}  // namespace kelda::tools
