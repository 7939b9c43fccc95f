// The exported record, the descriptor, creation and release, and the library's
// face to the dynamic linker.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <set>
#include <sstream>

#include "effect/instance.h"
#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"
#include "tests/laboratory/effect_client.h"

namespace kelda {
namespace {

using test::Effect;
using test::kUuid;
using test::Library;
using test::Lines;

const std::string kError = "E/KelUpm: ERROR: ", kInfo = "I/KelUpm: ";

class LibraryTest : public test::DataDirTest {};

const effect_descriptor_t kUnset = [] {
  effect_descriptor_t descriptor;
  std::memset(&descriptor, 0xAA, sizeof(descriptor));
  return descriptor;
}();

TEST_F(LibraryTest, RecordAndDescriptorByteForByte) {
  EXPECT_EQ(Library().tag, 0x41454C54u);
  EXPECT_EQ(Library().version, 0x00030000u);
  EXPECT_STREQ(Library().name, "Upmix Library");
  EXPECT_STREQ(Library().implementor, "Orvane Corporation");
  EXPECT_EQ(Library().create_effect_3_1, nullptr);

  const std::string uuid = "\xc2\x61\x8a\x3f\x47\x9d\x1e\x4b\x05\x8c\xd2\xe9\x7a\x4b\x6f\x10";
  std::string expected =
      uuid + uuid + std::string("\0\0\2\0\x08\2\0\0\0\0\0\0", 12) + "Kelda Upmix";
  expected.resize(expected.size() + 64 - std::strlen("Kelda Upmix"));
  expected += "Orvane Corporation";
  expected.resize(sizeof(effect_descriptor_t));
  effect_descriptor_t of_library = kUnset, of_instance = kUnset;
  EXPECT_EQ(Library().get_descriptor(&kUuid, &of_library), 0);
  EXPECT_EQ(test::TakeLog(), Lines{kInfo + "Upm Lib Getting Descriptor - UUID matched upm type 0, "
                                           "UUID = 0x3f8a61c2"});
  Effect effect;
  EXPECT_EQ((*effect.handle())->get_descriptor(effect.handle(), &of_instance), 0);
  EXPECT_EQ((*effect.handle())->process_reverse, nullptr);
  for (const auto& descriptor : {of_library, of_instance}) {
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&descriptor), sizeof(descriptor)),
              expected);
  }
}

TEST_F(LibraryTest, DescriptorRefusals) {
  effect_descriptor_t descriptor = kUnset;
  audio_uuid_t wrong = kUuid;
  wrong.node[5] ^= 1;
  Effect effect;
  test::TakeLog();
  const auto get_descriptor = (*effect.handle())->get_descriptor;
  EXPECT_EQ(Library().get_descriptor(nullptr, &descriptor), -22);
  EXPECT_EQ(Library().get_descriptor(&kUuid, nullptr), -22);
  EXPECT_EQ(Library().get_descriptor(&wrong, &descriptor), -22);
  EXPECT_EQ(get_descriptor(nullptr, &descriptor), -22);
  EXPECT_EQ(get_descriptor(effect.handle(), nullptr), -22);
  const std::string of_library = kError + "Try to get descriptor of upm lib with NULL pointer",
                    of_instance = kError + "Try to get descriptor with NULL pointer";
  EXPECT_EQ(test::TakeLog(),
            (Lines{of_library, of_library, kError + "Cannot find descriptor for upm lib",
                   of_instance, of_instance}));
  EXPECT_EQ(std::memcmp(&descriptor, &kUnset, sizeof(descriptor)), 0);
}

TEST_F(LibraryTest, CreateAndRelease) {
  const auto sentinel = reinterpret_cast<effect_handle_t>(this);
  effect_handle_t handle = sentinel;
  audio_uuid_t wrong = kUuid;
  wrong.timeLow ^= 1;
  const std::string null = kError + "Try to create upm lib with NULL pointer";
  EXPECT_EQ(Library().create_effect(nullptr, 0, 0, &handle), -22);
  EXPECT_EQ(Library().create_effect(&kUuid, 0, 0, nullptr), -22);
  EXPECT_EQ(test::TakeLog(), (Lines{null, null}));
  for (const char* value : {"", "0", "2", "-1", "true"}) {
    property_set("vendor.kelda.effect", value);
    EXPECT_EQ(Library().create_effect(&wrong, 0, 0, &handle), -2);  // the UUID comes first
    EXPECT_EQ(Library().create_effect(&kUuid, 0, 0, &handle), -1) << value;
    EXPECT_EQ(test::TakeLog(), (Lines{kError + "Cannot find descriptor for upm lib",
                                      kError + "Cannot find property to create upm lib"}));
  }
  EXPECT_EQ(handle, sentinel);
  EXPECT_EQ(TakeCalls(), Lines{});

  property_set("vendor.kelda.effect", "1");
  WriteTuning();
  EXPECT_EQ(Library().create_effect(&kUuid, -5, 77, &handle), 0);
  EXPECT_EQ(TakeCalls(),
            (Lines{"A0216", "A0511", "A0779", "A0244", "A0333", "A0507", "A0557", "A0834"}));
  EXPECT_EQ(Library().release_effect(handle), 0);
  EXPECT_EQ(Library().release_effect(nullptr), -22);
  std::ostringstream address;
  address << static_cast<void*>(handle);
  EXPECT_EQ(test::TakeLog(), (Lines{kInfo + "Upm lib created: " + address.str() +
                                        ", size: " + std::to_string(sizeof(effect_module_s)),
                                    kInfo + "Upm lib start releasing: " + address.str(),
                                    kInfo + "Upm lib start releasing: (nil)",
                                    kError + "Try to release upm lib with NULL pointer"}));
}

