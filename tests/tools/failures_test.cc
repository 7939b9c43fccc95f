// `kelda render` when something is wrong: the exit code, the message, and that no
// file is left.
#include <gtest/gtest.h>
#include <hardware/audio_effect.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "tests/laboratory/audio_files.h"
#include "tests/tools/expectations.h"
#include "tests/tools/program.h"

namespace kelda::tools {
namespace {

using Names = std::set<std::string>;

class Failures : public testing::Test {
 protected:
  Failures() { WriteAudio(in_, Noise(100000)); }

  std::vector<std::string> Command(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments{"render", in_, out_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  // ... and the input is all that is there then.
  void ExpectFailure(int exit_code, const std::string& message,
                     const std::vector<std::string>& arguments,
                     const ProgramSurroundings& surroundings = {}) {
    ExpectRefused(exit_code, message, arguments, surroundings);
    EXPECT_EQ(Names{"in.wav"}, folder_.Names()) << message;
  }

  static ProgramSurroundings Fake(const std::string& behaviour) {
    return {.environment = {{"KELDA_FAKE", behaviour}}};
  }

  const TemporaryFolder folder_;
  const std::string in_ = folder_ / "in.wav";
  const std::string out_ = folder_ / "out.wav";
  const std::vector<std::string> fake_ = Command({"--library", FAKE_EFFECT});
};

TEST_F(Failures, WrongUsage) {
  const std::pair<const char*, const char*> kUsage[] = {
      {"", "a command is missing (kelda --help shows what there is)"},
      {"rendr a",
       "unknown command 'rendr', did you mean render? (kelda --help shows what there is)"},
      {"tune htrf", "unknown command 'htrf', did you mean hrtf? (kelda tune --help shows what"},
      {"sing a", "unknown command 'sing' ("},
      {"help sing", "unknown command 'sing' ("},
      {"render a b --seed -1", "--seed: Value -1 not in range 0 to "},
      {"render a --modee=off",
       "unknown option '--modee', did you mean --mode? (kelda render --help"},
      {"render a", "OUT is required (kelda render --help shows what there is)"},
      {"render a b c", "The following argument was not expected: c ("},
  };
  for (const auto& [arguments, message] : kUsage) {
    ExpectFailure(2, std::string("kelda: ") + message, Words(arguments));
  }
  for (const char* help : {"help tune eq", "tune eq --help"}) {
    EXPECT_TRUE(Holds(Succeed(Words(help)).out, "kelda tune eq [OPTIONS] PRESET.txt")) << help;
  }
  EXPECT_TRUE(Matches(Succeed({"-V"}).out, "[0-9.]+\n"));
  ExpectFailure(2, "unknown ending '.mp3'", {"render", in_, folder_ / "out.mp3"});
  ExpectFailure(2, "--mode: unknown mode 'loud'", {"render", in_, out_, "--mode", "loud"});
  const std::pair<const char*, const char*> kCases[] = {
      {"--loud", "--loud"},
      {"--at 1 mode=loud", "--at 1 mode=loud: unknown mode"},
      {"--block 0", "not a block size: '0'"},
      {"--log-level loud", "unknown level 'loud'"},
      {"--property loud", "NAME=VALUE"},
      {"--tuning /none", "not a directory of tuning files"}};
  for (const auto& [options, message] : kCases) {
    ExpectFailure(2, message, Command(Words(options)));
  }
}

TEST_F(Failures, UnreadableInput) {
  ExpectFailure(3, "No such file", {"render", folder_ / "none.wav", out_});
  ExpectFailure(3, "cannot be read", {"render", folder_ / "", out_});
  WriteAudio(in_, Noise(1000, 3));
  ExpectFailure(3, "it has 3 channels, and not every one has a known place", Command({}));
  folder_.Write("in.wav", "this is no audio");
  ExpectFailure(3, "cannot be read", Command({}));
}

TEST_F(Failures, UnwritableOutput) {
  ExpectFailure(4, "No such file", {"render", in_, folder_ / "none/out.wav"});
  const ProgramSurroundings full_disk{.file_size_limit_bytes = 65536};
  ExpectFailure(4, "File too large", Command({}), full_disk);
  ExpectFailure(4, "File too large", {"render", in_, folder_ / "out.flac"}, full_disk);
  std::filesystem::create_directory(out_);
  ExpectRefused(4, "not a regular file", Command({}));
}

TEST_F(Failures, UnusableLibrary) {
  ExpectFailure(5, "cannot load", Command({"--library", folder_ / "none.so"}));
  ExpectFailure(5, "does not export AELI", Command({"--library", LOG_LIBRARY}));
  ExpectFailure(5, "its tag is 1,", fake_, Fake("wrong-tag"));
  ExpectFailure(5, "its interface version is 2, not 3", fake_, Fake("wrong-version"));
}

TEST_F(Failures, RefusalsOfTheEffect) {
  ExpectFailure(6, "refused to be created for want of memory (status -12)", fake_,
                Fake("no-memory"));
  ExpectFailure(6, "vendor.kelda.effect must be 1",
                Command({"--property", "vendor.kelda.effect=0"}));
  ExpectFailure(6, "--at 1 enable: the effect refused EFFECT_CMD_ENABLE (status -38)",
                Command({"--at", "1", "enable"}));
  ExpectFailure(6, "refused EFFECT_CMD_SET_CONFIG", fake_, Fake("refuse-config"));
  ExpectFailure(6, "refused a block of 960 frames (status -22)", fake_, Fake("fail-process"));
  ExpectFailure(6, "delivered frame 0 after frame 1", fake_, Fake("reorder"));
  ExpectFailure(6, "delivered frame 0 after frame 0", fake_, Fake("repeat"));
  ExpectFailure(6, "delivers no audio any more", fake_, Fake("mute"));
}

TEST_F(Failures, InterruptionLeavesNothing) {
  for (const int signal : {SIGINT, SIGTERM}) {
    RunningProgram program(fake_, Fake("slow"));
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (folder_.Names().size() < 2 && std::chrono::steady_clock::now() < give_up) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(2u, folder_.Names().size()) << "no temporary file was seen";
    program.Signal(signal);
    EXPECT_EQ(128 + signal, program.Wait().exit_code);
    EXPECT_EQ(Names{"in.wav"}, folder_.Names());
  }
}

TEST_F(Failures, LogLinesAndProgressShareATerminal) {
  const std::string screen =
      RunKelda(Command({"--at", "1", "enable"}), {.terminal = true, .terminal_columns = 40}).err;
  EXPECT_TRUE(Holds(screen, "% ")) << "no progress was shown";
  const std::string clear = "\r\033[K";
  for (std::size_t at = screen.find(clear); at != std::string::npos;
       at = screen.find(clear, at + 1)) {
    const std::string shown = screen.substr(at + clear.size());
    if (shown.find("% ") < shown.find('\r')) {
      EXPECT_LT(shown.find_first_of("\r\n"), 40u) << "the progress is wider than its terminal";
    }
  }
  // Both lines take the place of the progress, which was cleared.
  const std::size_t log = screen.rfind(clear, screen.rfind('\n', screen.size() - 3));
  ASSERT_NE(std::string::npos, log) << screen;
  EXPECT_TRUE(
      Matches(screen.substr(log + clear.size()),
              "[0-9]{2}-[0-9]{2} [0-9:.]+ +[0-9]+ +[0-9]+ E KelUpm  : ERROR: ebable at [^\n]*\r\n"
              "([^\n]*\r\033\\[K)?kelda: --at 1 enable: the effect refused EFFECT_CMD_ENABLE "
              "[(]status -38[)]\r\n"));
}

TEST_F(Failures, EveryCommandHearsAnInterruption) {
  const TemporaryFolder sources;
  sources.Write("text", "Preamp: -1 dB\n");
  sources.Write("list", "com.a.b,MUSIC\n");
  sources.Write("capture.pcm", std::string(8000, '\0'));
  const std::string commands[] = {
      "tune eq " + (sources / "text") + " -o " + out_,
      "tune apps " + (sources / "list") + " -o " + out_,
      "tune level --template",
      "capture " + (sources / "capture.pcm") + " -o " + out_,
      "inspect " + (sources / ""),
      std::string("doctor --tuning ") + KELDA_DEFAULT_TUNING,
      "report -o " + (folder_ / "report.html"),
      "render " + in_ + " " + out_,
  };
  for (const std::string& command : commands) {
    const auto interrupted = RunKelda(Words(command), {.pending_signal = SIGINT});
    EXPECT_EQ(130, interrupted.exit_code) << command << "\n" << interrupted.err;
    EXPECT_EQ("", interrupted.err) << command;
    EXPECT_EQ(Names{"in.wav"}, folder_.Names()) << command;
  }
}

TEST_F(Failures, AReaderThatWantsNoMoreIsNoneAndAFullDiskIs) {
  for (const char* command :
       {"inspect " KELDA_DEFAULT_TUNING, "doctor --tuning " KELDA_DEFAULT_TUNING,
        "tune level --template", "--help"}) {
    const ProgramResult result = RunKelda(Words(command), {.closed_pipe = true});
    EXPECT_EQ(0, result.exit_code) << command;
    EXPECT_EQ("", result.err) << command;
    EXPECT_EQ(4, RunKelda(Words(command), {.file_size_limit_bytes = 64}).exit_code) << command;
  }
}

}  // namespace
}  // namespace kelda::tools
