// `kelda inspect`: what files hold, and what the real engine does with them.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>

#include "tests/tools/program.h"
#include "tools/effect_report.h"
#include "tools/inspected_file.h"
#include "upmix-lib/data_file.h"
#include "upmix-lib/equalizer_file.h"

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
    return json::parse(result.out, nullptr, false);
  }

  static json Decision(const json& directory, const std::string& device, const std::string& hrtf,
                       const std::string& mode) {
    for (const json& decision : directory["decisions"]) {
      if (decision["device"] == device && decision["hrtf"] == hrtf && decision["mode"] == mode) {
        return decision;
      }
    }
    return {};
  }

  // "upmm(wired.hki.config>standard.hki upmix.music.hps.bin) ..." of the stages that run.
  static std::string Running(const json& decision) {
    std::vector<std::string> words;
    for (const json& stage : decision["stages"]) {
      if (!stage["runs"]) {
        continue;
      }
      std::vector<std::string> files;
      for (const json& file : stage["files"]) {
        files.push_back(file["file"]);
        if (file.contains("names")) {
          files.back().append(">").append(file["names"]);
        }
      }
      words.push_back(stage["name"]);
      if (!files.empty()) {
        words.back().append("(").append(Joined(files)).append(")");
      }
    }
    return Joined(words);
  }

  static std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
      text.append(text.empty() ? "" : " ").append(word);
    }
    return text;
  }

  static std::string State(const json& directory, const std::string& name) {
    for (const json& file : directory["files"]) {
      if (file["name"] == name) {
        return file["state"];
      }
    }
    return "not told";
  }

  // Overwrites bytes of a data file and makes its checksum match again.
  void Patch(const std::string& name, size_t at, const void* bytes, size_t count,
             const upmix_lib::DataKind& kind) {
    std::string file = folder_.Read(name);
    std::memcpy(&file.at(at), bytes, count);
    upmix_lib::Seal(std::as_writable_bytes(std::span(file)), kind);
    folder_.Write(name, file);
  }

  void ExpectRefused(const std::string& name, const std::string& message) {
    const ProgramResult result = RunKelda({"inspect", folder_ / name});
    EXPECT_EQ(3, result.exit_code);
    EXPECT_EQ("", result.out);
    EXPECT_TRUE(result.err.starts_with(folder_ / name + ": ")) << result.err;
    EXPECT_NE(std::string::npos, result.err.find(message)) << result.err;
  }

  const TemporaryFolder folder_;
  std::string error_;
};

TEST_F(Inspect, AsksTheEngineForEveryDecision) {
  folder_.Write("wired.hki.config", "personalized.hki\r\nsecond line");
  std::filesystem::copy(folder_ / "standard.hki", folder_ / "personalized.hki");
  const json directory = Directory();
  EXPECT_EQ(36U, directory["decisions"].size());
  const auto running = [&](const char* device, const char* hrtf, const char* mode) {
    return Running(Decision(directory, device, hrtf, mode));
  };
  for (const char* hrtf : {"tuned", "standard", "personalized"}) {
    for (const char* mode : {"off", "music", "cinema", "auto"}) {
      EXPECT_EQ("pass", running("other", hrtf, mode));
    }
  }
  const std::string wired_music =
      "upmm(wired.hki.config>personalized.hki upmix.music.hpp.bin) "
      "hpeq(wired.ba.config>personalized.ba) upl(upl.music.bin)";
  EXPECT_EQ(wired_music, running("wired", "tuned", "music"));
  EXPECT_EQ(wired_music, running("wired", "personalized", "music"));
  EXPECT_EQ(wired_music, running("wired", "tuned", "auto"));
  EXPECT_EQ("pass hpeq(wired.ba.config>personalized.ba)", running("wired", "tuned", "off"));
  EXPECT_EQ("upmc(wired.hki.config>personalized.hki upmix.cinema.hps.bin) upl(upl.cinema.bin)",
            running("wired", "standard", "cinema"));
  EXPECT_EQ("upmm(bluetooth.hki.config>standard.hki upmix.music.hps.bin) upl(upl.music.bin)",
            running("bluetooth", "tuned", "music"));
  EXPECT_EQ("pass", running("bluetooth", "tuned", "off"));
}

