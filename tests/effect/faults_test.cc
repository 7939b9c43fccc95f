// A session through the surface in which one call of the signal library fails, for every
// entry and every call that the session makes, and one in which a file is not what it
// should be. Nothing but the stage at fault changes, the log says what happened, and the
// next command that loads or flushes what is at fault mends it.
//
// The tables are written in signs. A step of the session:
//
//   {"bluetooth again", [](Effect& e) { e.SetDevice(kBluetooth); }, "-M-EL", "DEm"}
//
//   "-M-EL"  the stages that run after it, in the order of the chain, '-' for one that does not:
//            P pass-through, M music, C cinema, E equalizer, L level control
//   "DEm"    what the effect does in it:
//            D  loads music and cinema for a device and its HRTF
//            E  loads the equalizer
//            M  loads the level control
//            m  loads the level control if it is not ready
//            F  flushes all stages
//            f  flushes the stages that the mode ends
//            I  makes all of them again
//
// An entry whose failure leaves a stage, here music, without what was to be loaded:
//
//   {"A0556", 'M', Fault::kLoad, "Failed to initialize library#", ""}
//
//   %  stands for " due to failure with error code -7."
//   #  stands for the same and the detail code
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>

#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"
#include "tests/laboratory/effect_client.h"

namespace kelda {
namespace {

using test::Effect;
using test::Lines;

// What becomes of a stage's block.
enum class State {
  kWorks,
  kUntouched,  // not ready: what its output buffer holds goes on through the chain
  kCopies,     // its input goes on
  kSilent,
};

// The chain over blocks of one constant a channel, so that a block is a pair of numbers
// once the delays are filled: two work buffers in turn, a stage that does not write
// leaves what was there.
struct Model {
  using Pair = std::array<float, 2>;
  Pair work[2] = {};

