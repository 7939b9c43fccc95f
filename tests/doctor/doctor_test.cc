// kelda doctor on signal libraries that fit, fail and crash, on damaged tuning, and on devices.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/expectations.h"
#include "tests/tools/program.h"

namespace kelda::tools {
namespace {

ProgramResult Doctor(int exit_code, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "doctor");
  ProgramResult result = RunKelda(arguments);
  EXPECT_EQ(result.exit_code, exit_code) << result.out << result.err;
  return result;
}

// The part of the report on one component: from its heading to the next.
std::string Component(const std::string& report, const std::string& name) {
  const std::size_t begin = report.find("\n" + name + "\n");
  if (begin == std::string::npos) {
    return "";
  }
  std::size_t end = report.find('\n', begin + 1);
  while (end + 1 < report.size() && report[end + 1] == ' ') {
    end = report.find('\n', end + 1);
  }
  return report.substr(begin, end - begin);
}

TEST(LibraryDoctor, FindsThatTheOpenLibraryFits) {
  const ProgramResult result = Doctor(0, {"--library", KELDA_LIBRARIES});
  EXPECT_TRUE(Holds(result.out, "symbols: 31 of 31 present\n"));
  EXPECT_TRUE(Holds(Component(result.out, "music upmix"), "A0559  initialise"));
  EXPECT_TRUE(Holds(Component(result.out, "level control"), "parameters 64 bytes"));
  EXPECT_FALSE(Holds(result.out, "does not fit")) << result.out;
  EXPECT_EQ(result.err, "");
}

TEST(LibraryDoctor, FindsEveryFaultAndSurvivesIt) {
  const std::string report = Doctor(5, {"--library", FAULTY, "--tuning", KELDA_DEFAULT_TUNING}).out;
  const std::pair<const char*, const char*> kFindings[] = {
      {"headphone equalizer", "does not fit: signal 11"},
      {"music upmix", "work 100 bytes, parameters 64 bytes"},
      {"music upmix", "peak 4.9 dBFS"},
      {"virtualizer", "status -7"},
      {"virtualizer", "NOT REFUSED"},
      {"cinema upmix", "it wrote beyond its output"},
      {"level control", "left with exit code 0"},
  };
  for (const auto& [component, finding] : kFindings) {
    EXPECT_TRUE(Holds(Component(report, component), finding));
  }
  EXPECT_FALSE(Holds(Component(report, "music upmix"), "does not fit")) << report;
}

TEST(LibraryDoctor, NamesMissingSymbols) {
  const std::string report = Doctor(5, {"--library", INCOMPLETE}).out;
  EXPECT_TRUE(Holds(report, "symbols: 26 of 31 present, missing: A0834 A0557 A0508 A0122 A0217"));
  EXPECT_FALSE(Holds(report, "status")) << "it was run: " << report;
}

// What the open library becomes: for another processor, cut off, something else.
TEST(LibraryDoctor, DoesNotRunWhatIsNoWholeLibraryForThisProcessor) {
  const TemporaryFolder folder;
  const std::vector<std::string> look{"--library", folder / ""};
  Doctor(3, look);
  std::filesystem::copy_file(KELDA_LIBRARIES "/libupmix-lib.so", folder / "libupmix-lib.so");
  std::string bytes = folder.Read("libupmix-lib.so");
  bytes[18] = 22;  // e_machine
  bytes[19] = 0;
  folder.Write("libupmix-lib.so", bytes);
  const std::string foreign = Doctor(5, look).out;
  for (const char* text :
       {"processor 22, ", "symbols: 31 of 31 present\n", "nothing of it was run"}) {
    EXPECT_TRUE(Holds(foreign, text));
  }
  // Cut at every kind of place: its tables are at the end and their offsets lead out.
  for (const std::size_t length :
       {std::size_t{17}, std::size_t{64}, std::size_t{5000}, bytes.size() - 1}) {
    folder.Write("libupmix-lib.so", bytes.substr(0, length));
    EXPECT_TRUE(Holds(Doctor(3, look).err, ": damaged: ")) << length;
  }
  folder.Write("libupmix-lib.so", "no library, but longer than its header");
  EXPECT_TRUE(Holds(Doctor(3, look).err, "not a shared library"));
  Doctor(2, {});
  Doctor(2, {"--tuning", folder / "none"});
}

// A copy of the default tuning to damage.
class TuningDoctor : public testing::Test {
 protected:
  TuningDoctor() { std::filesystem::copy(KELDA_DEFAULT_TUNING, folder_ / ""); }

