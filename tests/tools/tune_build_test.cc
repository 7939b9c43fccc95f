// `kelda tune apps` and `kelda tune build`: lists of applications, whole directories.
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

#include "tests/laboratory/audio_files.h"
#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "tests/tools/sofa_writer.h"
#include "tools/tune/app_list_check.h"
#include "upmix-lib/level/level_parameters.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

TEST(TuneApps, SaysWhatTheEngineDoesWithEveryLine) {
  const std::string list =
      "com.a.player,MUSIC\ncom.b.video , CINEMA \r\n# comment\n\n\"com.a.player\", \"CINEMA\"\n"
      "com.c.x,Music\ncom.d.x,MUSIC,,\nx y,OFF\ncom.e.x,\n,MUSIC\ncom.f.x,OFF,";
  const AppListCheck check = CheckAppList("l", list);
  EXPECT_EQ(
      "l:1: 'com.a.player' plays in mode music, but line 5 replaces it\n"
      "l:2: 'com.b.video' plays in mode cinema\n"
      "l:3: skipped: no comma in '# comment'\n"
      "l:4: skipped: empty\n"
      "l:5: 'com.a.player' plays in mode cinema\n"
      "l:6: rejected: Line(6): Invalid mode was specified. 'Music'\n"
      "l:7: rejected: Line(7): There are more separator descriptions than expected.\n"
      "l:8: 'x y' plays in mode off\n"
      "l:9: skipped: no mode after 'com.e.x,'\n"
      "l:10: '' plays in mode music\n"
      "l:11: 'com.f.x' plays in mode off\n",
      check.report);
  EXPECT_EQ(5u, check.entries);
  EXPECT_EQ(2u, check.rejected.count());
  EXPECT_EQ(2u, check.doubtful.count());
}

TEST(TuneApps, CopiesWhatTheEngineTakesWhole) {
  const TemporaryFolder folder;
  std::vector<std::string> apps{"tune", "apps", folder / "l", "-o", folder / "out"};
  folder.Write("l", "com.a.b,MUSIC\r\n\xFF");
  Succeed(apps);
  EXPECT_EQ(folder.Read("l"), folder.Read("out"));
  std::string many;
  for (int i = 0; i < 1000000; ++i) {
    many += "a,b\n";
  }
  folder.Write("l", many);
  EXPECT_TRUE(Holds(RunKelda(apps).err, ": and 999980 more\n"));
  folder.Write("l", "com.a.b,MUSIK\n");
  const ProgramResult refused = RunKelda(apps);
  EXPECT_EQ(3, refused.exit_code);
  EXPECT_EQ(folder / "l:1: the engine rejects it: Line(1): Invalid mode was specified. 'MUSIK'\n",
            refused.err);
  EXPECT_NE(folder.Read("l"), folder.Read("out"));
  apps.emplace_back("--keep-rejected");
  Succeed(apps);
  EXPECT_EQ(folder.Read("l"), folder.Read("out"));
}

class TuneBuild : public testing::Test {
 protected:
  TuneBuild() {
    WriteSofa(folder_ / "ears.sofa", SphericalHead(15, 48000));
    folder_.Write("eq.txt", "Preamp: -3 dB\n");
    folder_.Write("eq2.txt", "Preamp: -9 dB\n");
    folder_.Write("apps", "com.a.b,CINEMA\n");
    folder_.Write("level.toml", "target_lufs = -20\nlimiter_release_ms = 120\n");
    folder_.Write("project.toml", kProject);
  }

  using Contents = std::map<std::string, std::string>;

  Contents Built() const {
    Contents contents;
    for (const auto& entry : fs::directory_iterator(folder_ / "out")) {
      const std::string name = entry.path().filename().string();
      if (!name.starts_with('.')) {
        contents[name] = folder_.Read("out/" + name);
      }
    }
    return contents;
  }

  static constexpr const char* kProject =
      "applications = 'apps'\n"
      "hrtf.standard.sofa = 'ears.sofa'\n"
      "hrtf.personalized = { sofa = 'ears.sofa', taps = 128 }\n"
      "wired = { hrtf = 'personalized', equalizer = 'eq.txt' }\n"
      "bluetooth = { hrtf = 'standard', equalizer = 'eq2.txt' }\n"
      "level.cinema = 'level.toml'\n";

  const TemporaryFolder folder_;
  const std::string project_ = folder_ / "project.toml";
  std::vector<std::string> build_{"tune", "build", project_, "-o", folder_ / "out", "--quiet"};
};

