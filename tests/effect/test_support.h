// What the tests of the effect library share: the log's lines, a tuning directory
// of their own, properties, and audio whose every sample tells its place.
#ifndef KELDA_TESTS_EFFECT_TEST_SUPPORT_H_
#define KELDA_TESTS_EFFECT_TEST_SUPPORT_H_

#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/laboratory/temporary_folder.h"

namespace kelda::test {

using Lines = std::vector<std::string>;

// Each log line since the last time, as "E/Tag: text" with logcat's letter for the
// priority. Only while a DataDirTest runs.
Lines TakeLog();
// What a DataDirTest sets as the logger.
void CaptureLog(const __android_log_message* message);

// Every test has an empty tuning directory, an empty log, the fake signal library
// as new and no properties but vendor.kelda.effect=1.
class DataDirTest : public testing::Test {
 protected:
  DataDirTest();
  ~DataDirTest() override;

  const std::string& dir() const { return folder_.path(); }
  std::string Path(const std::string& name) const { return folder_ / name; }
  void Write(const std::string& name, const std::string& content) const {
    folder_.Write(name, content);
  }
  std::string Read(const std::string& name) const { return folder_.Read(name); }
  Lines Files() const;  // sorted
  // The ten tuning files. Parameter data is the file's own name, NUL-filled to the
  // size that the fake library reports; a configuration names `hrtf`.
  void WriteTuning(const std::string& hrtf = "standard.hki") const;
  // The calls of the fake library since the last time, with "DIR" for dir().
  Lines TakeCalls() const;

 private:
  TemporaryFolder folder_;
};

// `frames` interleaved frames; sample c of frame f is (first_frame + f + 1), negative
// for odd c. Never 0, and exact up to 2^24.
std::vector<float> Ramp(unsigned frames, unsigned channels = 2, unsigned first_frame = 0);

// A seed for one test run, printed.
uint32_t NewSeed();

}  // namespace kelda::test

#endif  // KELDA_TESTS_EFFECT_TEST_SUPPORT_H_
