// The files that an integrator copies: well formed, and in agreement with the library.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hardware/audio_effect.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>

#include "tests/packaging/shell.h"

namespace kelda::packaging {
namespace {

const std::string kEffects = ProjectPath("packaging/android/audio_effects.xml");

// The value of an XPath expression; namespaces are left out by local-name().
std::string XPath(const std::string& expression) {
  const ShellResult value = Shell("xmllint --xpath \"string(" + expression + ")\" " + kEffects);
  EXPECT_EQ(value.exit_code, 0) << value.out;
  return value.out.substr(0, value.out.find('\n'));
}

bool Validates(const std::string& file) {
  return Shell("xmllint --noout --relaxng " + ProjectPath("tests/packaging/audio_effects.rng") +
               " " + file)
             .exit_code == 0;
}

class TemporaryFile {
 public:
  TemporaryFile() { fclose(fdopen(mkstemp(path_), "w")); }
  ~TemporaryFile() { unlink(path_); }
  const char* path() const { return path_; }
  void Write(const std::string& text) { std::ofstream(path_) << text; }

 private:
  char path_[32] = "/tmp/kelda-packaging-XXXXXX";
};

TEST(AudioEffects, KeepsToTheGrammar) {
  EXPECT_TRUE(Validates(kEffects));
  // The grammar refuses what the framework's parser refuses.
  const std::string text = ProjectFile("packaging/android/audio_effects.xml");
  TemporaryFile copy;
  for (const auto& [from, to] :
       {std::pair{"type=\"music\"", "type=\"musik\""}, std::pair{"6f10\"", "6f1\""},
        std::pair{"version=\"2.0\"", "version=\"1.0\""}, std::pair{" path=\"libkelupmix.so\"", ""},
        std::pair{"<apply effect=\"kelda_upmix\"/>", ""}}) {
    std::string broken = text;
    ASSERT_NE(broken.find(from), std::string::npos) << from;
    broken.replace(broken.find(from), std::string(from).size(), to);
    copy.Write(broken);
    EXPECT_FALSE(Validates(copy.path())) << from;
  }
}

TEST(AudioEffects, NamesTheLibraryAndItsEffect) {
  void* const library = dlopen(KELDA_LIBRARY, RTLD_NOW);
  ASSERT_NE(library, nullptr) << dlerror();
  const auto* const info = static_cast<const audio_effect_library_t*>(dlsym(library, "AELI"));
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(XPath("//*[local-name()='library']/@path"), "libkelupmix.so");
  const std::string uuid = XPath("//*[local-name()='effect']/@uuid");
  audio_uuid_t parsed{};
  ASSERT_EQ(std::sscanf(uuid.c_str(), "%8x-%4hx-%4hx-%4hx-%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx",
                        &parsed.timeLow, &parsed.timeMid, &parsed.timeHiAndVersion,
                        &parsed.clockSeq, &parsed.node[0], &parsed.node[1], &parsed.node[2],
                        &parsed.node[3], &parsed.node[4], &parsed.node[5]),
            10);
  effect_descriptor_t descriptor;
  EXPECT_EQ(info->get_descriptor(&parsed, &descriptor), 0) << uuid;
  // Its entries refer to one another.
  EXPECT_EQ(XPath("//*[local-name()='effect']/@library"),
            XPath("//*[local-name()='library']/@name"));
  EXPECT_EQ(XPath("//*[local-name()='apply']/@effect"), XPath("//*[local-name()='effect']/@name"));
}

TEST(InitFragment, CreatesTheLibrarysDirectory) {
  const std::string constant = ProjectFile("platform/android/data_directory.cc");
  const size_t begin = constant.find("\"/");
  const std::string directory =
      constant.substr(begin + 1, constant.find('"', begin + 1) - begin - 1);
  EXPECT_NE(ProjectFile("packaging/android/kelda.rc")
                .find("\non post-fs-data\n    mkdir " + directory + " 0750 audioserver audio\n"),
            std::string::npos);
  EXPECT_NE(ProjectFile("packaging/android/sepolicy/file_contexts").find(directory + "(/.*)?"),
            std::string::npos);
  EXPECT_NE(ProjectFile("packaging/android/kelda-adb").find("\ndirectory=" + directory + "\n"),
            std::string::npos);
}

TEST(Properties, AreThoseThatTheLibraryReadsAndEachHasAContext) {
  const std::string library = [] {
    std::ifstream file(KELDA_LIBRARY, std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(file), {}};
  }();
  std::istringstream defaults(ProjectFile("packaging/android/kelda.prop"));
  int count = 0;
  for (std::string line; std::getline(defaults, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::string name = line.substr(0, line.find('='));
    EXPECT_NE(library.find(name + '\0'), std::string::npos) << name;
    EXPECT_NE(ProjectFile("packaging/android/sepolicy/property_contexts").find(name + ' '),
              std::string::npos)
        << name;
    ++count;
  }
  EXPECT_EQ(count, 2);
}

TEST(SecurityPolicy, CompilesAndNamesWhatItDefines) {
  const std::string folder = ProjectPath("packaging/android/sepolicy/");
  char work[] = "/tmp/kelda-policy-XXXXXX";
  ASSERT_NE(mkdtemp(work), nullptr);
  const std::string module = std::string(work) + "/kelda";
  const ShellResult compiled =
      Shell("m4 " + ProjectPath("tests/packaging/sepolicy_macros.m4") + " " + folder + "file.te " +
            folder + "property.te " + folder + "hal_audio_default.te > " + module +
            ".te && checkmodule -M -m -o " + module + ".mod " + module + ".te");
  EXPECT_EQ(compiled.exit_code, 0) << compiled.out;
  Shell(std::string("rm -r ") + work);
  EXPECT_NE(ProjectFile("packaging/android/sepolicy/file_contexts")
                .find("u:object_r:vendor_kelda_data_file:s0"),
            std::string::npos);
  EXPECT_NE(ProjectFile("packaging/android/sepolicy/property_contexts")
                .find("u:object_r:vendor_kelda_prop:s0"),
            std::string::npos);
}

// kelda-adb, with an adb that writes down what it is asked for.
class KeldaAdb : public testing::Test {
 protected:
  KeldaAdb() {
    mkdtemp(folder_);
    std::ofstream(Path("adb")) << "#!/bin/sh\necho \"adb $*\"\n";
    chmod(Path("adb").c_str(), 0700);
  }
  ~KeldaAdb() override { Shell(std::string("rm -r ") + folder_); }
  std::string Path(const std::string& name) const { return std::string(folder_) + "/" + name; }
  ShellResult Run(const std::string& arguments) const {
    return Shell("PATH=" + std::string(folder_) + ":$PATH " +
                 ProjectPath("packaging/android/kelda-adb") + " " + arguments);
  }

 private:
  char folder_[32] = "/tmp/kelda-adb-XXXXXX";
};

TEST_F(KeldaAdb, SendsTheParametersNumbers) {
  const std::string broadcast =
      "adb shell am broadcast -a vendor.kelda.action.SET_PARAMETER --ei parameter ";
  EXPECT_EQ(Run("mode cinema").out, broadcast + "0 --ei value 2\n");
  EXPECT_EQ(Run("mode auto").out, broadcast + "0 --ei value 3\n");
  EXPECT_EQ(Run("hrtf wired personalized").out, broadcast + "1 --ei value 2\n");
  EXPECT_EQ(Run("hrtf bluetooth standard").out, broadcast + "2 --ei value 1\n");
  EXPECT_EQ(Run("apps").out, broadcast + "3 --ei value 0\n");
}

TEST_F(KeldaAdb, RefusesWhatItDoesNotKnowBeforeItTouchesADevice) {
  for (const char* wrong : {"", "mode", "mode loud", "hrtf wired", "hrtf wired round",
                            "push /no/such/folder", "capture", "capture soon", "dance"}) {
    const ShellResult result = Run(wrong);
    EXPECT_EQ(result.exit_code, 2) << wrong;
    EXPECT_EQ(("\n" + result.out).find("\nadb "), std::string::npos) << result.out;
  }
}

TEST_F(KeldaAdb, PushesAFolderAndRestartsTheAudio) {
  const ShellResult result = Run("push " + Path(""));
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find("adb push " + Path("") + "/. /data/vendor/kelda/\n"), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("restorecon -R /data/vendor/kelda"), std::string::npos);
  EXPECT_NE(result.out.find("adb shell setprop ctl.restart audioserver\n"), std::string::npos);
}

}  // namespace
}  // namespace kelda::packaging
