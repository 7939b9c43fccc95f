// `kelda render` when something is wrong: the exit code, the message, and that no
// file is left.
#include <gtest/gtest.h>
#include <hardware/audio_effect.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

#include "tests/tools/audio_files.h"
#include "tests/tools/matches.h"
#include "tests/tools/program.h"

namespace kelda::tools {
namespace {

using Names = std::set<std::string>;

class Failures : public testing::Test {
 protected:
  Failures() { WriteAudio(in_, Noise(100000)); }

  std::vector<std::string> Command(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments{"render", in_, out_, "--mode", "off"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  // Expects `arguments` to fail with the code and a message that holds `message`,
  // and the input to be all that is there.
  void ExpectFailure(int exit_code, const std::string& message,
                     const std::vector<std::string>& arguments,
                     const ProgramSurroundings& surroundings = {}) {
    const ProgramResult result = RunKelda(arguments, surroundings);
    EXPECT_EQ(exit_code, result.exit_code) << message << "\n" << result.err;
    EXPECT_NE(std::string::npos, result.err.find(message)) << message << "\n" << result.err;
    EXPECT_EQ("", result.out);
    EXPECT_EQ(Names{"in.wav"}, folder_.Names()) << message;
  }

  ProgramSurroundings Fake(const std::string& behaviour) const {
    return {{{"KELDA_FAKE", behaviour}}, {}};
  }

  const TemporaryFolder folder_;
  const std::string in_ = folder_ / "in.wav";
  const std::string out_ = folder_ / "out.wav";
  const std::vector<std::string> fake_ = Command({"--library", FAKE_EFFECT});
};

TEST_F(Failures, WrongUsage) {
  ExpectFailure(2, "subcommand", {});
  ExpectFailure(2, "OUT", {"render", in_});
  ExpectFailure(2, "--loud", Command({"--loud"}));
  ExpectFailure(2, "--mode: unknown mode 'loud'", {"render", in_, out_, "--mode", "loud"});
  ExpectFailure(2, "unknown ending '.mp3'", {"render", in_, folder_ / "out.mp3"});
  ExpectFailure(2, "--at 1 mode=loud: unknown mode", Command({"--at", "1", "mode=loud"}));
  ExpectFailure(2, "not a block size: '0'", Command({"--block", "0"}));
  ExpectFailure(2, "unknown level 'loud'", Command({"--log-level", "loud"}));
  ExpectFailure(2, "NAME=VALUE", Command({"--property", "loud"}));
  ExpectFailure(2, "not a directory of tuning files", Command({"--tuning", folder_ / "none"}));
}

TEST_F(Failures, UnreadableInput) {
  ExpectFailure(3, "No such file", {"render", folder_ / "none.wav", out_});
  ExpectFailure(3, "cannot be read", {"render", folder_ / "", out_});
  WriteAudio(in_, Noise(1000, 3));
  ExpectFailure(3, "it has 3 channels (1 or 2 are taken)", Command({}));
  folder_.Write("in.wav", "this is no audio");
  ExpectFailure(3, "cannot be read", Command({}));
  Audio flac = Noise(100000);
  flac.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_24;
  WriteAudio(in_, flac);
  std::filesystem::resize_file(in_, std::filesystem::file_size(in_) / 2);
  ExpectFailure(3, "of 100000 frames", Command({}));
  flac.rate_hz = 44100;
  WriteAudio(in_, flac);
  std::filesystem::resize_file(in_, std::filesystem::file_size(in_) / 2);
  ExpectFailure(3, "of 100000 frames", Command({}));
}

TEST_F(Failures, UnwritableOutput) {
  ExpectFailure(4, "No such file", {"render", in_, folder_ / "none/out.wav"});
  std::filesystem::create_directory(folder_ / "out.wav");
  const ProgramResult result = RunKelda(Command({}));
  EXPECT_EQ(4, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("not a regular file"));
}

TEST_F(Failures, FullDisk) {
  ProgramSurroundings small;
  small.file_size_limit_bytes = 65536;
  ExpectFailure(4, "File too large", Command({}), small);
  ExpectFailure(4, "File too large", {"render", in_, folder_ / "out.flac", "--mode", "off"}, small);
}

TEST_F(Failures, KeepsTheOldOutput) {
  ProgramSurroundings small;
  small.file_size_limit_bytes = 65536;
  const std::string before = folder_.Read("in.wav");
  ExpectFailure(4, "File too large", {"render", in_, in_, "--mode", "off"}, small);
  EXPECT_TRUE(before == folder_.Read("in.wav"));
}

TEST_F(Failures, UnusableLibrary) {
  ExpectFailure(5, "cannot load", Command({"--library", folder_ / "none.so"}));
  ExpectFailure(5, "does not export AELI", Command({"--library", LOG_LIBRARY}));
  ExpectFailure(5, "its tag is 1,", fake_, Fake("wrong-tag"));
  ExpectFailure(5, "its interface version is 2, not 3", fake_, Fake("wrong-version"));
}

TEST_F(Failures, RefusalsOfTheEffect) {
  ExpectFailure(6, "vendor.kelda.effect must be 1",
                Command({"--property", "vendor.kelda.effect=0"}));
  ExpectFailure(6, "--at 1 enable: the effect refused EFFECT_CMD_ENABLE (status -38)",
                Command({"--at", "1", "enable"}));
  ExpectFailure(6, "refused EFFECT_CMD_SET_CONFIG", fake_, Fake("refuse-config"));
  ExpectFailure(6, "refused a block of 960 frames (status -22)", fake_, Fake("fail-process"));
  ExpectFailure(6, "delivered frame 0 after frame 1", fake_, Fake("reorder"));
  ExpectFailure(6, "delivers no audio any more", fake_, Fake("mute"));
}

TEST_F(Failures, InterruptionLeavesNothing) {
  for (const int signal : {SIGINT, SIGTERM}) {
    RunningProgram program(fake_, Fake("slow"));
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (folder_.Names().size() < 2 && std::chrono::steady_clock::now() < give_up) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(2U, folder_.Names().size()) << "no temporary file was seen";
    program.Signal(signal);
    EXPECT_EQ(128 + signal, program.Wait().exit_code);
    EXPECT_EQ(Names{"in.wav"}, folder_.Names());
  }
}

// What a line of the screen shows in the end: all after the last clearing of it.
std::string Visible(const std::string& line) {
  const std::string clear = "\r\033[K";
  const size_t at = line.rfind(clear);
  return at == std::string::npos ? line : line.substr(at + clear.size());
}

TEST_F(Failures, LogLinesAndProgressShareATerminal) {
  ProgramSurroundings terminal;
  terminal.terminal = true;
  const ProgramResult result = RunKelda(Command({"--at", "1", "enable"}), terminal);
  EXPECT_EQ(6, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("% ")) << "no progress was shown";
  std::vector<std::string> lines;
  std::istringstream screen(result.err);
  for (std::string line; std::getline(screen, line);) {
    lines.push_back(Visible(line));
  }
  ASSERT_GE(lines.size(), 2U);
  EXPECT_TRUE(
      Matches(lines[lines.size() - 2],
              "[0-9]{2}-[0-9]{2} [0-9:.]+ +[0-9]+ +[0-9]+ E KelUpm  : ERROR: ebable at .*\r"))
      << lines[lines.size() - 2];
  EXPECT_EQ("kelda: --at 1 enable: the effect refused EFFECT_CMD_ENABLE (status -38)\r",
            lines.back());
}

// The conversation with the library, word by word. Instance 1 renders, 2 follows
// the buffering, 3 measures the latency.
TEST_F(Failures, NoneInTheProtocol) {
  ProgramSurroundings surroundings;
  surroundings.environment["KELDA_FAKE_NOTES"] = folder_ / "notes";
  std::vector<std::string> arguments = Words(
      "--mode cinema --device bluetooth --wired-hrtf personalized --app com.x --app-flag 1 "
      "--at 1 reload-apps --at 1.1 reset --dump --library");
  arguments.insert(arguments.begin(), {"render", in_, out_});
  arguments.emplace_back(FAKE_EFFECT);
  const ProgramResult result = RunKelda(arguments, surroundings);
  EXPECT_EQ(0, result.exit_code) << result.err;
  std::string notes;
  std::istringstream lines(folder_.Read("notes"));
  for (std::string line; std::getline(lines, line);) {
    notes += line.starts_with("1 ") ? line.substr(2) + "\n" : "";
  }
  EXPECT_EQ(
      "create\n"
      "command 0 of 0\n"
      "command 1 of " +
          std::to_string(sizeof(effect_config_t)) +
          " 48000 3 5 48000 3 5\n"
          "command 9 of 4 100\n"
          "command 5 of 20 0 4 4 1 2\n"
          "command 5 of 23 0 4 7 a 2e6d6f63 312678\n"
          "command 5 of 20 0 4 4 0 2\n"
          "command 3 of 0\n"
          "process 960 in place\n"
          "command 5 of 16 0 4 0 3\n"
          "command 2 of 0\n"
          "command 21 of 4\n"
          "command 4 of 0\n"
          "release\n",
      notes);
}

}  // namespace
}  // namespace kelda::tools
