// `kelda tune upmix`, `cinema`, `level`: parameters from presets.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "tools/core/decimal.h"
#include "tools/presets/parameter_sets.h"
#include "tools/presets/preset_toml.h"
#include "upmix-lib/files/data_file.h"

namespace kelda::tools {
namespace {

using upmix_lib::ParameterField;

class TunePreset : public testing::Test {
 protected:
  std::vector<std::byte> Read(const std::string& preset, const ParameterSet& set) {
    folder_.Write("p.toml", preset);
    return ReadPreset(folder_ / "p.toml", set);
  }

  std::string Wrong(const std::string& preset, const ParameterSet& set) {
    return Refusal(ExitCode::kInput, folder_ / "p.toml", [&] { Read(preset, set); });
  }

  TemporaryFolder folder_;
};

TEST_F(TunePreset, TemplatesHoldTheDefaults) {
  for (const ParameterSet& set : ParameterSets()) {
    const std::string text = PresetTemplate(set);
    EXPECT_EQ(DefaultPreset(set), Read(text, set)) << set.name;
    std::string uncommented;
    std::size_t keys = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line.starts_with("# ")) {
        continue;
      }
      uncommented += line.substr(1) + "\n";
      ++keys;
    }
    EXPECT_EQ(set.meanings.size(), keys) << set.name;
    EXPECT_EQ(DefaultPreset(set), Read(uncommented, set)) << set.name;
  }
}

TEST_F(TunePreset, TakesEveryKeyToItsLimitsAndNoFurther) {
  for (const ParameterSet& set : ParameterSets()) {
    for (std::size_t i = 0; i < set.meanings.size(); ++i) {
      const ParameterField& field = set.fields[i];
      for (const float limit : {field.min, field.max}) {
        const std::string key = std::string(field.name) + " = ";
        const auto parameters = Read(key + FormatFloat(limit), set);
        EXPECT_EQ(limit, ReadParameter(parameters, field)) << set.name << ", " << key;
        EXPECT_EQ(upmix_lib::kOk, upmix_lib::CheckFields(parameters, set.fields));
        const float beyond =
            limit == field.min ? std::nextafter(limit, -1e9f) : std::nextafter(limit, 1e9f);
        const std::string start = ":1: " + std::string(field.name) + " is out of range (";
        EXPECT_EQ(0u, Wrong(key + FormatFloat(beyond), set).find(start)) << key << beyond;
      }
    }
  }
}

TEST_F(TunePreset, NamesLineKeyValueAndRange) {
  EXPECT_EQ(
      ":1: target_lufs is out of range (-50, -36 to -8 LUFS)\n"
      ":2: window_s is not a number (true, 3 to 60 s)\n"
      ":3: strength is out of range (nan, 0 to 1)\n"
      ":4: max_cut_db is not a number ('6 dB', 0 to 40 dB)\n"
      ":5: max_boost_db is out of range (9223372036854775807, 0 to 24 dB)",
      Wrong("target_lufs = -50\nwindow_s = true\nstrength = nan\nmax_cut_db = '6 dB'\n"
            "max_boost_db = 9223372036854775807",
            LevelParameterSet()));
  EXPECT_EQ(0u, Wrong("\nvolume = 3", LevelParameterSet())
                    .find(":2: unknown key 'volume' (3, known: target_lufs, strength, "));
  EXPECT_EQ(0u, Wrong("[room]", RoomParameterSet()).find(":1: unknown key 'room' (a table, "));
  EXPECT_EQ(0u, Wrong("\nwidth = [[", CinemaParameterSet()).find(":2: "));
  EXPECT_EQ(0u, Wrong(std::string(100000, '['), CinemaParameterSet()).find(":1: "));
  EXPECT_EQ(": too large (1048577 bytes, at most 1048576)",
            Wrong(std::string((1 << 20) + 1, '#'), MusicParameterSet()));
}

TEST_F(TunePreset, WritesTheFileOfTheCommand) {
  folder_.Write("p.toml", "output_gain_db = -3");
  const std::pair<const char*, const ParameterSet&> kCases[] = {{"upmix", MusicParameterSet()},
                                                                {"cinema", CinemaParameterSet()}};
  for (const auto& [command, set] : kCases) {
    Succeed({"tune", command, folder_ / "p.toml", "-o", folder_ / "out.bin"});
    std::vector<std::byte> file;
    ASSERT_EQ(upmix_lib::kOk, upmix_lib::ReadDataFile(folder_ / "out.bin", *set.kind, file));
    EXPECT_EQ(-3.0f, ReadParameter(file, set.fields[11]));
  }
  ExpectRefused(3, ":1: unknown key", {"tune", "level", folder_ / "p.toml", "-o", folder_ / "no"});
  ExpectRefused(2, "", {"tune", "level", folder_ / "p.toml"});
  ExpectRefused(4, "", {"tune", "upmix", folder_ / "p.toml", "-o", folder_ / "a/b"});
  ExpectRefused(2, "the input itself",
                {"tune", "upmix", folder_ / "p.toml", "-o", folder_ / "p.toml"});
  EXPECT_EQ(PresetTemplate(LevelParameterSet()), RunKelda({"tune", "level", "--template"}).out);
  EXPECT_EQ((std::set<std::string>{"p.toml", "out.bin"}), folder_.Names());
}

}  // namespace
}  // namespace kelda::tools