TEST_F(Inspect, AsksTheEngineForEveryApplication) {
  folder_.Write("tunedapp_list",
                "\"com.a\" , CINEMA \r\ncom.b,OFF\n# no comment,MUSIC\ncom.c,Music\ncom.d,MUSIC,x\n"
                "com.a,MUSIC\ncom.e&f,MUSIC\nno entry\n");
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
      "com.b: off off off off off\n"
      "# no comment: off music music music music\n",
      apps);
  EXPECT_EQ(json({"com.e&f"}), directory["unaskable_applications"]);
  EXPECT_EQ(json({"tunedapp_list: Line(4): Invalid mode was specified. 'Music'",
                  "tunedapp_list: Line(5): There are more separator descriptions than expected."}),
            directory["warnings"]);
}

TEST_F(Inspect, ToldForAReader) {
  const ProgramResult result = RunKelda({"inspect", folder_ / ""});
  EXPECT_EQ(0, result.exit_code);
  EXPECT_EQ("", result.err);
  for (const char* text :
       {"  standard.hki             ok      HRIR set, version 1, 14648 bytes, checksum ",
        "  other     any            any    pass\n",
        "  wired     standard *     music  upmm  wired.hki.config > standard.hki, "
        "upmix.music.hps.bin\n                                upl   upl.music.bin\n",
        "  wired     personalized   off    pass\n"
        "                                hpeq  wired.ba.config > personalized.ba\n",
        "  com.example.video                  off       cinema "}) {
    EXPECT_NE(std::string::npos, result.out.find(text)) << text << "\n" << result.out;
  }
}

TEST_F(Inspect, TellsWhatIsMissingUnusedOrFaulty) {
  std::filesystem::remove(folder_ / "tunedapp_list");
  std::filesystem::remove(folder_ / "personalized.ba");
  std::filesystem::remove(folder_ / "bluetooth.ba.config");
  folder_.Write("notes.txt", "");
  json directory = Directory(3);
  EXPECT_EQ("missing", State(directory, "tunedapp_list"));
  EXPECT_EQ("faulty", State(directory, "wired.ba.config"));
  EXPECT_EQ("missing", State(directory, "personalized.ba"));
  EXPECT_EQ("missing", State(directory, "bluetooth.ba.config"));
  EXPECT_EQ("unused", State(directory, "notes.txt"));
  EXPECT_NE(std::string::npos,
            error_.find("wired.ba.config: it names personalized.ba, which is missing"));
  EXPECT_FALSE(Decision(directory, "wired", "personalized", "off")["problems"].empty());

  std::filesystem::remove(folder_ / "wired.ba.config");  // nothing tuned wants it
  Directory(0);
  std::filesystem::remove(folder_ / "upl.cinema.bin");
  directory = Directory(3);
  EXPECT_FALSE(Decision(directory, "wired", "tuned", "cinema")["problems"].empty());
  EXPECT_TRUE(Decision(directory, "wired", "tuned", "music")["problems"].empty());
  EXPECT_NE(std::string::npos, error_.find("wired, cinema: KelApUplLum: ")) << error_;

  std::string ears = folder_.Read("standard.hki");
  ears[5000] = static_cast<char>(ears[5000] ^ 1);
  folder_.Write("standard.hki", ears);
  directory = Directory(3);
  EXPECT_EQ("faulty", State(directory, "standard.hki"));
  EXPECT_NE(std::string::npos,
            error_.find("standard.hki: changed: its checksum does not match (status 309): "));
  EXPECT_FALSE(Decision(directory, "bluetooth", "tuned", "music")["problems"].empty());
}