  Pair Run(Pair in, const std::string& stages, const std::map<char, State>& states) {
    int at = 0;
    work[0] = in;
    for (const char stage : stages) {
      if (stage == '-') {
        continue;
      }
      const auto [left, right] = work[at];
      Pair& out = work[at = 1 - at];
      const auto state = states.find(stage);
      switch (state == states.end() ? State::kWorks : state->second) {
        case State::kUntouched:
          break;
        case State::kSilent:
          out = {};
          break;
        case State::kCopies:
          out = {left, right};
          break;
        case State::kWorks:
          if (stage == 'P') {
            out = {left, right};
          }
          if (stage == 'M') {
            out = {50 * left, 28 * right};
          }
          if (stage == 'C') {
            out = {4 * right, 2 * left};
          }
          if (stage == 'E') {
            out = {0.5f * left, 0.5f * right};
          }
          if (stage == 'L') {
            out = {0.25f * left, 0.25f * right};
          }
      }
    }
    return work[at];
  }
};

struct Step {
  const char* name;
  std::function<void(Effect&)> act;
  std::string stages, does;
};

constexpr uint32_t kSpeaker = AUDIO_DEVICE_OUT_SPEAKER;
constexpr uint32_t kWired = AUDIO_DEVICE_OUT_WIRED_HEADPHONE;
constexpr uint32_t kBluetooth = AUDIO_DEVICE_OUT_BLUETOOTH_A2DP;

const Step kSession[] = {
    {"enable", [](Effect& e) { e.Enable(); }, "P----", ""},
    {"wired", [](Effect& e) { e.SetDevice(kWired); }, "P--E-", "DE"},
    {"music", [](Effect& e) { e.SetMode(1); }, "-M-EL", "M"},
    {"reset", [](Effect& e) { e.Reset(); }, "-M-EL", "F"},
    {"any ears", [](Effect& e) { e.SetParam(1, 1); }, "-M--L", "D"},
    {"cinema", [](Effect& e) { e.SetMode(2); }, "--C-L", "M"},
    {"own ears", [](Effect& e) { e.SetParam(1, 2); }, "--CEL", "DE"},
    {"pause", [](Effect& e) { e.Disable(), e.Enable(); }, "--CEL", "F"},
    {"off", [](Effect& e) { e.SetMode(0); }, "P----", "f"},
    {"music again", [](Effect& e) { e.SetMode(1); }, "-M-EL", "M"},
    {"bluetooth", [](Effect& e) { e.SetDevice(kBluetooth); }, "-M-EL", "DE"},
    {"speaker", [](Effect& e) { e.SetDevice(kSpeaker); }, "P----", "f"},
    {"bluetooth again", [](Effect& e) { e.SetDevice(kBluetooth); }, "-M-EL", "DEm"},
    {"new engine", [](Effect& e) { e.Init(), e.Enable(); }, "P----", "I"},
    {"wired again", [](Effect& e) { e.SetDevice(kWired); }, "P--E-", "DE"},
    {"cinema again", [](Effect& e) { e.SetMode(2); }, "--CEL", "M"},
};

// An entry that fails once with -7, detail code 42.
struct Fault {
  const char* entry;
  char stage;  // that suffers
  // kSize: cannot be loaded until the engine is made again. kLoad: is not loaded.
  // kFlush: the same if the flush belonged to a load. kLevel: is not loaded, or after a
  // flush not configured. kBlock: one block.
  enum { kNothing, kSize, kLoad, kFlush, kLevel, kBlock } harms;
  // The line in the log.
  std::string log;
  std::string also;  // is in each further line, if there are any
};

const std::string kMusicInit = "Initialization of library failed due to a failure with error code ";
const std::string kLevelInit =
    "Initialization of the level contorl library failed due to a failure with error code ";
const std::string kCinemaInit = "Initialization of the upm cinema library failed due to a failure.";

const Fault kFaults[] = {
    {"A0507", 'E', Fault::kNothing, "", ""},
    {"A0243", 'E', Fault::kLoad, "Failed to create library%", ""},
    {"A0214", 'E', Fault::kLoad, "Failed to initialize library#", ""},
    {"A0237", 'E', Fault::kFlush, "Failed to flush library#", ""},
    {"A0836", 'E', Fault::kBlock, "Frame processing failed%[detail code 42]", "Fails Process."},
    {"A0562", 'E', Fault::kNothing, "Failed to close library#", ""},
    {"A0812", 'E', Fault::kNothing, "Failed to destroy library%", ""},
    {"A0216", 'M', Fault::kNothing, "", ""},
    {"A0511", 'M', Fault::kSize, "Failed to obtain memory size for library%", kMusicInit},
    {"A0559", 'M', Fault::kLoad, kMusicInit + "-7.", ""},
    {"A0239", 'M', Fault::kBlock, "Frame processing in library failed%", ""},
    {"A0779", 'M', Fault::kNothing, "", ""},
    {"A0782", 'M', Fault::kLoad, "Failed to create library%", ""},
    {"A0556", 'M', Fault::kLoad, "Failed to initialize library#", ""},
    {"A0236", 'M', Fault::kFlush, "Failed to flush library#", ""},
    {"A0560", 'M', Fault::kBlock, "Frame processing in library failed#", ""},
    {"A0212", 'M', Fault::kNothing, "Failed to close library#", ""},
    {"A0810", 'M', Fault::kNothing, "Failed to destroy library%", ""},
    {"A0244", 'C', Fault::kNothing, "", ""},
    {"A0333", 'C', Fault::kSize, "Failed to obtain memory size for the upm cinema library%",
     kCinemaInit},
    {"A0218", 'C', Fault::kLoad, kCinemaInit, ""},
    {"A0238", 'C', Fault::kBlock, "Frame processing in the upm cinema library failed%", ""},
    {"A0593", 'C', Fault::kNothing, "Failed to flush the upm cinema library%", ""},
    {"A0213", 'C', Fault::kNothing, "Failed to destroy the upm cinema library%", ""},
    {"A0834", 'L', Fault::kNothing, "", ""},
    {"A0557", 'L', Fault::kSize, "Failed to obtain memory size for the level contorl library%",
     "Loading Upl Library failed due to read upl."},
    {"A0508", 'L', Fault::kLevel, kLevelInit + "-7.", ""},
    {"A0122", 'L', Fault::kLevel, "Configuration of the level contorl library failed%", ""},
    {"A0217", 'L', Fault::kBlock, "Frame processing in the level contorl library failed%", ""},
};

bool Does(const Step& step, char what) { return step.does.find(what) != std::string::npos; }

// What is still faulty after the step.
State After(const Step& step, const Fault& fault, State state) {
  const char stage = fault.stage;
  bool mends = Does(step, 'I');
  if (fault.harms == Fault::kSize) {
    return mends ? State::kWorks : state;
  }
  if (stage == 'M' || stage == 'C') {
    mends |= Does(step, 'D');
  }
  if (stage == 'E') {
    mends |= Does(step, 'E');
  }
  if (stage == 'L') {
    mends |= Does(step, 'M');
    mends |= state == State::kUntouched ? Does(step, 'm') : Does(step, 'F') || Does(step, 'f');
  }
  return mends ? State::kWorks : state;
}

// What is wrong with a stage after a step in whose commands the entry failed.
State Struck(const Fault& fault, const Step& step) {
  const bool loads = Does(step, 'D') || Does(step, 'M') || Does(step, 'm');
  switch (fault.harms) {
    case Fault::kSize:
    case Fault::kLoad:
      return State::kUntouched;
    case Fault::kFlush:
      return Does(step, 'D') ? State::kUntouched : State::kWorks;
    case Fault::kLevel:
      return loads ? State::kUntouched : State::kCopies;
    default:
      return State::kWorks;
  }
}

class FaultsTest : public test::DataDirTest {
 protected:
  FaultsTest() {
    WriteTuning("personalized.hki");
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  }

