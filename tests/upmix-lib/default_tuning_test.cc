// The default tuning loads into every component, from where the build put it.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <vector>

#include "processors/upmix_lib.h"
#include "tests/upmix-lib/temp_directory.h"
#include "tools/failure.h"
#include "tools/tuning_directory.h"
#include "upmix-lib/status.h"

namespace kelda::upmix_lib {
namespace {

using tools::TuningFile;
using tools::WriteTuningDirectory;

constexpr const char* kDirectory = KELDA_DEFAULT_TUNING;

std::vector<char> ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<char> Blob(const char* name, uint32_t expected_bytes) {
  std::vector<char> blob = ReadAll(std::string(kDirectory) + "/" + name);
  EXPECT_EQ(blob.size(), expected_bytes) << name;
  blob.resize(expected_bytes);
  return blob;
}

TEST(DefaultTuning, LoadsIntoEveryComponent) {
  for (const char* config : {"wired.ba.config", "bluetooth.ba.config"}) {
    uint32_t handle = 0;
    EXPECT_EQ(A0243(&handle, kDirectory, config), kOk) << config;
    EXPECT_EQ(A0812(&handle), kOk);
  }
  for (const char* config : {"wired.hki.config", "bluetooth.hki.config"}) {
    uint32_t handle = 0;
    EXPECT_EQ(A0782(&handle, kDirectory, config), kOk) << config;
    EXPECT_EQ(A0810(&handle), kOk);
  }
  uint32_t work_bytes = 0, param_bytes = 0;
  ASSERT_EQ(A0511(&work_bytes, &param_bytes), kOk);
  std::vector<char> work(work_bytes);
  for (const char* name : {"upmix.music.hps.bin", "upmix.music.hpp.bin"}) {
    EXPECT_EQ(A0559(Blob(name, param_bytes).data(), work.data()), kOk) << name;
  }
  ASSERT_EQ(A0333(&param_bytes), kOk);
  for (const char* name : {"upmix.cinema.hps.bin", "upmix.cinema.hpp.bin"}) {
    void* instance = A0218(Blob(name, param_bytes).data(), kDirectory, "wired.hki.config");
    EXPECT_NE(instance, nullptr) << name;
    EXPECT_EQ(A0213(&instance), kOk);
  }
  ASSERT_EQ(A0557(&work_bytes, &param_bytes), kOk);
  work.resize(work_bytes);
  for (const char* name : {"upl.music.bin", "upl.cinema.bin"}) {
    ASSERT_EQ(A0508(work.data(), 1024), kOk);
    EXPECT_EQ(A0122(work.data(), Blob(name, param_bytes).data()), kOk) << name;
  }
}

TEST(TuningDirectory, IsReplacedWholeAndNeverTakesOthersFilesAway) {
  namespace fs = std::filesystem;
  const TempDirectory temp;
  const fs::path target = temp.File("deep/tuning");
  const auto files = [](char content) {
    const std::vector<std::byte> bytes(3, static_cast<std::byte>(content));
    return std::vector<TuningFile>{{"a", bytes}, {"b", bytes}};
  };
  const auto names_in = [](const fs::path& directory) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  };
  using Names = std::vector<std::string>;

  WriteTuningDirectory(target, files('1'));
  EXPECT_EQ(names_in(target), (Names{"a", "b"}));
  fs::remove(target / "b");
  WriteTuningDirectory(target / "", files('2'));
  EXPECT_EQ(names_in(target), (Names{"a", "b"}));
  EXPECT_EQ(ReadAll(target / "a"), std::vector<char>(3, '2'));
  EXPECT_EQ(names_in(target.parent_path()), (Names{"tuning"}));

  temp.Write("deep/tuning/mine", std::string_view("dear"));
  EXPECT_THROW(WriteTuningDirectory(target, files('3')), tools::Failure);
  EXPECT_EQ(names_in(target), (Names{"a", "b", "mine"}));
  EXPECT_EQ(ReadAll(target / "a"), std::vector<char>(3, '2'));
  EXPECT_EQ(names_in(target.parent_path()), (Names{"tuning"}));

  temp.Write("file", std::string_view("no directory"));
  EXPECT_THROW(WriteTuningDirectory(temp.File("file"), files('4')), tools::Failure);
  EXPECT_EQ(ReadAll(temp.File("file")).size(), 12u);
}

}  // namespace
}  // namespace kelda::upmix_lib