TEST_F(TuneBuild, MakesEveryFileOfADirectory) {
  Succeed(build_);
  Contents built = Built();
  EXPECT_NE(built["upl.music.bin"], built["upl.cinema.bin"]);
  for (const char* name : {"standard.hki", "personalized.hki", "wired.ba", "bluetooth.ba",
                           "upmix.music.hps.bin", "upmix.music.hpp.bin", "upmix.cinema.hps.bin",
                           "upmix.cinema.hpp.bin", "upl.music.bin", "upl.cinema.bin"}) {
    EXPECT_EQ(1u, built.erase(name)) << name;
  }
  EXPECT_EQ((Contents{{"wired.hki.config", "personalized.hki\n"},
                      {"bluetooth.hki.config", "standard.hki\n"},
                      {"wired.ba.config", "wired.ba\n"},
                      {"bluetooth.ba.config", "bluetooth.ba\n"},
                      {"tunedapp_list", "com.a.b,CINEMA\n"}}),
            built);
  EXPECT_TRUE(Holds(folder_.Read("out/.kelda-tune-build"), " wired.ba\n"));

  // The engine starts wired headphones with personalized ears, so with their equalizer.
  Audio impulse;
  impulse.samples.assign(8192, 0.0f);
  impulse.samples[0] = 0.5f;
  WriteAudio(folder_ / "in.wav", impulse);
  const std::pair<const char*, double> kDevices[] = {{"wired", -3}, {"bluetooth", 0}};
  for (const auto& [device, gain_db] : kDevices) {
    const ProgramResult rendered =
        Succeed({"render", "-yq", folder_ / "in.wav", folder_ / "out.wav", "--mode", "off",
                 "--device", device, "--tuning", folder_ / "out"});
    EXPECT_EQ("", rendered.err);
    EXPECT_NEAR(0.5 * std::pow(10, gain_db / 20), ReadAudio(folder_ / "out.wav").samples[0], 1e-5);
  }
}

// Only the level files differ: no levelling, and a gain, which an equalizer that is quieter by 6 dB
// raises by as much.
TEST_F(TuneBuild, MeasuresTheGainWithWhichMusicIsAsLoudAsTheInput) {
  const auto gain_db = [&](const char* preamp) {
    folder_.Write("eq.txt", preamp);
    folder_.Write("eq2.txt", preamp);
    folder_.Write("asinput.toml", folder_.Read("project.toml") + "level.as_input = true\n");
    Succeed({"tune", "build", folder_ / "asinput.toml", "-o", folder_ / "as", "--quiet"});
    upmix_lib::LevelParameters parameters;
    const std::string file = folder_.Read("as/upl.music.bin");
    std::memcpy(static_cast<void*>(&parameters), file.data(), sizeof(parameters));
    EXPECT_EQ(parameters.strength, 0.0f);
    return double{parameters.gain_db};
  };
  const double loud_db = gain_db("Preamp: 0 dB\n");
  upmix_lib::LevelParameters cinema;  // whose preset names the release
  const std::string file = folder_.Read("as/upl.cinema.bin");
  std::memcpy(static_cast<void*>(&cinema), file.data(), sizeof(cinema));
  EXPECT_EQ(cinema.ceiling_dbtp, -0.1f);
  EXPECT_EQ(cinema.limiter_release_ms, 120.0f);
  // Of the two devices only wired starts with personalized ears, and so with its equalizer.
  EXPECT_NEAR(gain_db("Preamp: -6 dB\n") - loud_db, 3.0, 0.01);
  folder_.Write("eq.txt", "Preamp: -60 dB\n");
  ExpectRefused(3, "to be as loud as the input",
                {"tune", "build", folder_ / "asinput.toml", "-o", folder_ / "no", "--quiet"});
  EXPECT_FALSE(std::filesystem::exists(folder_ / "no"));
}