// The framework's pointer is gone then; what it pointed at looks like this.
TEST_F(LibraryTest, AReleasedInstanceRefusesEverything) {
  Effect effect;
  test::TakeLog();
  effect_module_s module{};
  module.itfe = *effect.handle();
  const auto handle = reinterpret_cast<effect_handle_t>(&module);
  float samples[2] = {};
  audio_buffer_t buffer{1, {samples}};
  effect_descriptor_t descriptor;
  int32_t reply = 77;
  uint32_t size = sizeof(reply);
  EXPECT_EQ((*handle)->command(handle, EFFECT_CMD_INIT, 0, nullptr, &size, &reply), -22);
  EXPECT_EQ(reply, 77);
  EXPECT_EQ((*handle)->process(handle, &buffer, &buffer), -22);
  EXPECT_EQ((*handle)->get_descriptor(handle, &descriptor), -22);
  EXPECT_EQ(test::TakeLog(), (Lines{kError + "command at uninitialized state",
                                    kError + "Uninitialized", kError + "Uninitialized"}));
}

// ---- What binutils say of the library.

Lines OutputOf(const std::string& command) {
  FILE* const output = popen(command.c_str(), "r");
  Lines lines;
  std::array<char, 4096> line;
  while (std::fgets(line.data(), line.size(), output) != nullptr) {
    lines.push_back(line.data());
  }
  EXPECT_EQ(pclose(output), 0) << command;
  return lines;
}

std::set<std::string> Symbols(const std::string& file, const std::string& which) {
  const Lines lines = OutputOf(KELDA_NM " -D --format=posix " + which + " " + file);
  std::set<std::string> names;
  for (const std::string& line : lines) {
    names.insert(line.substr(0, line.find_first_of(" @")));
  }
  return names;
}

TEST_F(LibraryTest, ExportsAndImportsNoMoreThanItNeeds) {
  EXPECT_EQ(Symbols(KELDA_LIBRARY, "--defined-only"), std::set<std::string>{"AELI"});
  const std::set<std::string> wanted = Symbols(KELDA_LIBRARY, "--undefined-only");
  const auto taken_from = [&](const char* file) {
    std::set<std::string> taken = Symbols(file, "--defined-only");
    std::erase_if(taken, [&](const std::string& name) { return !wanted.contains(name); });
    return taken;
  };
  EXPECT_EQ(taken_from(KELDA_LIBLOG), std::set<std::string>{"__android_log_print"});
  EXPECT_EQ(taken_from(KELDA_LIBCUTILS), std::set<std::string>{"property_get_int32"});
  const std::set<std::string> signal = taken_from(KELDA_FAKE_UPMIX_LIB);
  EXPECT_EQ(signal.size(), 31u);
  for (const std::string& name : signal) {
    EXPECT_TRUE(name.starts_with("A0")) << name;
  }
  EXPECT_EQ(Symbols(KELDA_OPEN_UPMIX_LIB, "--defined-only"), signal);
}

TEST_F(LibraryTest, NeedsTheLibrariesByTheirNamesOnThePhone) {
  std::set<std::string> ours = {"liblog.so", "libcutils.so", "libupmix-lib.so"};
  // The toolchain's, with a sanitizer's.
  const Lines kToolchain = {"libstdc++.so", "libm.so",    "libgcc_s.so", "libc.so",
                            "ld-linux",     "libasan.so", "libubsan.so", "libtsan.so"};
  for (const std::string& line : OutputOf(KELDA_READELF " -dW " KELDA_LIBRARY)) {
    if (line.find("(NEEDED)") == std::string::npos) {
      continue;
    }
    const std::string name = line.substr(line.find('[') + 1, line.find(']') - line.find('[') - 1);
    EXPECT_TRUE(ours.erase(name) == 1 ||
                std::any_of(kToolchain.begin(), kToolchain.end(),
                            [&](const std::string& known) { return name.starts_with(known); }))
        << name;
  }
  EXPECT_EQ(ours, std::set<std::string>{});
}

}  // namespace
}  // namespace kelda
