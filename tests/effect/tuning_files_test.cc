// The readers of tuning files, the list of tuned applications, and the names of
// channel masks.
#include "engine/tuning_files.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "effect/channel_mask_names.h"
#include "engine/tuned_app_list.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Lines;

class TuningFilesTest : public test::DataDirTest {};

TEST_F(TuningFilesTest, Basename) {
  for (const auto& [path, name] : {std::pair{"/data/x/wired.hki.config", "wired.hki.config"},
                                   {"upl.music.bin", "upl.music.bin"},
                                   {"/data/x/", ""},
                                   {"", ""},
                                   {"/", ""}}) {
    EXPECT_EQ(BinFileReader::GetBasename(path), name) << path;
  }
}

TEST_F(TuningFilesTest, ConfigurationFilesByFirstLineAndFirstToken) {
  const std::string unmatched = "E/KelApVirCommon: Not matched any hrtf types: ";
  const struct {
    std::string content, first_line;
    HrtfType type;
    Lines log;
  } kCases[] = {
      {"personalized.hki\r\nsecond", "personalized.hki\r", HrtfType::Personalized, {}},
      {"  speaker.hki", "  speaker.hki", HrtfType::Speaker, {}},
      {"\n\t\v\f standard.hki x", "", HrtfType::Standard, {}},
      {"speaker.hki\n", "speaker.hki", HrtfType::Speaker, {}},
      {"Speaker.hki", "Speaker.hki", HrtfType::Standard, {unmatched + "Speaker.hki"}},
      {"/d/speaker.hki", "/d/speaker.hki", HrtfType::Standard, {unmatched + "/d/speaker.hki"}},
      {"speaker.hki2", "speaker.hki2", HrtfType::Standard, {unmatched + "speaker.hki2"}},
      {"", "", HrtfType::Standard, {unmatched}},
      {" \n", " ", HrtfType::Standard, {unmatched}},
  };
  for (const auto& c : kCases) {
    Write("c", c.content);
    EXPECT_EQ(ConfigFileReader::GetParamFilename(Path("c")), c.first_line);
    EXPECT_EQ(test::TakeLog(), Lines{}) << c.content;
    EXPECT_EQ(GetHrtfType(Path("c")), c.type) << c.content;
    EXPECT_EQ(test::TakeLog(), c.log) << c.content;
  }
  EXPECT_EQ(ConfigFileReader::GetParamFilename(""), "");
  EXPECT_EQ(test::TakeLog(), Lines{});
  std::filesystem::create_directory(Path("directory"));
  for (const std::string& path : {Path("missing"), Path("directory")}) {
    EXPECT_EQ(ConfigFileReader::GetParamFilename(path), "");
    EXPECT_EQ(GetHrtfType(path), HrtfType::Standard);
    EXPECT_EQ(test::TakeLog(), (Lines{"W/KelApUtil: " + path + " file open error.",
                                      "E/KelApVirCommon: Failed to open ifstream"}));
  }
}

TEST_F(TuningFilesTest, ParameterDataUnderItsLimit) {
  const std::string content = std::string(99, 'x') + 'y';
  const std::string path = Path("p");
  Write("p", content);
  const auto text = [](const std::vector<char>& data) {
    return std::string(data.begin(), data.end());
  };
  std::vector<char> data = {'a'};
  EXPECT_EQ(ParamFileReader::GetParamData(path, &data, 99), 0u);
  EXPECT_EQ(text(data), "a");
  EXPECT_EQ(test::TakeLog(),
            Lines{"E/KelApUtil: File " + path + " is bigger than the maxSize 100 > 99"});
  EXPECT_EQ(ParamFileReader::GetParamData(path, &data, 100), 100u);
  EXPECT_EQ(text(data), content);
  // The limit guards growth only, and what the file does not reach stays.
  data.assign(200, 'z');
  EXPECT_EQ(ParamFileReader::GetParamData(path, &data, 0), 100u);
  EXPECT_EQ(text(data), content + std::string(100, 'z'));
  Write("empty", "");
  EXPECT_EQ(ParamFileReader::GetParamData(Path("empty"), &data, 100), 0u);
  EXPECT_EQ(test::TakeLog(), Lines{});

  EXPECT_EQ(ParamFileReader::GetParamData(Path("missing"), &data, 100), 0u);
  std::filesystem::create_directory(Path("d"));
  EXPECT_EQ(ParamFileReader::GetParamData(Path("d"), &data, 1u << 20), 0u);
  EXPECT_EQ(test::TakeLog(),
            (Lines{"E/KelApUtil: Unable to stat " + Path("missing") + " error code:-1\n",
                   "E/KelApUtil: " + Path("d") + " file open error."}));
  // A file of the kernel's says that it is empty and is not: bounded by the vector.
  data.assign(3, 'q');
  EXPECT_EQ(ParamFileReader::GetParamData("/proc/self/maps", &data, 3), 3u);
  EXPECT_EQ(data.size(), 3u);
}

