// The readers of tuning files and of the list of tuned applications.
#include "settings/tuning_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "settings/tuned_app_list.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Lines;

class TuningFilesTest : public test::DataDirTest {};

TEST_F(TuningFilesTest, ConfigurationFilesByFirstLineAndFirstToken) {
  const std::string blanks(4096 - std::strlen("speaker.hki"), ' ');
  const struct {
    std::string content, first_line;
    HrtfType type;
    bool matched;
  } kCases[] = {{"personalized.hki\r\nsecond", "personalized.hki\r", HrtfType::Personalized, true},
                {"  speaker.hki", "  speaker.hki", HrtfType::Speaker, true},
                {"\n\t\v\f standard.hki x", "", HrtfType::Standard, true},
                {"Speaker.hki", "Speaker.hki", HrtfType::Standard, false},
                {"/d/speaker.hki", "/d/speaker.hki", HrtfType::Standard, false},
                {"speaker.hki2", "speaker.hki2", HrtfType::Standard, false},
                {"", "", HrtfType::Standard, false},
                // 4096 bytes count.
                {blanks + "speaker.hki then", blanks + "speaker.hki", HrtfType::Speaker, true},
                {blanks + " speaker.hki", blanks + " speaker.hk", HrtfType::Standard, false}};
  for (const auto& c : kCases) {
    Write("c", c.content);
    EXPECT_EQ(ConfigFileReader::GetParamFilename(Path("c")), c.first_line);
    EXPECT_EQ(GetHrtfType(Path("c")), c.type) << c.content;
    const std::string unmatched = "E/KelApVirCommon: Not matched any hrtf types: " +
                                  c.first_line.substr(c.first_line.find_last_of(' ') + 1);
    EXPECT_EQ(test::TakeLog(), c.matched ? Lines{} : Lines{unmatched}) << c.content;
  }
  EXPECT_EQ(ConfigFileReader::GetParamFilename(""), "");
  EXPECT_EQ(test::TakeLog(), Lines{});
  mkfifo(Path("fifo").c_str(), 0600);
  for (const std::string& path : {Path("missing"), dir(), Path("fifo")}) {
    EXPECT_EQ(ConfigFileReader::GetParamFilename(path), "");
    EXPECT_EQ(GetHrtfType(path), HrtfType::Standard);
    EXPECT_EQ(test::TakeLog(), (Lines{"W/KelApUtil: " + path + " file open error.",
                                      "E/KelApVirCommon: Failed to open ifstream"}));
  }
}

TEST_F(TuningFilesTest, ParameterDataUnderItsLimit) {
  const std::string path = Path("p"), tag = "E/KelApUtil: ";
  const std::vector<char> content(100, 'x');
  Write("p", std::string(100, 'x'));
  std::vector<char> data = {'a'};
  EXPECT_EQ(ParamFileReader::GetParamData(path, &data, 99), 0u);
  EXPECT_EQ(data, std::vector<char>{'a'});
  EXPECT_EQ(test::TakeLog(), Lines{tag + "File " + path + " is bigger than the maxSize 100 > 99"});
  // It grows to the file's size, whatever its limit.
  EXPECT_EQ(ParamFileReader::GetParamData(path, &data, 100), 100u);
  EXPECT_EQ(data, content);
  data.clear();
  EXPECT_EQ(ParamFileReader::GetParamData(path, &data, 150), 100u);
  EXPECT_EQ(data, content);
  // The limit guards growth only, and what the file does not reach stays.
  std::vector<char> longer(200, 'z'), expected = longer;
  std::copy(content.begin(), content.end(), expected.begin());
  EXPECT_EQ(ParamFileReader::GetParamData(path, &longer, 0), 100u);
  EXPECT_EQ(longer, expected);
  Write("empty", "");
  EXPECT_EQ(ParamFileReader::GetParamData(Path("empty"), &data, 100), 0u);
  EXPECT_EQ(test::TakeLog(), Lines{});
  // Files of the kernel: one claims to be empty and is not, so the vector's limit bounds it;
  // one claims to be a page long and is shorter.
  std::vector<char> three(3, 'q');
  EXPECT_EQ(ParamFileReader::GetParamData("/proc/self/maps", &three, 3), 3u);
  EXPECT_EQ(three.size(), 3u);
  const std::string page = "/sys/kernel/mm/transparent_hugepage/enabled";
  if (!std::filesystem::exists(page)) {
    GTEST_SKIP();
  }
  EXPECT_EQ(ParamFileReader::GetParamData(page, &data, 1 << 20), 0u);
  EXPECT_EQ(test::TakeLog().at(0).find(tag + "File " + page + " read size is smaller than file"),
            0u);
}

