// `kelda inspect`: what files hold, and what the real engine does with them.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/laboratory/audio_files.h"
#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "tools/framework/effect_report.h"
#include "upmix-lib/binaural/hrir_format.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_parameters.h"

namespace kelda::tools {
namespace {

using nlohmann::json;

class Inspect : public testing::Test {
 protected:
  Inspect() { std::filesystem::copy(KELDA_DEFAULT_TUNING, folder_ / ""); }

  json Directory(int exit_code = 0) {
    const ProgramResult result = RunKelda({"inspect", "--json", folder_ / ""});
    EXPECT_EQ(exit_code, result.exit_code) << result.err;
    error_ = result.err;
    directory_ = json::parse(result.out, nullptr, false);
    return directory_;
  }

  bool HasProblems(const std::string& device, const std::string& hrtf, const std::string& mode) {
    for (const json& decision : directory_["decisions"]) {
      if (decision["device"] == device && decision["hrtf"] == hrtf && decision["mode"] == mode) {
        return !decision["problems"].empty();
      }
    }
    ADD_FAILURE() << device << ' ' << hrtf << ' ' << mode << " is missing";
    return false;
  }

  // "NAME is STATE", for each of the names.
  std::string States(const std::set<std::string>& names) {
    std::string text;
    for (const json& file : directory_["files"]) {
      if (!names.contains(file["name"])) {
        continue;
      }
      text.append(file["name"]).append(" is ").append(file["state"]).append("\n");
    }
    return text;
  }

  // Overwrites four bytes of a data file and makes its checksum match again.
  template <typename Word>
  void Patch(const std::string& name, std::size_t at, Word word, const upmix_lib::DataKind& kind) {
    static_assert(sizeof(word) == 4);
    std::string file = folder_.Read(name);
    std::memcpy(&file.at(at), &word, sizeof(word));
    upmix_lib::Seal(std::as_writable_bytes(std::span(file)), kind);
    folder_.Write(name, file);
  }