  // Two periods of constants, different each time; nothing jumps in the last frames.
  void CheckPeriods(Effect& effect, const std::string& stages,
                    const std::function<std::map<char, State>()>& states, const std::string& what) {
    for (int period = 0; period < 2; ++period) {
      const Model::Pair in = {++level_, -3 * level_};
      std::vector<float> block(2 * 1024), out;
      for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] = in[i % 2];
      }
      ASSERT_EQ(effect.Process(block, &out), 0) << what;
      const Model::Pair expected = model_.Run(in, stages, states());
      for (std::size_t i = 2 * 1000; i < out.size(); ++i) {
        ASSERT_EQ(out[i], expected[i % 2]) << what;
      }
    }
  }

  // Runs the session with one call failing. Returns whether the session reached it.
  bool Live(const Fault& fault, int nth) {
    fake::Reset();
    test::TakeLog();
    fake::Fail(fault.entry, -7, 42, nth);
    model_ = {};
    level_ = 0;
    log_.clear();
    State state = State::kWorks;
    bool struck = false;
    const auto strikes = [&] { return !struck && (struck = fake::Count(fault.entry) >= nth); };
    {
      Effect effect;
      if (strikes()) {
        state = Struck(fault, kSession[0]);
      }
      for (const Step& step : kSession) {
        const std::string what =
            std::string(fault.entry) + " " + std::to_string(nth) + " failing, " + step.name;
        state = After(step, fault, state);
        if (Does(step, 'I')) {
          model_ = {};
        }
        step.act(effect);
        if (strikes()) {
          state = Struck(fault, step);
        }
        EXPECT_EQ(effect.Stages(), step.stages) << what;
        CheckPeriods(
            effect, step.stages,
            [&] {
              // The music upmix works in chunks of 64 frames; one of them is looked at, which is
              // delayed until the block's end.
              const bool heard = fault.entry != std::string("A0239") || nth % 16 == 14;
              State now = state;
              if (strikes() && heard) {
                now = fault.stage == 'E' ? State::kCopies : State::kSilent;
              }
              return std::map<char, State>{{fault.stage, now}};
            },
            what);
        CheckLog(fault, struck, what);
      }
    }
    strikes();
    CheckLog(fault, struck, fault.entry + std::string(" failing, released"));
    return struck;
  }