TEST_F(TuningFilesTest, TunedApplicationsLineByLine) {
  const std::string invalid = "): Invalid mode was specified. '";
  const std::string separators = "): There are more separator descriptions than expected.";
  const std::string line = "W/EffectUpmix: Line(";
  const struct {
    std::string line, package, rejected;  // what the log says of it
    UpmixMode mode;                       // with which it is listed in the end; Auto: it is not
  } kRows[] = {
      {"com.a,MUSIC", "com.a", "", UpmixMode::Music},
      {"com.b , CINEMA ", "com.b", "", UpmixMode::Cinema},
      {"com.c,OFF\r", "com.c", "", UpmixMode::Off},
      {"", "com.A", "", UpmixMode::Auto},
      {"# a heading", "# a heading", "", UpmixMode::Auto},
      {"\"com.d e\", \"MUSIC\"", "com.d e", "", UpmixMode::Music},
      {"com.trailing,CINEMA,", "com.trailing", "", UpmixMode::Cinema},
      {"com.three,MUSIC,x", "com.three", separators, UpmixMode::Auto},
      {"com.four,MUSIC,,", "com.four", separators, UpmixMode::Auto},
      {"com.gap,,MUSIC", "com.gap", invalid + "'", UpmixMode::Auto},
      {"com.case,Music", "com.case", invalid + "Music'", UpmixMode::Auto},
      {"com.blank,   ", "com.blank", invalid + "   '", UpmixMode::Auto},
      {"com.only,", "com.only", "", UpmixMode::Auto},
      {",CINEMA", "", "", UpmixMode::Cinema},
      {"#com.f,MUSIC", "#com.f", "", UpmixMode::Music},
      {"com.long.package.name,AUTO", "com.long.package.name", invalid + "AUTO'", UpmixMode::Auto},
      {"com.twice,MUSIC", "com.twice", "", UpmixMode::Cinema},
      {"\t\v\"com.twice\"\v\t,\"\" \tCINEMA\r", "com.twice", "", UpmixMode::Cinema},
      {"com.formfeed,MUSIC\f", "com.formfeed", invalid + "MUSIC\f'", UpmixMode::Auto},
      {"  ,MUSIC", "  ", "", UpmixMode::Music},  // a field of blanks is kept
      {"com.last,CINEMA", "com.last", "", UpmixMode::Cinema}};
  std::string text;
  Lines rejected;
  for (const auto& row : kRows) {
    const auto number = std::to_string(&row - kRows + 1);
    text += (text.empty() ? "" : "\n") + row.line;  // the last one without a line end
    if (!row.rejected.empty()) {
      rejected.push_back(line + number + row.rejected);
    }
  }
  Write("tunedapp_list", text);
  TunedAppList list;
  EXPECT_FALSE(list.IsExist("com.a"));
  list.Reload();
  EXPECT_EQ(test::TakeLog(), rejected);
  for (const auto& row : kRows) {
    const bool listed = row.mode != UpmixMode::Auto;
    EXPECT_EQ(list.IsExist(row.package), listed) << row.package;
    EXPECT_EQ(list.GetValue(row.package), listed ? row.mode : UpmixMode::Off) << row.package;
  }
  // Lines of up to 4096 bytes, read in blocks of as many; 32 warnings.
  const std::string name(4096 - std::strlen(",MUSIC"), 'n');
  text = name + ",MUSIC\n" + name + "n,MUSIC\n" + name.substr(1) + ",MUSIC";
  for (int bad = 0; bad < 34; ++bad) {
    text += "\nx,y";
  }
  Write("tunedapp_list", text + "\ncom.last,MUSIC");
  list.Reload();
  Lines warned;
  for (int bad = 4; bad < 4 + 32; ++bad) {
    warned.push_back(line + std::to_string(bad));
    warned.back() += invalid + "y'";
  }
  warned.push_back("W/EffectUpmix: 2 more warnings of this list are not logged.");
  EXPECT_EQ(test::TakeLog(), warned);
  for (const std::string& package : {name, name.substr(1), std::string("com.last")}) {
    EXPECT_TRUE(list.IsExist(package)) << package.size();
  }
  EXPECT_FALSE(list.IsExist(name + "n"));
  EXPECT_FALSE(list.IsExist("com.a"));
  list.Reload();
  EXPECT_EQ(test::TakeLog(), warned);
  std::filesystem::remove(Path("tunedapp_list"));
  std::filesystem::create_directory(Path("tunedapp_list"));
  list.Reload();
  EXPECT_FALSE(list.IsExist("com.last"));
  EXPECT_EQ(test::TakeLog(), Lines{});
}

}  // namespace
}  // namespace kelda