  // Reads `report_`.
  void Diagnose(int exit_code) { report_ = Doctor(exit_code, {"--tuning", folder_ / ""}).out; }

  // Expects `what` in the line of the situation.
  void ExpectHeard(const std::string& situation, const std::string& what) {
    const std::size_t begin = std::min(report_.find("  " + situation + " "), report_.size());
    EXPECT_TRUE(Holds(report_.substr(begin, report_.find('\n', begin) - begin), what)) << report_;
  }

  const TemporaryFolder folder_;
  std::string report_;
};

TEST_F(TuningDoctor, FindsTheDefaultTuningWhole) {
  Diagnose(0);
  for (const std::string mode : {"music", "cinema"}) {
    for (const std::string output : {", wired, ", ", bluetooth, "}) {
      ExpectHeard(mode + output + "standard ears", "as it should be");
      ExpectHeard(mode + output + "personalized ears", "as it should be");
    }
  }
  for (const char* text : {" HRIR set, 256 taps, MIT KEMAR, ",
                           "1994; equalised to the diffuse field; named by wired.hki",
                           " headphone equalizer, 10 bands; named by wired.ba.config\n",
                           "AT 44100 HZ ALL FREQUENCIES ARE 8 % LOWER"}) {
    EXPECT_TRUE(Holds(report_, text)) << text;
  }
  EXPECT_FALSE(Holds(report_, "the effect's log")) << report_;
}

TEST_F(TuningDoctor, TellsWhatMissingAndDamagedFilesTakeAway) {
  std::string ears = folder_.Read("standard.hki");
  ears[3000] = 'U';
  folder_.Write("standard.hki", ears);
  std::filesystem::resize_file(folder_ / "personalized.ba", 40);
  folder_.Write("tunedapp_list", "com.a,MUSIK\n");
  folder_.Write("upl.cinema.bin", folder_.Read("upl.music.bin"));  // of the same kind: in order
  folder_.Write("upmix.cinema.hps.bin", folder_.Read("upl.music.bin"));
  std::filesystem::remove(folder_ / "upl.music.bin");
  Diagnose(3);
  for (const char* text :
       {"DAMAGED  standard.hki", "checksum does not match (status 309)", "DAMAGED  personalized.ba",
        "ok       upl.cinema.bin", "it holds level parameters, not cinema parameters",
        "Invalid mode was specified. 'MUSIK'", "MISSING  upl.music.bin",
        "Loading Upl Library failed due to read upl.music.bin failed\n"}) {
    EXPECT_TRUE(Holds(report_, text));
  }
  ExpectHeard("music, bluetooth, standard ears",
              "STEREO, UNPROCESSED; without music upmix, level control");
  ExpectHeard("cinema, bluetooth, personalized ears",
              "STEREO, UNPROCESSED; without cinema upmix, headphone equalizer");
  ExpectHeard("cinema, wired, standard ears", "A BUZZ: ");
}

// Four devices, in the shape of what adb shell prints.
constexpr const char* kLaunchedWith13 =
    "[ro.build.version.release]: [14]\r\n[ro.build.version.sdk]: [34]\r\n"
    "[ro.product.first_api_level]: [33]\r\n[ro.vendor.api_level]: [33]\r\n"
    "[vendor.kelda.effect]: [1]\r\n"
    "Output thread 0x7b2c9a01c0, name AudioOut_D, tid 1213, type 0 (MIXER):\r\n"
    "  I/O handle: 13\r\n  Sample rate: 48000 Hz\r\n";
constexpr const char* kLaunchedWith14 =
    "[persist.sys.locale]: [de-DE\nor another]\n"
    "[ro.build.version.release]: [14]\n[ro.build.version.sdk]: [34]\n"
    "[ro.product.first_api_level]: [34]\n[ro.vendor.api_level]: [34]\n"
    "SpatializerHelper:\n\tmState:6\n\tmSpatLevel:0\n";
constexpr const char* kLaunchedWith15 =
    "Currently running services:\n  activity\n  android.hardware.audio.core.IModule/default\n"
    "  android.hardware.audio.effect.IFactory/default\n  media.audio_flinger\n"
    "[ro.build.version.release]: [15]\n[ro.build.version.sdk]: [35]\n"
    "[ro.product.first_api_level]: [35]\n[ro.vendor.api_level]: [202404]\n"
    "[vendor.kelda.effect]: [0]\n"
    "SpatializerHelper:\n\tmState:5\n\tmSpatLevel:1\n"
    "Output thread 0x7a01, name AudioOut_25, tid 940, type 5 (SPATIALIZER):\n";
constexpr const char* kLaunchedWith16 =
    "[ro.audio.stereo_spatialization_enabled]: [true]\n"
    "[ro.build.version.release]: [16]\n[ro.build.version.sdk]: [36]\n"
    "[ro.product.first_api_level]: [36]\n[ro.vendor.api_level]: [202504]\n"
    "Spatializer:\n Supported levels: [ NONE MULTICHANNEL], mLevel: MULTICHANNEL\n";

TEST(DeviceDoctor, NamesTheDoorAndWhatSpatialAudioTakesAway) {
  struct Case {
    std::string text;
    int exit_code;
    std::vector<const char*> says;
  };
  const std::string list = "Currently running services:\n  activity\n";
  const std::string with_factory = list + "  android.hardware.audio.effect.IFactory/default\n";
  const Case kCases[] = {
      {kLaunchedWith13,
       0,
       {"Android 14 (API level 34), vendor image of level 33\n",
        "door           AELI: libkelupmix.so, named in audio_effects.xml\n", "kelda.effect is 1\n",
        "spatial audio  the device has none\n"}},
      {kLaunchedWith14,
       3,
       {"cannot be told", "dumpsys -l", "after `adb root` only",
        "spatial audio  off: all media is processed\n"}},
      {kLaunchedWith14 + list, 0, {"door           AELI", "IFactory does not run"}},
      {kLaunchedWith14 + with_factory,
       0,
       {"door           AIDL", "; interface version 1\n", "refuses all parameters there"}},
      // Its vendor image was built again; its spatial audio is off, and its output closed.
      {kLaunchedWith13 + std::string("[ro.vendor.build.version.sdk]: [34]\n"
                                     "[ro.audio.spatializer_enabled]: [true]\n"),
       3,
       {"cannot be told: add the output of `dumpsys audio`", "may offer either"}},
      {kLaunchedWith15,
       0,
       {"door           AIDL: libkelupmix-aidl.so", "interface version 1 to 2\n",
        "is 0, NOT 1: the effect is not offered",
        "spatial audio  ON: its output rejects effects on the output mix, so "
        "media in quad, 5.1 or 7.1 bypasses this effect\n"}},
      {kLaunchedWith16,
       0,
       {"interface version 1 to 3\n", "may offer no other\n",
        "so all media, stereo too, bypasses"}},
      {kLaunchedWith16 + list, 3, {"door           none\n", "but no such service runs"}},
      // An older device under the newest system.
      {"[ro.build.version.sdk]: [36]\n[ro.product.first_api_level]: [31]\n",
       0,
       {"vendor image of level 31", "door           AELI", "add the output of `dumpsys audio`"}},
      {"[ro.build.version.sdk]: [32]\n[ro.vendor.api_level]: [32]\n", 3, {"Android 13 and later"}},
  };
  const TemporaryFolder folder;
  for (const Case& device : kCases) {
    folder.Write("device.txt", device.text);
    const std::string report = Doctor(device.exit_code, {"--device", folder / "device.txt"}).out;
    for (const char* text : device.says) {
      EXPECT_TRUE(Holds(report, text));
    }
  }
  const ProgramResult typed =
      RunKelda({"doctor", "--device", "-"},
               {.terminal = true, .typed = kLaunchedWith16 + std::string("\x04")});
  EXPECT_EQ(0, typed.exit_code) << typed.err;
  EXPECT_TRUE(Holds(typed.out, "interface version 1 to 3\n"));
}

TEST(DeviceDoctor, RefusesWhatIsNoDevicesText) {
  const TemporaryFolder folder;
  for (const auto& [text, message] : {
           std::pair<std::string, const char*>{"", "not the output of `getprop`"},
           {"[ro.build.version.sdk]: [many]\n", "not the output of `getprop`"},
           {"[ro.build.version.sdk: 35]\n[ro.build.version.sdk]: [35\n", "not the output of"},
           {"[ro.build.version.sdk]: [35]\n", "not whole: it has neither ro.vendor.api_level nor"},
           {"\xFF\xFE[\0r\0", "in UTF-16; save it as UTF-8"},
           {std::string("[a\0b", 4), ":1: not a text file"},
       }) {
    folder.Write("device.txt", text);
    ExpectRefused(3, message, {"doctor", "--device", folder / "device.txt"});
  }
  ExpectRefused(3, "cannot be read: No such file", {"doctor", "--device", folder / "none"});
}

}  // namespace
}  // namespace kelda::tools