TEST_F(TuningFilesTest, ShortReadIsRefused) {
  // A file of the kernel's whose size is a page and whose content is not.
  const std::string path = "/sys/kernel/mm/transparent_hugepage/enabled";
  if (!std::filesystem::exists(path)) GTEST_SKIP();
  std::vector<char> data;
  EXPECT_EQ(ParamFileReader::GetParamData(path, &data, 1 << 20), 0u);
  const Lines log = test::TakeLog();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0].find("E/KelApUtil: File " + path + " read size is smaller than fileSize "), 0u);
  EXPECT_NE(log[0].find(" < 4096"), std::string::npos) << log[0];
}

TEST_F(TuningFilesTest, TunedApplicationsLineByLine) {
  const std::string invalid = "): Invalid mode was specified. '";
  const std::string separators = "): There are more separator descriptions than expected.";
  const std::string line = "W/EffectUpmix: Line(";
  Write("tunedapp_list",
        "com.a,MUSIC\n"                            // 1
        "com.b , CINEMA \n"                        // 2
        "com.c,OFF\r\n"                            // 3
        "\n"                                       // 4
        "# a heading\n"                            // 5
        "\"com.d e\", \"MUSIC\"\n"                 // 6
        "com.trailing,CINEMA,\n"                   // 7
        "com.three,MUSIC,x\n"                      // 8
        "com.four,MUSIC,,\n"                       // 9
        "com.gap,,MUSIC\n"                         // 10
        "com.case,Music\n"                         // 11
        "com.blank,   \n"                          // 12
        "com.only,\n"                              // 13
        ",CINEMA\n"                                // 14
        "#com.f,MUSIC\n"                           // 15
        "com.a.very.long.package.name,AUTO\n"      // 16
        "com.twice,MUSIC\n"                        // 17
        "\t\v\"com.twice\"\v\t,\"\" \tCINEMA\r\n"  // 18
        "com.formfeed,MUSIC\f\n"                   // 19
        "  ,MUSIC\n"                               // 20: a field of blanks is kept
        "com.last,CINEMA");                        // 21, without a line end
  TunedAppList list;
  EXPECT_FALSE(list.IsExist("com.a"));
  list.Reload();
  EXPECT_EQ(test::TakeLog(),
            (Lines{line + "8" + separators, line + "9" + separators, line + "10" + invalid + "'",
                   line + "11" + invalid + "Music'", line + "12" + invalid + "   '",
                   line + "16" + invalid + "AUTO'", line + "19" + invalid + "MUSIC\f'"}));
  const std::pair<const char*, UpmixMode> kListed[] = {{"com.a", UpmixMode::Music},
                                                       {"com.b", UpmixMode::Cinema},
                                                       {"com.c", UpmixMode::Off},
                                                       {"com.d e", UpmixMode::Music},
                                                       {"com.trailing", UpmixMode::Cinema},
                                                       {"", UpmixMode::Cinema},
                                                       {"#com.f", UpmixMode::Music},
                                                       {"com.twice", UpmixMode::Cinema},
                                                       {"  ", UpmixMode::Music},
                                                       {"com.last", UpmixMode::Cinema}};
  for (const auto& [package, mode] : kListed) {
    EXPECT_TRUE(list.IsExist(package)) << package;
    EXPECT_EQ(list.GetValue(package), mode) << package;
  }
  for (const char* package : {"com.three", "com.four", "com.gap", "com.case", "com.blank",
                              "com.only", "com.A", "com.formfeed", "# a heading"}) {
    EXPECT_FALSE(list.IsExist(package)) << package;
    EXPECT_EQ(list.GetValue(package), UpmixMode::Off) << package;
  }

  Write("tunedapp_list", "com.x,MUSIC\n");
  list.Reload();
  EXPECT_TRUE(list.IsExist("com.x") && !list.IsExist("com.a"));
  std::filesystem::remove(Path("tunedapp_list"));
  std::filesystem::create_directory(Path("tunedapp_list"));
  list.Reload();
  EXPECT_FALSE(list.IsExist("com.x"));
  EXPECT_EQ(test::TakeLog(), Lines{});
  for (const auto& [text, trimmed] :
       {std::pair{" \"\t\v\r\na b\n", "a b"}, {"", ""}, {" \" ", " \" "}, {"\fa ", "\fa"}}) {
    EXPECT_EQ(list.Trim(text), trimmed);
  }
}

