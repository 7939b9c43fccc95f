// The capture files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "diagnostics/pcm_data_dump.h"
#include "diagnostics/pcm_dump.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Lines;

std::string Bytes(const std::vector<float>& samples) {
  return {reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof(float)};
}
// The log line of `text`, with the system's words for the error.
std::string Said(const std::string& text, int error) {
  return "E/KelApsPcmd: " + text + ": " + strerror(error) + "\n";
}

class CaptureTest : public test::DataDirTest {};

TEST_F(CaptureTest, ReportsFailures) {
  std::filesystem::create_directory(Path("dir.pcm"));
  const float sample = 1;
  PcmDump dump;
  EXPECT_EQ(dump.Open(Path("dir.pcm"), 2, 1), 0);
  EXPECT_EQ(dump.Open(Path("no/such.pcm"), 2, 1), 0);
  errno = ENOENT;
  EXPECT_EQ(dump.Write(sample, 1), 0);
  EXPECT_EQ(dump.Close(), 0);
  EXPECT_EQ(test::TakeLog(), (Lines{Said("Failed to open", EISDIR), Said("Failed to open", ENOENT),
                                    Said("No Open File", ENOENT), Said("No Open File", ENOENT)}));
  // A pipe that nobody reads, one that somebody reads, a device.
  mkfifo(Path("pipe.pcm").c_str(), 0600);
  EXPECT_EQ(dump.Open(Path("pipe.pcm"), 2, 1), 0);
  const int reader = open(Path("pipe.pcm").c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(dump.Open(Path("pipe.pcm"), 2, 1), 0);
  EXPECT_EQ(dump.Open("/dev/null", 2, 1), 0);
  close(reader);
  const std::string refused = Said("Failed to open", EOPNOTSUPP);
  EXPECT_EQ(test::TakeLog(), (Lines{Said("Failed to open", ENXIO), refused, refused}));
}

TEST_F(CaptureTest, RawDataFile) {
  Write("rawfile_test_hpeq.raw", "old content that is longer");
  const float samples[] = {1, 2, 3};
  {
    PcmDataDump dump;
    dump.Write(samples, 12);
    dump.Close();
    dump.Open("hpeq", "test");
    dump.Open("hpeq", "second");  // ignored
    dump.Write(samples, 8);
    dump.Write(samples + 2, 3);
  }
  EXPECT_EQ(Read("rawfile_test_hpeq.raw"), Bytes({1, 2, 3}).substr(0, 11));
  EXPECT_EQ(Files(), Lines{"rawfile_test_hpeq.raw"});
  setenv("KELDA_DATA_DIR", Path("missing").c_str(), 1);
  PcmDataDump dump;
  dump.Open("s", "n");
  dump.Write(samples, 8);
  EXPECT_EQ(test::TakeLog(),
            (Lines{"I/kelda_upm: Open file ('rawfile_test_hpeq.raw') for raw data output.",
                   "W/kelda_upm: Failed to open file ('rawfile_n_s.raw') for raw data output."}));
}

}  // namespace
}  // namespace kelda
