// The exported record, the descriptor, creation and release, and the library's
// face to the dynamic linker.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <sstream>

#include "tests/effect/effect_client.h"
#include "tests/effect/fake_upmix_lib.h"

namespace kelda {
namespace {

using test::Effect;
using test::kUuid;
using test::Library;
using test::Lines;

class LibraryTest : public test::DataDirTest {};

const effect_descriptor_t kUnset = [] {
  effect_descriptor_t descriptor;
  std::memset(&descriptor, 0xAA, sizeof(descriptor));
  return descriptor;
}();

TEST_F(LibraryTest, Record) {
  EXPECT_EQ(Library().tag, 0x41454C54u);
  EXPECT_EQ(Library().version, 0x00030000u);
  EXPECT_STREQ(Library().name, "Upmix Library");
  EXPECT_STREQ(Library().implementor, "Orvane Corporation");
  EXPECT_EQ(Library().create_effect_3_1, nullptr);
}

TEST_F(LibraryTest, DescriptorByteForByte) {
  const std::string uuid = "\xc2\x61\x8a\x3f\x47\x9d\x1e\x4b\x05\x8c\xd2\xe9\x7a\x4b\x6f\x10";
  const auto padded = [](std::string text) {
    text.resize(64);
    return text;
  };
  const std::string expected = uuid + uuid + std::string("\x00\x00\x02\x00", 4) +
                               std::string("\x08\x02\x00\x00", 4) + std::string(4, '\0') +
                               padded("Kelda Upmix") + padded("Orvane Corporation");
  effect_descriptor_t descriptor = kUnset;
  EXPECT_EQ(Library().get_descriptor(&kUuid, &descriptor), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(&descriptor), sizeof(descriptor)), expected);
  EXPECT_EQ(
      test::TakeLog(),
      Lines{"I/KelUpm: Upm Lib Getting Descriptor - UUID matched upm type 0, UUID = 0x3f8a61c2"});

  Effect effect;
  descriptor = kUnset;
  EXPECT_EQ((*effect.handle())->get_descriptor(effect.handle(), &descriptor), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(&descriptor), sizeof(descriptor)), expected);
  EXPECT_EQ((*effect.handle())->process_reverse, nullptr);
}

TEST_F(LibraryTest, DescriptorRefusals) {
  effect_descriptor_t descriptor = kUnset;
  audio_uuid_t wrong = kUuid;
  wrong.node[5] ^= 1;
  EXPECT_EQ(Library().get_descriptor(nullptr, &descriptor), -22);
  EXPECT_EQ(Library().get_descriptor(&kUuid, nullptr), -22);
  EXPECT_EQ(Library().get_descriptor(&wrong, &descriptor), -22);
  const std::string null = "E/KelUpm: ERROR: Try to get descriptor of upm lib with NULL pointer";
  EXPECT_EQ(test::TakeLog(),
            (Lines{null, null, "E/KelUpm: ERROR: Cannot find descriptor for upm lib"}));
  Effect effect;
  test::TakeLog();
  const auto get_descriptor = (*effect.handle())->get_descriptor;
  EXPECT_EQ(get_descriptor(nullptr, &descriptor), -22);
  EXPECT_EQ(get_descriptor(effect.handle(), nullptr), -22);
  const std::string instance = "E/KelUpm: ERROR: Try to get descriptor with NULL pointer";
  EXPECT_EQ(test::TakeLog(), (Lines{instance, instance}));
  EXPECT_EQ(std::memcmp(&descriptor, &kUnset, sizeof(descriptor)), 0);
}

TEST_F(LibraryTest, CreateAndRelease) {
  const auto sentinel = reinterpret_cast<effect_handle_t>(this);
  effect_handle_t handle = sentinel;
  audio_uuid_t wrong = kUuid;
  wrong.timeLow ^= 1;
  const std::string no_property = "E/KelUpm: ERROR: Cannot find property to create upm lib";
  const std::string no_uuid = "E/KelUpm: ERROR: Cannot find descriptor for upm lib";
  const std::string null = "E/KelUpm: ERROR: Try to create upm lib with NULL pointer";
  EXPECT_EQ(Library().create_effect(nullptr, 0, 0, &handle), -22);
  EXPECT_EQ(Library().create_effect(&kUuid, 0, 0, nullptr), -22);
  EXPECT_EQ(test::TakeLog(), (Lines{null, null}));
  for (const char* value : {"", "0", "2", "-1", "true"}) {
    property_set("vendor.kelda.effect", value);
    EXPECT_EQ(Library().create_effect(&wrong, 0, 0, &handle), -2);  // the UUID comes first
    EXPECT_EQ(Library().create_effect(&kUuid, 0, 0, &handle), -1) << value;
    EXPECT_EQ(test::TakeLog(), (Lines{no_uuid, no_property}));
  }
  EXPECT_EQ(handle, sentinel);
  EXPECT_EQ(TakeCalls(), Lines{});

  property_set("vendor.kelda.effect", "1");
  WriteTuning();
  EXPECT_EQ(Library().create_effect(&kUuid, -5, 77, &handle), 0);
  EXPECT_EQ(TakeCalls(),
            (Lines{"A0216", "A0511", "A0779", "A0244", "A0333", "A0507", "A0557", "A0834"}));
  const Lines created = test::TakeLog();
  ASSERT_EQ(created.size(), 1u);
  char address[32];
  std::snprintf(address, sizeof(address), "%p", static_cast<void*>(handle));
  EXPECT_EQ(created[0].find("I/KelUpm: Upm lib created: " + std::string(address) + ", size: "), 0u)
      << created[0];
  EXPECT_EQ(Library().release_effect(handle), 0);
  EXPECT_EQ(Library().release_effect(nullptr), -22);
  EXPECT_EQ(test::TakeLog(), (Lines{"I/KelUpm: Upm lib start releasing: " + std::string(address),
                                    "I/KelUpm: Upm lib start releasing: (nil)",
                                    "E/KelUpm: ERROR: Try to release upm lib with NULL pointer"}));
}