TEST_F(Inspect, EveryKindOfFile) {
  const auto read = [&](const std::string& name) {
    const ProgramResult result = RunKelda({"inspect", "--json", folder_ / name});
    EXPECT_EQ(0, result.exit_code) << result.err;
    return json::parse(result.out, nullptr, false);
  };
  EXPECT_EQ("standard.hki", read("wired.hki.config")["names"]);
  EXPECT_EQ(3U, read("tunedapp_list")["names"].size());
  EXPECT_EQ(-18, read("upl.cinema.bin")["contents"]["target_lufs"]["value"]);
  EXPECT_EQ("dB", read("upmix.cinema.hpp.bin")["contents"]["bass_level_db"]["unit"]);
  EXPECT_EQ(6, read("upmix.music.hps.bin")["contents"]["direct_emphasis"]["default"]);
  const json equalizer = read("personalized.ba")["contents"];
  EXPECT_NEAR(0, equalizer["peak_gain_db"], 0.05);
  EXPECT_EQ(62.5, equalizer["curves"][0]["bands"][1]["freq_hz"]);
  // The delay of a sphere of 8.75 cm (Woodworth): 261 us at 30 degrees, 656 us at 90.
  const json ears = read("standard.hki")["contents"];
  const auto delay_us = [&](size_t plane) {
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
  const float strength = 1.5F;
  Patch("upl.music.bin", offsetof(upmix_lib::LevelParameters, strength), &strength, 4,
        upmix_lib::kLevelKind);
  ExpectRefused("upl.music.bin", "strength is 1.5 (0 to 1)");
  const float freq_hz = 30000;
  Patch("personalized.ba", 16 + 16 + 2 * 16 + 4, &freq_hz, 4, upmix_lib::kEqualizerKind);
  ExpectRefused("personalized.ba", "band 3: type 0 (0 to 6), 30000 Hz (10 to 23000)");
  const uint32_t rate_hz = 44100;
  Patch("standard.hki", 16, &rate_hz, 4, upmix_lib::kHrirKind);
  ExpectRefused("standard.hki", "not made for 48 kHz (status 406)");
  std::string longer = folder_.Read("upmix.music.hps.bin") + "x";
  folder_.Write("upmix.music.hps.bin", longer.substr(0, 63));
  ExpectRefused("upmix.music.hps.bin", "64 bytes, the file has 63");
  folder_.Write("upmix.music.hps.bin", longer);
  ExpectRefused("upmix.music.hps.bin", "longer than any");
  folder_.Write("wired.hki.config", "../standard.hki");
  ExpectRefused("wired.hki.config", "(status 205)");
  ExpectRefused("none.ba", "missing (status 301)");
  folder_.Write("song.wav", "RIFF....");
  ExpectRefused("song.wav", "no tuning file");
}

// Whatever is in a file, it is either shown or refused with a reason.
TEST_F(Inspect, SurvivesAnyFile) {
  const uint32_t seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto inspect = [&](const std::string& name) {
    const InspectedFile file = InspectFile(folder_ / name);
    EXPECT_EQ(file.problem.empty(), !file.text.empty()) << name << ": " << file.problem;
    return !file.problem.empty();
  };
  const std::pair<const char*, const upmix_lib::DataKind&> kFiles[] = {
      {"standard.hki", upmix_lib::kHrirKind},
      {"personalized.ba", upmix_lib::kEqualizerKind},
      {"upmix.music.hps.bin", upmix_lib::kMusicKind},
      {"upl.music.bin", upmix_lib::kLevelKind}};
  int refused = 0;
  for (const auto& [name, kind] : kFiles) {
    const std::string whole = folder_.Read(name);
    for (size_t length = 0; length < whole.size();
         length += 1 + random() % 40 * whole.size() / 500) {
      folder_.Write(name, whole.substr(0, length));
      EXPECT_TRUE(inspect(name)) << length;
      if (length >= 16) {  // sealed at a wrong length
        std::string cut = whole.substr(0, length);
        upmix_lib::Seal(std::as_writable_bytes(std::span(cut)), kind);
        folder_.Write(name, cut);
        EXPECT_TRUE(inspect(name)) << length;
      }
    }
    for (int i = 0; i < 30; ++i) {
      folder_.Write(name, whole);
      const auto word = static_cast<uint32_t>(random());
      // The first words behind the header are the ones that counts and types are in.
      Patch(name, 16 + 4 * (random() % (std::min<size_t>(whole.size(), 80) / 4 - 4)), &word, 4,
            kind);
      refused += inspect(name) ? 1 : 0;
    }
  }
  EXPECT_GT(refused, 25);
}

TEST(EffectReport, TakesHostileNamesApart) {
  const std::vector<Stage> stages = ParseStages(
      "Upmix:\n    processors:\n"
      "      [*] upmm: hki=wired.hki.config:a, bin=b:c, bin=upmix.music.hps.bin\n"
      "      [ ] hpeq: ba=:\n      [*] upl : bin=\n      [\n      [*] broken\n");
  ASSERT_EQ(3U, stages.size());
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