TEST(ChannelMaskNamesTest, WholeMasksOnly) {
  const std::pair<uint32_t, std::string> kNames[] = {{0x0, "NONE"},
                                                     {0x1, "OUT_MONO"},
                                                     {0x3, "OUT_STEREO"},
                                                     {0x7, "OUT_TRI"},
                                                     {0xB, "OUT_2POINT1"},
                                                     {0xF, "OUT_3POINT1"},
                                                     {0x33, "OUT_QUAD"},
                                                     {0x37, "OUT_PENTA"},
                                                     {0x3F, "OUT_5POINT1"},
                                                     {0x103, "OUT_TRI_BACK"},
                                                     {0x107, "OUT_SURROUND"},
                                                     {0x13F, "OUT_6POINT1"},
                                                     {0x603, "OUT_QUAD_SIDE"},
                                                     {0x60F, "OUT_5POINT1_SIDE"},
                                                     {0x63F, "OUT_7POINT1"},
                                                     {0x2D03F, "OUT_5POINT1POINT4"},
                                                     {0x2D63F, "OUT_7POINT1POINT4"},
                                                     {0xC0003, "OUT_2POINT0POINT2"},
                                                     {0xC0007, "OUT_3POINT0POINT2"},
                                                     {0xC000B, "OUT_2POINT1POINT2"},
                                                     {0xC000F, "OUT_3POINT1POINT2"},
                                                     {0xC003F, "OUT_5POINT1POINT2"},
                                                     {0xC063F, "OUT_7POINT1POINT2"},
                                                     {0x72F607, "OUT_13POINT_KELDA"},
                                                     {0xFFFFFF, "OUT_22POINT2"},
                                                     {0x302D63F, "OUT_9POINT1POINT4"},
                                                     {0x30ED63F, "OUT_9POINT1POINT6"},
                                                     {0x20000001, "OUT_MONO_HAPTIC_A"},
                                                     {0x20000003, "OUT_STEREO_HAPTIC_A"},
                                                     {0x30000000, "OUT_HAPTIC_AB"},
                                                     {0x30000001, "OUT_MONO_HAPTIC_AB"},
                                                     {0x30000003, "OUT_STEREO_HAPTIC_AB"}};
  for (const auto& [mask, name] : kNames) {
    EXPECT_EQ(audio_channel_out_mask_to_string(mask), "AUDIO_CHANNEL_" + name);
  }
  for (const uint32_t mask : {0x20000000u, 0x2u, 0x40u, 0xFFFFFFFFu, 0xC0004u, 0x20000002u}) {
    EXPECT_STREQ(audio_channel_out_mask_to_string(mask), "");
  }
}

}  // namespace
}  // namespace kelda