TEST_F(LibraryTest, CreatesWithWhateverItCouldLoad) {
  {
    Effect effect;  // no tuning directory to speak of
    EXPECT_EQ(test::TakeLog()[0], "E/KelApVirCommon: Failed to open ifstream");
    effect.SetMode(1);
    effect.SetDevice(AUDIO_DEVICE_OUT_WIRED_HEADSET);
    EXPECT_EQ(effect.Stages(), "-M--L");
  }
  setenv("KELDA_DATA_DIR", Path("missing").c_str(), 1);
  Effect nowhere;
  EXPECT_EQ(nowhere.Stages(), "P----");
  EXPECT_EQ(fake::LiveInstances(), 0);
}

// ---- The dynamic symbol tables, as binutils prints them.

std::set<std::string> Symbols(const std::string& file, const std::string& which) {
  FILE* const output = popen((KELDA_NM " -D --format=posix " + which + " " + file).c_str(), "r");
  std::set<std::string> names;
  std::array<char, 4096> line;
  while (std::fgets(line.data(), line.size(), output) != nullptr) {
    std::string name;
    std::istringstream(line.data()) >> name;
    names.insert(name.substr(0, name.find('@')));
  }
  EXPECT_EQ(pclose(output), 0);
  return names;
}

TEST_F(LibraryTest, ExportsItsRecordAndNothingElse) {
  EXPECT_EQ(Symbols(KELDA_LIBRARY, "--defined-only"), std::set<std::string>{"AELI"});
}

TEST_F(LibraryTest, TakesFromItsSurroundingsWhatItNeedsAndNothingElse) {
  const std::set<std::string> wanted = Symbols(KELDA_LIBRARY, "--undefined-only");
  const auto taken_from = [&](const char* file) {
    const std::set<std::string> offered = Symbols(file, "--defined-only");
    std::set<std::string> taken;
    std::set_intersection(wanted.begin(), wanted.end(), offered.begin(), offered.end(),
                          std::inserter(taken, taken.end()));
    return taken;
  };
  EXPECT_EQ(taken_from(KELDA_LIBLOG), std::set<std::string>{"__android_log_print"});
  EXPECT_EQ(taken_from(KELDA_LIBCUTILS), std::set<std::string>{"property_get_int32"});
  const std::set<std::string> signal = taken_from(KELDA_FAKE_UPMIX_LIB);
  EXPECT_EQ(signal.size(), 31u);
  for (const std::string& name : signal) EXPECT_EQ(name.find("A0"), 0u) << name;
  EXPECT_EQ(std::count_if(wanted.begin(), wanted.end(),
                          [](const std::string& name) { return name.starts_with("A0"); }),
            31);
}

TEST_F(LibraryTest, NeedsTheLibrariesByTheirNamesOnThePhone) {
  FILE* const output = popen(KELDA_READELF " -dW " KELDA_LIBRARY, "r");
  std::set<std::string> needed;
  std::array<char, 4096> buffer;
  while (std::fgets(buffer.data(), buffer.size(), output) != nullptr) {
    const std::string line = buffer.data();
    if (line.find("(NEEDED)") == std::string::npos) continue;
    needed.insert(line.substr(line.find('[') + 1, line.find(']') - line.find('[') - 1));
  }
  EXPECT_EQ(pclose(output), 0);
  for (const char* ours : {"liblog.so", "libcutils.so", "libupmix-lib.so"}) {
    EXPECT_EQ(needed.erase(ours), 1u) << ours;
  }
  for (const std::string& name : needed) {  // the toolchain's, with a sanitizer's
    const Lines kToolchain = {"libstdc++.so", "libm.so",    "libgcc_s.so", "libc.so",
                              "ld-linux",     "libasan.so", "libubsan.so", "libtsan.so"};
    EXPECT_TRUE(std::any_of(kToolchain.begin(), kToolchain.end(), [&](const std::string& known) {
      return name.starts_with(known);
    })) << name;
  }
}

}  // namespace
}  // namespace kelda