TEST_F(TuneBuild, ReplacesADirectoryWholeOrNotAtAll) {
  Succeed(build_);
  const Contents before = Built();
  auto names = folder_.Names();
  const auto expect_untouched = [&](int exit_code, const std::string& message,
                                    const ProgramSurroundings& surroundings = {}) {
    ExpectRefused(exit_code, message, build_, surroundings);
    EXPECT_TRUE(before == Built()) << message;
    EXPECT_EQ(names, folder_.Names());  // nothing is left beside it
  };
  const struct {
    const char* file;
    const char* wrong;
    const char* good;
    const char* message;
  } kCases[] = {
      {"level.toml", "target_lufs = 1\n", "",
       ":1: target_lufs is out of range (1, -36 to -8 LUFS)\n"},
      {"eq2.txt", "Channel: L\n", "Preamp: 0 dB\n", ":1: Channel is refused"},
      {"apps", "com.a.b,CINEMA,x\n", "", ":1: the engine rejects it"},
  };
  for (const auto& [file, wrong, good, message] : kCases) {
    folder_.Write(file, wrong);
    expect_untouched(3, folder_ / file + message);
    folder_.Write(file, good);
  }
  expect_untouched(4, "", {.file_size_limit_bytes = 4096});  // less than an HRIR set
  expect_untouched(130, "", {.pending_signal = SIGINT});
  // What somebody else made stays: tuning, or what took the place of a file of the build.
  for (const std::string name : {"pcmdump.pcm", "mine.ba", "personalized.hki"}) {
    const std::string made = folder_.Read("out/" + name);
    folder_.Write("out/" + name, "the user's own");
    ExpectRefused(4,
                  "kelda: " + folder_ / "out: not replaced, '" + name +
                      "' in it is not as an earlier build left it\n",
                  build_);
    EXPECT_EQ("the user's own", folder_.Read("out/" + name));
    if (made.empty()) {
      fs::remove(folder_ / "out/" + name);
    } else {
      folder_.Write("out/" + name, made);
    }
  }

  // A smaller set, through a link: what it no longer has goes, the permissions stay, and so do
  // the link and folders that have the look of the build's own.
  fs::permissions(folder_ / "out", fs::perms{0750});
  for (const char* other : {"out.new-ABCDEF", "out.new1", "out.old1", "link.new1"}) {
    fs::create_directory(folder_ / other);
  }
  fs::create_directory_symlink("out", folder_ / "link");
  build_[4] = folder_ / "link";
  names = folder_.Names();
  folder_.Write("project.toml",
                "applications = 'apps'\nhrtf.speaker.sofa = 'ears.sofa'\n"
                "wired = { hrtf = 'speaker', equalizer = 'eq.txt' }\n"
                "bluetooth = { hrtf = 'speaker', equalizer = 'eq.txt' }\n");
  Succeed(build_);
  const Contents after = Built();
  EXPECT_TRUE(after.contains("speaker.hki") && after.contains("personalized.ba"));
  EXPECT_FALSE(after.contains("standard.hki") || after.contains("wired.ba"));
  EXPECT_EQ(fs::perms{0750}, fs::status(folder_ / "out").permissions());
  EXPECT_EQ("out", fs::read_symlink(folder_ / "link"));
  EXPECT_EQ(names, folder_.Names());
  build_[4] = folder_ / "out/.";
  Succeed(build_);
}

TEST_F(TuneBuild, NamesWhatIsWrongWithAProject) {
  folder_.Write("project.toml",
                "wired = { hrtf = 'mine', equalizer = 3, volume = 1 }\n"
                "[hrtf.standard]\ntaps = 2000\nsymmetric = 1\nroom = 'room.toml'\n"
                "[music]\npersonalized = 'none/music.toml'\n[level]\nmusic = '.'\n"
                "[hrtf.speaker]\nsofa = ''\ntaps = 100.7\nroom = ''\nless_colour = 1.0000001\n");
  const ProgramResult result = RunKelda(build_);
  EXPECT_EQ(3, result.exit_code);
  const std::string kMissing = ": No such file or directory";
  const std::string lines[] = {
      ":1: applications is missing",
      std::string(":1: wired.hrtf has no table of its own ('mine', known: those of ") +
          "[hrtf.standard], [hrtf.personalized] and [hrtf.speaker] that are given)",
      ":1: wired.equalizer is not a text (3)",
      ":1: unknown key 'wired.volume' (1, known: equalizer, hrtf)",
      ":2: hrtf.standard.sofa is missing",
      ":3: hrtf.standard.taps is out of range (2000, 64 to 1024)",
      ":4: hrtf.standard.symmetric is neither true nor false (1)",
      ":1: bluetooth is missing; it names the ears and the equalizer of the device",
      ":5: hrtf.standard.room cannot be read: '" + folder_ / "room.toml'" + kMissing,
      ":7: music.personalized cannot be read: '" + folder_ / "none/music.toml'" + kMissing,
      ":9: level.music cannot be read: '" + folder_ / ".': not a regular file",
      ":11: hrtf.speaker.sofa is empty",
      ":12: hrtf.speaker.taps is not a whole number (100.7)",
      ":13: hrtf.speaker.room is empty",
      ":14: hrtf.speaker.less_colour is out of range (1.0000001, 0 to 1)",
  };
  for (const std::string& line : lines) {
    EXPECT_TRUE(Holds(result.err, project_ + line + "\n"));
  }
}

// The template is a project as soon as its files are there.
TEST_F(TuneBuild, BuildsItsTemplate) {
  folder_.Write("project.toml", Succeed({"tune", "build", "--template"}).out);
  fs::rename(folder_ / "apps", folder_ / "applications.txt");
  fs::copy(folder_ / "eq.txt", folder_ / "wired ParametricEQ.txt");
  fs::copy(folder_ / "eq.txt", folder_ / "bluetooth ParametricEQ.txt");
  Succeed(build_);
}

}  // namespace
}  // namespace kelda::tools
