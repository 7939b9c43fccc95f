// Android.bp: a blueprint, and the same library that CMake builds.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "tests/packaging/shell.h"

namespace kelda::packaging {
namespace {

using Files = std::set<std::string>;

// Android.bp as the blueprint parser writes it: one element of a list a line, in a shape
// that is always the same.
const std::string& Blueprint() {
  static const std::string text = [] {
    const ShellResult printed = Shell("bpfmt -o " + ProjectPath("packaging/android/Android.bp"));
    EXPECT_EQ(printed.exit_code, 0) << printed.out;
    return printed.out;
  }();
  return text;
}

// A module's body.
std::string Module(const std::string& name) {
  const size_t at = Blueprint().find("\n    name: \"" + name + "\",\n");
  EXPECT_NE(at, std::string::npos) << name;
  return at == std::string::npos ? "" : Blueprint().substr(at, Blueprint().find("\n}", at) - at);
}

Files List(const std::string& module, const std::string& property) {
  const std::string body = Module(module);
  const std::string start = "\n    " + property + ": [";
  const size_t begin = body.find(start);
  EXPECT_NE(begin, std::string::npos) << property;
  if (begin == std::string::npos) return {};
  const size_t from = begin + start.size();
  Files files;
  std::istringstream words(body.substr(from, body.find(']', from) - from));
  for (std::string word; words >> word;) {
    const size_t first = word.find('"'), last = word.rfind('"');
    EXPECT_LT(first, last) << word;
    files.insert(word.substr(first + 1, last - first - 1));
  }
  return files;
}

Files CMakeSources(const std::string& target) {
  std::ifstream file(CMAKE_SOURCE_LISTS "/" + target + ".txt");
  Files files;
  for (std::string line; std::getline(file, line);) files.insert(line);
  return files;
}

TEST(AndroidBp, IsABlueprintInTheParsersOwnForm) {
  const ShellResult unformatted =
      Shell("bpfmt -s -l " + ProjectPath("packaging/android/Android.bp"));
  EXPECT_EQ(unformatted.exit_code, 0);
  EXPECT_EQ(unformatted.out, "") << "bpfmt -s -w " << ProjectPath("packaging/android/Android.bp");
}

TEST(AndroidBp, HasTheEffectsSourcesAsCMakeHasThem) {
  Files expected = CMakeSources("kelupmix_objects");
  // Where the tuning files are is the platform's matter.
  ASSERT_EQ(expected.erase("platform/host/data_directory.cc"), 1u);
  expected.insert("platform/android/data_directory.cc");
  EXPECT_GT(expected.size(), 20u);
  EXPECT_EQ(List("libkelupmix", "srcs"), expected);
}

TEST(AndroidBp, HasTheSignalLibrarysSourcesAsCMakeHasThem) {
  const Files expected = CMakeSources("upmix_lib_objects");
  EXPECT_GT(expected.size(), 20u);
  EXPECT_EQ(List("libupmix-lib", "srcs"), expected);
}

TEST(AndroidBp, InstallsWhereTheFrameworkLooks) {
  const std::string effect = Module("libkelupmix"), defaults = Module("kelda_upmix_defaults");
  EXPECT_NE(effect.find("\n    relative_install_path: \"soundfx\","), std::string::npos);
  EXPECT_NE(defaults.find("\n    vendor: true,"), std::string::npos);
  EXPECT_NE(defaults.find("\n    compile_multilib: \"both\","), std::string::npos);
  EXPECT_EQ(List("libkelupmix", "shared_libs"), (Files{"libcutils", "liblog", "libupmix-lib"}));
  EXPECT_EQ((effect + defaults + Module("libupmix-lib")).find("-ffast-math"), std::string::npos);
  // Counters wrap on purpose: the check of unsigned overflow would end the service.
  EXPECT_EQ(Blueprint().find("integer_overflow:"), std::string::npos);
  EXPECT_EQ(Blueprint().find("\"unsigned-integer-overflow\""), std::string::npos);
  for (const std::string& file : List("libkelupmix", "init_rc")) {
    EXPECT_NE(ProjectFile(file), "") << file;
  }
}

}  // namespace
}  // namespace kelda::packaging
