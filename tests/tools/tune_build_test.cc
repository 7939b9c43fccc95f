// `kelda tune apps` and `kelda tune build`: lists of applications, whole directories.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "engine/tuned_app_list.h"
#include "tests/tools/audio_files.h"
#include "tests/tools/program.h"
#include "tests/tools/sofa_writer.h"
#include "tools/app_list_check.h"

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
      "l:9: skipped: no mode behind 'com.e.x,'\n"
      "l:10: '' plays in mode music\n"
      "l:11: 'com.f.x' plays in mode off\n",
      check.report);
  EXPECT_EQ(5U, check.entries);
  EXPECT_EQ(2U, check.rejected.count());
  EXPECT_EQ(2U, check.doubtful.count());

  const TemporaryFolder folder;
  folder.Write("tunedapp_list", list);
  setenv("KELDA_DATA_DIR", (folder / "").c_str(), 1);
  TunedAppList engine;
  engine.Reload();
  unsetenv("KELDA_DATA_DIR");
  EXPECT_EQ(UpmixMode::Cinema, engine.GetValue("com.a.player"));
  EXPECT_EQ(UpmixMode::Cinema, engine.GetValue("com.b.video"));
  EXPECT_TRUE(engine.IsExist("") && engine.IsExist("x y") && engine.IsExist("com.f.x"));
  EXPECT_FALSE(engine.IsExist("com.c.x") || engine.IsExist("com.d.x") || engine.IsExist("com.e.x"));
}

TEST(TuneApps, CopiesWhatTheEngineTakesWhole) {
  const TemporaryFolder folder;
  const auto run = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"tune", "apps", folder / "l", "-o", folder / "out"});
    return RunKelda(options);
  };
  folder.Write("l", "com.a.b,MUSIC\r\n\xFF");
  EXPECT_EQ(0, run({}).exit_code);
  EXPECT_EQ(folder.Read("l"), folder.Read("out"));
  folder.Write("l", "com.a.b,MUSIK\n");
  const ProgramResult refused = run({});
  EXPECT_EQ(3, refused.exit_code);
  EXPECT_EQ(folder / "l:1: the engine rejects it: Line(1): Invalid mode was specified. 'MUSIK'\n",
            refused.err);
  EXPECT_NE(folder.Read("l"), folder.Read("out"));
  EXPECT_EQ(0, run({"--keep-rejected"}).exit_code);
  EXPECT_EQ(folder.Read("l"), folder.Read("out"));
  std::string many;
  for (int i = 0; i < 1000000; ++i) many += "a,b\n";
  folder.Write("l", many);
  const ProgramResult long_list = run({});
  EXPECT_EQ(3, long_list.exit_code);
  EXPECT_NE(std::string::npos, long_list.err.find(": and 999980 more\n"));
}

class TuneBuild : public testing::Test {
 protected:
  TuneBuild() {
    WriteSofa(folder_ / "ears.sofa", SphericalHead(15, 48000));
    folder_.Write("eq.txt", "Preamp: -3 dB\n");
    folder_.Write("eq2.txt", "Preamp: -9 dB\n");
    folder_.Write("apps", "com.a.b,CINEMA\n");
    folder_.Write("level.toml", "target_lufs = -20\n");
  }

  ProgramResult Build(const std::string& project) {
    folder_.Write("project.toml", project);
    return RunKelda({"tune", "build", folder_ / "project.toml", "-o", folder_ / "out", "--quiet"});
  }