  // No line before the fault; then its own line, and only lines that follow from it.
  void CheckLog(const Fault& fault, bool struck, const std::string& what) {
    for (const std::string& line : test::TakeLog()) {
      log_.push_back(line);
    }
    if (!struck || fault.log.empty()) {
      EXPECT_EQ(log_, Lines{}) << what;
      return;
    }
    std::string first = fault.log;
    for (const auto& [mark, text] :
         {std::pair{'%', " due to failure with error code -7."},
          {'#', " due to failure with error code -7. [detail code 42]"}}) {
      if (const std::size_t at = first.find(mark); at != std::string::npos) {
        first.replace(at, 1, text);
      }
    }
    const std::map<char, std::string> kTags = {
        {'E', "KELAPhpeq"}, {'M', "KelApUpmmLum"}, {'C', "KelApUpmcLum"}, {'L', "KelApUplLum"}};
    ASSERT_FALSE(log_.empty()) << what;
    EXPECT_EQ(log_[0], "E/" + kTags.at(fault.stage) + ": " + first) << what;
    for (std::size_t i = 1; i < log_.size(); ++i) {
      const bool size = fault.harms == Fault::kSize &&
                        log_[i].find("is bigger than the maxSize") != std::string::npos;
      EXPECT_TRUE(size || (!fault.also.empty() && log_[i].find(fault.also) != std::string::npos))
          << what << ": " << log_[i];
    }
  }

  Model model_;
  float level_ = 0;
  Lines log_;
};

TEST_F(FaultsTest, EveryCallOfEveryEntry) {
  for (const Fault& fault : kFaults) {
    int nth = 1;
    while (Live(fault, nth) && !HasFailure()) {
      ++nth;
    }
    EXPECT_GT(nth, 1) << fault.entry << " is never called";
    EXPECT_EQ(fake::LiveInstances(), 0) << "after the run in which nothing failed";
    if (HasFailure()) {
      return;
    }
  }
}