  const TemporaryFolder folder_;
  json directory_;
  std::string error_;
};

TEST_F(Inspect, AsksTheEngineForEveryApplication) {
  folder_.Write("tunedapp_list", "com.a,MUSIC\ncom.b,OFF\ncom.c,Music\ncom.e&f,MUSIC\n");
  const json directory = Directory();
  std::string apps;
  for (const json& app : directory["applications"]) {
    apps.append(app["package"].is_null() ? "-" : app["package"].get<std::string>()).append(":");
    for (const char* key : {"other", "wired", "wired_flag_1", "bluetooth", "bluetooth_flag_1"}) {
      apps.append(" ").append(app[key]);
    }
    apps += "\n";
  }
  EXPECT_EQ(
      "-: off music cinema music cinema\n"
      "com.a: off music music music music\n"
      "com.b: off off off off off\n",
      apps);
  EXPECT_EQ(json({"com.e&f"}), directory["unaskable_applications"]);
  EXPECT_EQ(json({"tunedapp_list: Line(3): Invalid mode was specified. 'Music'"}),
            directory["warnings"]);
}

TEST_F(Inspect, ToldForAReader) {
  folder_.Write("wired.hki.config", "personalized.hki\r\nsecond line");
  std::filesystem::copy(folder_ / "standard.hki", folder_ / "personalized.hki");
  const ProgramResult result = Succeed({"inspect", folder_ / ""});
  EXPECT_EQ("", result.err);
  for (const char* text :
       {"  standard.hki             ok      HRIR set, version 1, 14648 bytes, checksum ",
        "  other     any            any    pass\n",
        "  wired     standard       cinema upmc  wired.hki.config > personalized.hki, "
        "upmix.cinema.hps.bin\n                                upl   upl.cinema.bin\n",
        "  wired     personalized * off    pass\n"
        "                                hpeq  wired.ba.config > personalized.ba\n"
        "  wired     personalized * music  upmm  wired.hki.config > personalized.hki, "
        "upmix.music.hpp.bin\n                                hpeq  wired.ba.config > "
        "personalized.ba\n                                upl   upl.music.bin\n",
        "  bluetooth standard *     off    pass\n  bluetooth standard *     music  upmm  ",
        "  bluetooth personalized   off    pass\n"
        "                                hpeq  bluetooth.ba.config > personalized.ba\n",
        "  com.example.video                  off       cinema "}) {
    EXPECT_TRUE(Holds(result.out, text));
  }
}

TEST_F(Inspect, TellsWhatIsMissingUnusedOrFaulty) {
  for (const char* name : {"tunedapp_list", "personalized.ba", "bluetooth.ba.config"}) {
    std::filesystem::remove(folder_ / name);
  }
  folder_.Write("notes.txt", "");
  Directory(3);
  EXPECT_EQ(
      "tunedapp_list is missing\nwired.ba.config is faulty\nbluetooth.ba.config is missing\n"
      "personalized.ba is missing\nnotes.txt is unused\n",
      States({"tunedapp_list", "wired.ba.config", "personalized.ba", "bluetooth.ba.config",
              "notes.txt"}));
  EXPECT_TRUE(Holds(error_, "wired.ba.config: it names personalized.ba, which is missing"));
  EXPECT_TRUE(HasProblems("wired", "personalized", "off"));

  std::filesystem::remove(folder_ / "wired.ba.config");  // nothing tuned wants it
  Directory(0);
  std::filesystem::remove(folder_ / "upl.cinema.bin");
  Directory(3);
  EXPECT_TRUE(HasProblems("wired", "tuned", "cinema"));
  EXPECT_FALSE(HasProblems("wired", "tuned", "music"));
  EXPECT_TRUE(Holds(error_, "wired, cinema: KelApUplLum: "));

  std::string ears = folder_.Read("standard.hki");
  ears[5000] = static_cast<char>(ears[5000] ^ 1);
  folder_.Write("standard.hki", ears);
  Directory(3);
  EXPECT_EQ("standard.hki is faulty\n", States({"standard.hki"}));
  EXPECT_TRUE(Holds(error_, "standard.hki: changed: its checksum does not match (status 309): "));
  EXPECT_TRUE(HasProblems("bluetooth", "tuned", "music"));
}

TEST_F(Inspect, EveryKindOfFile) {
  const auto read = [&](const std::string& name) {
    return json::parse(Succeed({"inspect", "--json", folder_ / name}).out, nullptr, false);
  };
  EXPECT_EQ("standard.hki", read("wired.hki.config")["names"]);
  EXPECT_EQ(3u, read("tunedapp_list")["names"].size());
  EXPECT_EQ(-18, read("upl.cinema.bin")["contents"]["target_lufs"]["value"]);
  EXPECT_EQ("dB", read("upmix.cinema.hpp.bin")["contents"]["bass_level_db"]["unit"]);
  EXPECT_EQ(6, read("upmix.music.hps.bin")["contents"]["direct_emphasis"]["default"]);
  const json equalizer = read("personalized.ba")["contents"];
  EXPECT_NEAR(0, equalizer["peak_gain_db"], 0.05);
  EXPECT_EQ(62.5, equalizer["curves"][0]["bands"][1]["freq_hz"]);
  // The delay of a sphere of 8.75 cm (Woodworth): 261 us at 30 degrees, 656 us at 90.
  const json ears = read("standard.hki")["contents"];
  const auto delay_us = [&](std::size_t plane) {
    return ears["planes"][plane]["interaural_delay_us"].get<double>();
  };
  EXPECT_NEAR(261, delay_us(0), 60);
  EXPECT_NEAR(0, delay_us(2), 1);
  EXPECT_NEAR(656, delay_us(3), 120);
  EXPECT_EQ(-delay_us(3), delay_us(4));
  EXPECT_GT(ears["planes"][3]["interaural_level_db"], 3);
  EXPECT_LT(ears["planes"][4]["interaural_level_db"], -3);
}

TEST_F(Inspect, NamesTheValueAndTheLimit) {
  Patch("upl.music.bin", offsetof(upmix_lib::LevelParameters, strength), 1.5f,
        upmix_lib::kLevelKind);
  Patch("personalized.ba", 16 + 16 + 2 * 16 + 4, 30000.0f, upmix_lib::kEqualizerKind);
  Patch("standard.hki", 16, 44100u, upmix_lib::kHrirKind);
  const std::string longer = folder_.Read("upmix.music.hps.bin") + "x";
  folder_.Write("upmix.music.hps.bin", longer.substr(0, 63));
  folder_.Write("upmix.music.hpp.bin", longer);
  folder_.Write("wired.hki.config", "../standard.hki");
  folder_.Write("song.wav", "RIFF....");
  const std::pair<const char*, const char*> kRefused[] = {
      {"upl.music.bin", "strength is 1.5 (0 to 1)"},
      {"personalized.ba", "band 3: type 0 (0 to 6), 30000 Hz (10 to 23000)"},
      {"standard.hki", "not made for 48 kHz (status 406)"},
      {"upmix.music.hps.bin", "64 bytes, the file has 63"},
      {"upmix.music.hpp.bin", "longer than any"},
      {"wired.hki.config", "(status 205)"},
      {"none.ba", "cannot be read: No such file or directory"},
      {"song.wav", "no tuning file"},
  };
  for (const auto& [name, message] : kRefused) {
    ExpectRefused(3, message, {"inspect", folder_ / name});
    ExpectRefused(3, folder_ / name + ": ", {"inspect", folder_ / name});
  }
}

// Whatever files hold and are called, no terminal takes a command from it, and no line end in
// it begins a line of its own.
TEST_F(Inspect, FilesGiveTheTerminalNoCommands) {
  const std::string evil = "\x1b]0;title\x07\x7f\xc2\x9bK\x9b";
  const auto patched = [&](std::string file, std::size_t at, const std::string& text) {
    file.replace(at, text.size(), text);
    upmix_lib::Seal(std::as_writable_bytes(std::span(file)), upmix_lib::kHrirKind);
    return file;
  };
  std::string ears = folder_.Read("standard.hki");
  ears = patched(ears, ears.find("MIT"), evil + "\nfaked");
  ASSERT_NE(std::string::npos, ears.find(evil));
  folder_.Write("standard.hki", ears);
  folder_.Write("wired.ba.config", evil + ".ba");
  folder_.Write("tunedapp_list", evil + ",MUSIC\ncom.example.x," + evil + "\n");
  folder_.Write("scenario", "1 mode=music " + evil + "\r\n");
  folder_.Write(evil + "\nfaked", "");
  WriteAudio(folder_ / "in.wav", Noise(960));

  const std::vector<std::string> render{"render", folder_ / "in.wav", folder_ / "out.wav",
                                        "--tuning", folder_ / ""};
  auto by_scenario = render;
  by_scenario.insert(by_scenario.end(), {"--scenario", folder_ / "scenario"});
  auto with_log = render;
  with_log.insert(with_log.end(), {"--wired-hrtf", "personalized", "--dump"});
  const std::pair<std::vector<std::string>, int> kCommands[] = {
      {{"inspect", folder_ / ""}, 3},
      {{"inspect", "--json", folder_ / ""}, 3},
      {{"inspect", folder_ / "standard.hki"}, 0},
      {{"doctor", "--tuning", folder_ / ""}, 3},
      {by_scenario, 2},
      {with_log, 0}};
  for (const auto& [arguments, exit_code] : kCommands) {
    const ProgramResult result = RunKelda(arguments);
    EXPECT_EQ(exit_code, result.exit_code) << arguments[0] << result.err;
    const std::string shown = result.out + result.err;
    EXPECT_TRUE(Holds(shown, arguments[1] == "--json" ? "\\u001b]0;title" : "\\x1b]0;title\\x07"));
    EXPECT_EQ(std::string::npos, shown.find_first_of("\x1b\x07\x7f\x9b\r"))
        << arguments[0] << shown;
    EXPECT_EQ(std::string::npos, shown.find("\nfaked")) << arguments[0] << shown;
  }
}

TEST(EffectReport, TakesHostileNamesApart) {
  const std::vector<Stage> stages = ParseStages(
      "Upmix:\n    processors:\n"
      "      [*] upmm: hki=wired.hki.config:a, bin=b:c, bin=upmix.music.hps.bin\n"
      "      [ ] hpeq: ba=:\n      [*] upl : bin=\n      [\n      [*] broken\n");
  ASSERT_EQ(3u, stages.size());
  EXPECT_EQ(
      (Stage{"upmm",
             true,
             {{"hki", "wired.hki.config", "a, bin=b:c"}, {"bin", "upmix.music.hps.bin", ""}}}),
      stages[0]);
  EXPECT_EQ((Stage{"hpeq", false, {}}), stages[1]);
  EXPECT_EQ((Stage{"upl", true, {}}), stages[2]);
}

}  // namespace
}  // namespace kelda::tools
