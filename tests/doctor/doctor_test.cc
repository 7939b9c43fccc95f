// kelda doctor on signal libraries that fit, fail and crash, and on damaged tuning.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/tools/program.h"
#include "tests/tools/temporary_folder.h"

namespace kelda::tools {
namespace {

std::string Lines(const ProgramResult& result) { return result.out + result.err; }

// The part of the report on one component: from its heading to the next.
std::string Component(const std::string& report, const std::string& name) {
  const size_t begin = report.find("\n" + name + "\n");
  if (begin == std::string::npos) return "";
  size_t end = report.find('\n', begin + 1);
  while (end + 1 < report.size() && report[end + 1] == ' ') end = report.find('\n', end + 1);
  return report.substr(begin, end - begin);
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(LibraryDoctor, FindsThatTheOpenLibraryFits) {
  const ProgramResult result = RunKelda({"doctor", "--library", KELDA_LIBRARIES});
  EXPECT_EQ(result.exit_code, 0) << Lines(result);
  EXPECT_TRUE(Has(result.out, "symbols: 31 of 31 present\n")) << result.out;
  EXPECT_TRUE(Has(Component(result.out, "music upmix"), "A0559  initialise")) << result.out;
  EXPECT_TRUE(Has(Component(result.out, "level control"), "parameters 64 bytes")) << result.out;
  EXPECT_FALSE(Has(result.out, "does not fit")) << result.out;
  EXPECT_EQ(result.err, "");
}

TEST(LibraryDoctor, FindsEveryFaultAndSurvivesIt) {
  const ProgramResult result = RunKelda({"doctor", "--library", FAULTY, "--tuning", KELDA_TUNING});
  EXPECT_EQ(result.exit_code, 5) << Lines(result);
  EXPECT_TRUE(Has(Component(result.out, "headphone equalizer"), "does not fit: signal 11"))
      << result.out;
  const std::string music = Component(result.out, "music upmix");
  EXPECT_TRUE(Has(music, "work 100 bytes, parameters 64 bytes")) << music;
  EXPECT_TRUE(Has(music, "peak -12.0 dBFS")) << music;
  EXPECT_FALSE(Has(music, "does not fit")) << music;
  const std::string virtualizer = Component(result.out, "virtualizer");
  EXPECT_TRUE(Has(virtualizer, "status -7")) << virtualizer;
  EXPECT_TRUE(Has(virtualizer, "NOT REFUSED")) << virtualizer;
  EXPECT_TRUE(Has(Component(result.out, "cinema upmix"), "it wrote beyond its output"))
      << result.out;
  EXPECT_TRUE(Has(Component(result.out, "level control"), "left with exit code 0")) << result.out;
}

TEST(LibraryDoctor, NamesMissingSymbols) {
  const ProgramResult result = RunKelda({"doctor", "--library", INCOMPLETE});
  EXPECT_EQ(result.exit_code, 5);
  EXPECT_TRUE(Has(result.out, "symbols: 26 of 31 present, missing: A0834 A0557 A0508 A0122 A0217"))
      << result.out;
  EXPECT_FALSE(Has(result.out, "status")) << "it was run: " << result.out;
}

TEST(LibraryDoctor, LooksAtALibraryForAnotherProcessorWithoutRunningIt) {
  const TemporaryFolder folder;
  const std::string copy = folder / "libupmix-lib.so";
  std::filesystem::copy_file(KELDA_LIBRARIES "/libupmix-lib.so", copy);
  std::fstream file(copy, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(18);  // e_machine
  file.put(22).put(0);
  file.close();
  const ProgramResult result = RunKelda({"doctor", "--library", folder / ""});
  EXPECT_EQ(result.exit_code, 5);
  EXPECT_TRUE(Has(result.out, "processor 22, ")) << result.out;
  EXPECT_TRUE(Has(result.out, "symbols: 31 of 31 present\n")) << result.out;
  EXPECT_TRUE(Has(result.out, "nothing of it was run")) << result.out;
}

TEST(LibraryDoctor, RefusesWhatIsNoWholeLibrary) {
  const TemporaryFolder folder;
  EXPECT_EQ(RunKelda({"doctor", "--library", folder / ""}).exit_code, 3);
  folder.Write("libupmix-lib.so", "no library");
  EXPECT_EQ(RunKelda({"doctor", "--library", folder / ""}).exit_code, 3);
  // Cut at every kind of place: its tables are at the end and their offsets lead out.
  const TemporaryFolder whole;
  std::filesystem::copy_file(KELDA_LIBRARIES "/libupmix-lib.so", whole / "libupmix-lib.so");
  const std::string bytes = whole.Read("libupmix-lib.so");
  for (const size_t length : {size_t{17}, size_t{64}, size_t{5000}, bytes.size() - 1}) {
    folder.Write("libupmix-lib.so", bytes.substr(0, length));
    const ProgramResult result = RunKelda({"doctor", "--library", folder / ""});
    EXPECT_EQ(result.exit_code, 3) << length << ": " << Lines(result);
    EXPECT_TRUE(Has(result.err, "damaged") || Has(result.err, "not a shared library"))
        << result.err;
  }
  EXPECT_EQ(RunKelda({"doctor"}).exit_code, 2);
  EXPECT_EQ(RunKelda({"doctor", "--tuning", folder / "none"}).exit_code, 2);
}

// A copy of the default tuning to damage.
class TuningDoctor : public testing::Test {
 protected:
  TuningDoctor() { std::filesystem::copy(KELDA_TUNING, folder_ / "tuning"); }
  std::string Path(const std::string& name) const { return folder_ / ("tuning/" + name); }
  ProgramResult Diagnose() const { return RunKelda({"doctor", "--tuning", folder_ / "tuning"}); }
  // What is heard in a situation.
  static std::string Heard(const ProgramResult& result, const std::string& situation) {
    const size_t begin = result.out.find("  " + situation + " ");
    if (begin == std::string::npos) return "";
    return result.out.substr(begin, result.out.find('\n', begin) - begin);
  }

 private:
  TemporaryFolder folder_;
};

TEST_F(TuningDoctor, FindsTheDefaultTuningWhole) {
  const ProgramResult result = Diagnose();
  EXPECT_EQ(result.exit_code, 0) << Lines(result);
  for (const std::string mode : {"music", "cinema"}) {
    for (const std::string output : {"wired", "bluetooth"}) {
      for (const std::string ears : {"standard", "personalized"}) {
        std::string situation = mode;
        situation.append(", ").append(output).append(", ").append(ears).append(" ears");
        EXPECT_TRUE(Has(Heard(result, situation), "as it should be")) << Lines(result);
      }
    }
  }
  EXPECT_FALSE(Has(result.out, "the effect's log")) << result.out;
}

TEST_F(TuningDoctor, TellsWhatAMissingFileTakesAway) {
  std::filesystem::remove(Path("upl.music.bin"));
  std::filesystem::remove(Path("tunedapp_list"));  // which a whole tuning may lack
  const ProgramResult result = Diagnose();
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_TRUE(Has(result.out, "MISSING  upl.music.bin")) << result.out;
  EXPECT_TRUE(Has(Heard(result, "music, wired, standard ears"), "without level control"));
  EXPECT_TRUE(Has(Heard(result, "cinema, wired, standard ears"), "as it should be"));
  EXPECT_TRUE(Has(result.out, "Loading Upl Library failed due to read upl.music.bin failed\n"));
}

TEST_F(TuningDoctor, TellsWhatADamagedFileTakesAway) {
  std::fstream file(Path("standard.hki"), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(3000);
  file.put('\x55');
  file.close();
  std::filesystem::resize_file(Path("personalized.ba"), 40);
  std::ofstream(Path("tunedapp_list"), std::ios::app) << "com.a,MUSIK\n";
  const ProgramResult result = Diagnose();
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_TRUE(Has(result.out, "DAMAGED  standard.hki")) << result.out;
  EXPECT_TRUE(Has(result.out, "checksum does not match (status 309)")) << result.out;
  EXPECT_TRUE(Has(result.out, "DAMAGED  personalized.ba")) << result.out;
  EXPECT_TRUE(Has(Heard(result, "music, bluetooth, standard ears"), "without music upmix"));
  EXPECT_TRUE(Has(Heard(result, "cinema, bluetooth, personalized ears"),
                  "without cinema upmix, headphone equalizer"));
  EXPECT_TRUE(Has(result.out, "Invalid mode was specified. 'MUSIK'")) << result.out;
}

}  // namespace
}  // namespace kelda::tools