  std::map<std::string, std::string> Contents(const std::string& directory) const {
    std::map<std::string, std::string> contents;
    for (const auto& entry : fs::directory_iterator(directory)) {
      const std::string name = entry.path().filename().string();
      std::ifstream file(entry.path(), std::ios::binary);
      contents[name] = {std::istreambuf_iterator<char>(file), {}};
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

  TemporaryFolder folder_;
};

TEST_F(TuneBuild, MakesEveryFileOfADirectory) {
  const ProgramResult result = Build(kProject);
  ASSERT_EQ(0, result.exit_code) << result.err;
  const auto built = Contents(folder_ / "out");
  std::set<std::string> names;
  for (const auto& [name, bytes] : built) names.insert(name);
  EXPECT_EQ((std::set<std::string>{
                "tunedapp_list", "standard.hki", "personalized.hki", "wired.hki.config",
                "bluetooth.hki.config", "wired.ba", "bluetooth.ba", "wired.ba.config",
                "bluetooth.ba.config", "upmix.music.hps.bin", "upmix.music.hpp.bin",
                "upmix.cinema.hps.bin", "upmix.cinema.hpp.bin", "upl.music.bin", "upl.cinema.bin"}),
            names);
  EXPECT_EQ("personalized.hki\n", built.at("wired.hki.config"));
  EXPECT_EQ("standard.hki\n", built.at("bluetooth.hki.config"));
  EXPECT_EQ("bluetooth.ba\n", built.at("bluetooth.ba.config"));
  EXPECT_EQ("com.a.b,CINEMA\n", built.at("tunedapp_list"));
  EXPECT_NE(built.at("upl.music.bin"), built.at("upl.cinema.bin"));

  // The engine starts wired headphones with personalized ears, so with their equalizer.
  Audio impulse;
  impulse.samples.assign(8192, 0.0F);
  impulse.samples[0] = 0.5F;
  WriteAudio(folder_ / "in.wav", impulse);
  const std::pair<const char*, double> kDevices[] = {{"wired", -3}, {"bluetooth", 0}};
  for (const auto& [device, gain_db] : kDevices) {
    const ProgramResult rendered =
        RunKelda({"render", folder_ / "in.wav", folder_ / "out.wav", "--mode", "off", "--device",
                  device, "--tuning", folder_ / "out"});
    ASSERT_EQ(0, rendered.exit_code) << rendered.err;
    EXPECT_EQ("", rendered.err);
    EXPECT_NEAR(0.5 * std::pow(10, gain_db / 20), ReadAudio(folder_ / "out.wav").samples[0], 1e-5);
  }
}

TEST_F(TuneBuild, ReplacesADirectoryWholeOrNotAtAll) {
  ASSERT_EQ(0, Build(kProject).exit_code);
  const auto before = Contents(folder_ / "out");
  chmod((folder_ / "out").c_str(), 0750);
  const std::string project = kProject;
  const auto expect_untouched = [&](int exit_code, const std::string& message) {
    const ProgramResult result = Build(project);
    EXPECT_EQ(exit_code, result.exit_code);
    EXPECT_NE(std::string::npos, result.err.find(message)) << result.err;
    EXPECT_TRUE(before == Contents(folder_ / "out")) << message;
  };
  const auto names = folder_.Names();
  folder_.Write("level.toml", "target_lufs = 1\n");
  expect_untouched(3, folder_ / "level.toml:1: target_lufs is out of range (1, -36 to -8 LUFS)\n");
  folder_.Write("level.toml", "");
  folder_.Write("eq2.txt", "Channel: L\n");
  expect_untouched(3, folder_ / "eq2.txt:1: refused");
  folder_.Write("eq2.txt", "Preamp: 0 dB\n");
  folder_.Write("apps", "com.a.b,CINEMA,x\n");
  expect_untouched(3, folder_ / "apps:1: the engine rejects it");
  folder_.Write("apps", "");
  {
    ProgramSurroundings full;
    full.file_size_limit_bytes = 4096;  // less than an HRIR set
    const ProgramResult result = RunKelda(
        {"tune", "build", folder_ / "project.toml", "-o", folder_ / "out", "--quiet"}, full);
    EXPECT_EQ(4, result.exit_code) << result.err;
    EXPECT_TRUE(before == Contents(folder_ / "out"));
  }
  EXPECT_EQ(names, folder_.Names());  // nothing is left beside it

  std::ofstream(folder_ / "out/pcmdump.pcm") << "a capture";
  const ProgramResult foreign = Build(project);
  EXPECT_EQ(4, foreign.exit_code);
  EXPECT_NE(std::string::npos, foreign.err.find("it holds \"pcmdump.pcm\"")) << foreign.err;
  fs::remove(folder_ / "out/pcmdump.pcm");

  // A smaller set: what it no longer has goes.
  const ProgramResult smaller = Build(
      "applications = 'apps'\nhrtf.speaker.sofa = 'ears.sofa'\n"
      "wired = { hrtf = 'speaker', equalizer = 'eq.txt' }\n"
      "bluetooth = { hrtf = 'speaker', equalizer = 'eq.txt' }\n");
  EXPECT_EQ(0, smaller.exit_code) << smaller.err;
  const auto after = Contents(folder_ / "out");
  EXPECT_TRUE(after.contains("speaker.hki") && after.contains("personalized.ba"));
  EXPECT_FALSE(after.contains("standard.hki") || after.contains("wired.ba"));
  struct stat status {};
  ASSERT_EQ(0, stat((folder_ / "out").c_str(), &status));
  EXPECT_EQ(0750U, status.st_mode & 0777U);
  EXPECT_EQ(names, folder_.Names());
}

TEST_F(TuneBuild, NamesWhatIsWrongWithAProject) {
  const std::string name = folder_ / "project.toml";
  const ProgramResult result = Build(
      "wired = { hrtf = 'mine', equalizer = 3, volume = 1 }\n"
      "[hrtf.standard]\ntaps = 2000\nsymmetric = 1\n");
  EXPECT_EQ(3, result.exit_code);
  const std::string lines[] = {
      ":1: applications is missing",
      std::string(":1: wired.hrtf has no table of its own ('mine', known: those of ") +
          "[hrtf.standard], [hrtf.personalized] and [hrtf.speaker] that are given)",
      ":1: wired.equalizer is not a text (3)",
      ":1: unknown key 'wired.volume' (1, known: equalizer, hrtf)",
      ":2: hrtf.standard.sofa is missing",
      ":3: hrtf.standard.taps is out of range (2000, 64 to 1024)",
      ":4: hrtf.standard.symmetric is neither true nor false (1)",
      ":1: bluetooth is missing: which ears and equalizer it has",
  };
  for (const std::string& line : lines) {
    EXPECT_NE(std::string::npos, result.err.find(name + line + "\n")) << line << result.err;
  }
  const std::string missing = kProject;
  fs::remove(folder_ / "ears.sofa");
  EXPECT_EQ(folder_ / "ears.sofa: cannot be opened\n", Build(missing).err);
}

// The template is a project as soon as its files are there.
TEST_F(TuneBuild, BuildsItsTemplate) {
  const ProgramResult shown = RunKelda({"tune", "build", "--template"});
  fs::rename(folder_ / "apps", folder_ / "applications.txt");
  fs::copy(folder_ / "eq.txt", folder_ / "wired ParametricEQ.txt");
  fs::copy(folder_ / "eq.txt", folder_ / "bluetooth ParametricEQ.txt");
  const ProgramResult result = Build(shown.out);
  EXPECT_EQ(0, result.exit_code) << result.err;
}

}  // namespace
}  // namespace kelda::tools
