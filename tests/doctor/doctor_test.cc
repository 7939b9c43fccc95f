// kelda doctor on signal libraries that fit, fail and crash, and on damaged tuning.
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
  const std::string report = Doctor(5, {"--library", FAULTY, "--tuning", KELDA_TUNING}).out;
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
  TuningDoctor() { std::filesystem::copy(KELDA_TUNING, folder_ / ""); }

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
  ExpectHeard("music, bluetooth, standard ears", "without music upmix, level control");
  ExpectHeard("cinema, bluetooth, personalized ears", "without cinema upmix, headphone equalizer");
}

}  // namespace
}  // namespace kelda::tools