// A parameter file that is replaced while its stage runs: unnoticed until the next load,
// which fails unless only the level control's file is too short, and mended by the load
// of a good one.
TEST_F(FaultsTest, EveryParameterFileInEveryCondition) {
  struct File {
    const char* name;
    char stage;
    uint32_t mode, bytes;
    std::string text;
  };
  const File kFiles[] = {
      {"upmix.music.hps.bin", 'M', 1, fake::kMusicParamBytes,
       "KelApUpmmLum: Reloading Library failed due to read " + Path("upmix.music.hps.bin")},
      {"upmix.cinema.hps.bin", 'C', 2, fake::kCinemaParamBytes,
       "KelApUpmcLum: Reloading Cinema Library failed due to read upmix.cinema.hps.bin"},
      {"upl.music.bin", 'L', 1, fake::kLevelParamBytes,
       "KelApUplLum: Loading Upl Library failed due to read upl.music.bin"},
      {"upl.cinema.bin", 'L', 2, fake::kLevelParamBytes,
       "KelApUplLum: Loading Upl Library failed due to read upl.cinema.bin"},
  };
  std::filesystem::permissions(dir(), std::filesystem::perms(0755));
  for (const std::string condition :
       {"missing", "empty", "short", "long", "directory", "fifo", "unreadable", "link to itself"}) {
    for (const File& file : kFiles) {
      const std::string what = file.name + (", " + condition);
      const std::string path = Path(file.name);
      std::string good = "replaced";
      good.resize(file.bytes, '\0');
      WriteTuning("standard.hki");
      Effect effect;
      effect.Enable();
      effect.SetDevice(kWired);
      effect.SetMode(file.mode);
      model_ = {};
      std::map<char, State> states;
      const auto check = [&] {
        CheckPeriods(
            effect, file.mode == 1 ? "-M--L" : "--C-L", [&] { return states; }, what);
      };
      const auto load = [&] {
        if (file.stage == 'L') {
          effect.SetMode(3 - file.mode);
          effect.SetMode(file.mode);
        } else {
          effect.SetParam(1, 2);
          effect.SetParam(1, 1);
        }
      };

      std::filesystem::remove(path);
      if (condition == "empty") {
        Write(file.name, "");
      }
      if (condition == "short") {
        Write(file.name, good.substr(0, file.bytes - 1));
      }
      if (condition == "long") {
        Write(file.name, good + "x");
      }
      if (condition == "directory") {
        std::filesystem::create_directory(path);
      }
      if (condition == "fifo") {
        mkfifo(path.c_str(), 0600);
      }
      if (condition == "link to itself") {
        std::filesystem::create_symlink(path, path);
      }
      if (condition == "unreadable") {
        Write(file.name, good);
        std::filesystem::permissions(path, std::filesystem::perms::none);
      }
      effect.Reset();
      check();
      EXPECT_EQ(test::TakeLog(), Lines{}) << what;

      struct stat status {};
      Lines log;
      if (stat(path.c_str(), &status) != 0) {
        log.push_back("E/KelApUtil: Unable to stat " + path + " error code:-1\n");
      } else if (status.st_size > file.bytes) {
        log.push_back("E/KelApUtil: File " + path + " is bigger than the maxSize " +
                      std::to_string(status.st_size) + " > " + std::to_string(file.bytes));
      } else if (!S_ISREG(status.st_mode) || condition == "unreadable") {
        log.push_back("E/KelApUtil: " + path + " file open error.");
      }
      const bool will_do = file.stage == 'L' && condition == "short";
      if (!will_do) {
        log.push_back("E/" + file.text + " failed");
        states[file.stage] = State::kUntouched;
      }
      setfsuid(65534);  // the superuser may read everything
      load();
      setfsuid(geteuid());
      EXPECT_EQ(test::TakeLog(), log) << what;
      check();

      std::filesystem::remove(path);
      Write(file.name, good);
      TakeCalls();
      load();
      states.clear();
      check();
      EXPECT_EQ(test::TakeLog(), Lines{}) << what;
      const Lines calls = TakeCalls();
      EXPECT_TRUE(std::any_of(calls.begin(), calls.end(), [](const std::string& call) {
        return call.find(" replaced") != std::string::npos;
      })) << what;
    }
  }
}

TEST_F(FaultsTest, AFullDiskUnderTheCapture) {
  property_set("ro.debuggable", "1");
  property_set("vendor.kelda.pcmdump", "1");
  Effect effect;
  effect.Enable();
  const auto check = [&] {
    CheckPeriods(
        effect, "P----", [] { return std::map<char, State>(); }, "capture");
  };
  signal(SIGXFSZ, SIG_IGN);  // so that writes fail
  rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full = {0, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  for (int second = 0; second < 30; ++second) {
    check();  // beyond the capture's limit, too
  }
  effect.Disable();
  setrlimit(RLIMIT_FSIZE, &before);
  const Lines log = test::TakeLog();
  ASSERT_GT(log.size(), 1u);
  EXPECT_EQ(log.back(), "E/KelApsPcmd: Failed to close: " + std::string(strerror(EFBIG)) + "\n");
  EXPECT_EQ(std::count(log.begin(), log.end(), "E/KelApsPcmd: Excess Dump Limit"),
            static_cast<std::ptrdiff_t>(log.size()) - 1);
  effect.Enable();
  check();
}

}  // namespace
}  // namespace kelda
