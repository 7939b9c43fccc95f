// Sessions of the host: their audio to the bit, and what becomes of changes that meet trouble.
#include "changeover/session.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>
#include <span>
#include <thread>

#include "changeover/worker.h"
#include "tests/laboratory/allocations.h"
#include "tests/laboratory/effect_client.h"
#include "tests/laboratory/temporary_folder.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_parameters.h"
#include "upmix-lib/upmix/cinema_parameters.h"

namespace kelda::changeover {
namespace {

using Kind = Setting::Kind;
using End = Turn::End;

constexpr std::size_t kLatency = Session::kLatencyFrames;
constexpr uint32_t kOff = 0, kMusic = 1, kCinema = 2, kAuto = 3, kStandard = 1, kPersonalized = 2;
constexpr uint32_t kSpeaker = AUDIO_DEVICE_OUT_SPEAKER, kWired = AUDIO_DEVICE_OUT_WIRED_HEADPHONE;

class SessionTest : public testing::Test {
 protected:
  SessionTest() {
    std::filesystem::copy(DEFAULT_TUNING, tuning_.path());
    setenv("KELDA_DATA_DIR", tuning_.path().c_str(), 1);
    property_set("vendor.kelda.effect", "1");
    property_set("vendor.kelda.pcmdump", "0");
    property_set("ro.debuggable", "1");
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
  }

  const TemporaryFolder tuning_;
};

// A session whose worker takes its steps when it is told to, and all that it played and heard.
struct Stage {
  explicit Stage(SessionOptions options = {},
                 const audio_effect_library_t& library = test::Library())
      : worker(Worker::Make(library, Worker::Threads::None)),
        session(Session::Open(worker.get(), options)) {}

  void Set(Kind kind, uint32_t value = 0) const { ASSERT_EQ(session->Set({kind, value}), 0); }

  // Noise, in blocks of `most` frames, or of 1 to 8192 at random, now and then in place.
  void Play(std::size_t frames, std::size_t most = 1024) {
    for (std::size_t block = 0; frames > 0; frames -= block) {
      block = std::min(frames, most != 0 ? most : 1 + blocks() % 8192);
      std::vector<float> in(2 * block), out(2 * block, 9.0f);
      for (float& sample : in) {
        sample = level * (static_cast<float>(noise()) / 0x1p31f - 1.0f);
      }
      played.insert(played.end(), in.begin(), in.end());
      std::vector<float>& to = blocks() % 2 == 0 ? in : out;
      session->Process(in.data(), to.data(), block);
      heard.insert(heard.end(), to.begin(), to.end());
    }
  }
  void PlayPeriods(std::size_t periods) { Play(kPeriodFrames * periods); }

  // What another session heard, from its turns and its input, which it had in blocks of any size.
  static std::vector<float> Replay(const std::vector<Turn>& turns, std::vector<float> sound,
                                   SessionOptions options = {}) {
    Stage stage(options);
    stage.session->Replay(turns);
    stage.session->Start();
    for (std::size_t at = 0; at < sound.size(); at += kPeriodSamples) {
      stage.worker->Step();
      const std::size_t frames = std::min(kPeriodSamples, sound.size() - at) / kChannels;
      stage.session->Process(&sound[at], &sound[at], frames);
    }
    return sound;
  }

  // Whether the last `frames` are the input, to the bit.
  bool PlaysPlainly(std::size_t frames) const {
    return std::equal(heard.end() - static_cast<std::ptrdiff_t>(2 * frames), heard.end(),
                      played.end() - static_cast<std::ptrdiff_t>(2 * (frames + kLatency)));
  }

  // "music, wired: heard; off: dropped"
  std::string Turns() const {
    constexpr const char* kEnds[] = {"heard", "at once", "dropped", "not loaded", "no memory"};
    std::string text;
    for (const Turn& turn : session->TakeTurns()) {
      text += std::string(text.empty() ? "" : "; ") + NameOf(turn.sound).text + ": " +
              kEnds[static_cast<std::size_t>(turn.outcome)];
    }
    return text;
  }

  std::unique_ptr<Worker> worker;
  std::unique_ptr<Session> session;
  std::mt19937 noise{1}, blocks{2};
  float level = 0.1f;
  std::vector<float> played, heard;
};

// Plays a life of many changes, starts and resets, in blocks of one size or, with 0, of any;
// returns what was heard, and the turns.
std::vector<float> Live(std::size_t block, bool keep_warm, std::vector<Turn>* turns,
                        std::vector<float>* played) {
  Stage stage({keep_warm});
  std::mt19937 random(3);
  stage.session->Start();
  stage.Play(kPeriodFrames * std::size_t{26}, block);  // so that a turn has a lead
  for (int event = 0; event < 8; ++event) {
    const Kind kinds[] = {Kind::Mode, Kind::Mode, Kind::Device, Kind::WiredHrtf};
    const Kind kind = event == 0 ? Kind::Device : kinds[random() % 4];
    const uint32_t device = event != 0 && random() % 4 == 0 ? kSpeaker : kWired;
    stage.Set(kind, kind == Kind::Mode     ? static_cast<uint32_t>(random() % 3)
                    : kind == Kind::Device ? device
                                           : static_cast<uint32_t>(1 + random() % 2));
    for (unsigned part = 0; part < 1 + random() % 4; ++part) {
      stage.worker->Step();
      stage.Play(random() % 2 * (random() % 4000), block);
    }
  }
  stage.worker->Step();
  stage.Play(5000, block);  // to the end of the last turn
  stage.worker->Step();
  *turns = stage.session->TakeTurns();
  *played = stage.played;
  return stage.heard;
}

TEST_F(SessionTest, AnyBlocksGiveTheSameAudioAndAReplayGivesItAgain) {
  for (const bool keep_warm : {false, true}) {
    std::vector<Turn> turns, others;
    std::vector<float> played;
    const std::vector<float> heard = Live(1024, keep_warm, &turns, &played);
    EXPECT_EQ(Live(0, keep_warm, &others, &played), heard);
    const auto ended = [&](End end) {
      return std::count_if(turns.begin(), turns.end(),
                           [end](const Turn& turn) { return turn.outcome == end; });
    };
    EXPECT_GT(ended(End::Heard), 3);
    EXPECT_GT(ended(End::Dropped), 0);
    EXPECT_EQ(Stage::Replay(turns, played, {keep_warm}), heard) << (keep_warm ? "warm" : "cold");
  }
}

TEST_F(SessionTest, OffIsTheInputAndEverySoundIsInStepWithIt) {
  Stage stage;
  stage.session->Start();
  stage.Play(7777, 0);
  EXPECT_TRUE(stage.PlaysPlainly(7777 - kLatency));
  EXPECT_EQ(std::count(stage.heard.begin(), stage.heard.begin() + 2 * kLatency, 0.0f),
            2 * kLatency);
  for (const uint32_t mode : {kMusic, kCinema}) {
    stage.Set(Kind::Device, kWired);
    stage.Set(Kind::Mode, mode);
    stage.worker->Step();
    stage.PlayPeriods(40);
    // The correlation with the input is largest at the same frame as off has it, or the next.
    const auto correlation = [&](int lag) {
      double sum = 0;
      for (std::size_t i = stage.heard.size() - 40000; i < stage.heard.size() - 200; i += 2) {
        const auto at = static_cast<std::ptrdiff_t>(i) + 2 * lag;
        sum += double{stage.played[i - 2 * kLatency]} *
               double{stage.heard[static_cast<std::size_t>(at)]};
      }
      return sum;
    };
    for (int lag = -90; lag < 100; ++lag) {
      EXPECT_LE(correlation(lag), std::max(correlation(0), correlation(1))) << lag;
    }
    stage.Set(Kind::Mode, kOff);
    stage.worker->Step();
    stage.PlayPeriods(5);
    EXPECT_TRUE(stage.PlaysPlainly(kPeriodFrames));
    stage.worker->Step();
  }
}

TEST_F(SessionTest, TheLastSettingWinsWhateverIsUnderWay) {
  Stage stage;
  // Before the start nothing has to fade.
  stage.Set(Kind::Device, kWired);
  stage.worker->Step();
  EXPECT_EQ(stage.Turns(), "");  // nobody hears the device of off
  stage.Set(Kind::Mode, kMusic);
  stage.worker->Step();
  EXPECT_EQ(stage.Turns(), "music, wired: at once");
  stage.session->Start();
  stage.PlayPeriods(4);
  // A storm between two blocks is one change, and one that ends where it began is none.
  for (int i = 0; i < 100; ++i) {
    stage.Set(Kind::Mode, static_cast<uint32_t>(i % 3));
  }
  stage.Set(Kind::Mode, kCinema);
  stage.worker->Step();
  stage.Set(Kind::WiredHrtf, kPersonalized);
  stage.Set(Kind::WiredHrtf, kStandard);
  stage.worker->Step();
  // Ready, not heard yet: it is taken back.
  stage.Set(Kind::Mode, kOff);
  stage.worker->Step();
  stage.PlayPeriods(1);
  // While it fades: afterwards.
  stage.Set(Kind::Mode, kMusic);
  stage.worker->Step();
  stage.PlayPeriods(3);
  stage.worker->Step();
  EXPECT_EQ(stage.Turns(), "cinema, wired: dropped; off: heard");
  stage.PlayPeriods(1);
  // Stopped in the middle of a crossfade, reset before one.
  stage.session->Stop();
  stage.worker->Step();
  EXPECT_EQ(stage.Turns(), "music, wired: heard");
  stage.session->Start();
  stage.PlayPeriods(4);
  EXPECT_FALSE(stage.PlaysPlainly(kPeriodFrames));
  stage.Set(Kind::Mode, kAuto);
  stage.Set(Kind::Mode, kOff);
  stage.worker->Step();
  stage.session->Reset();
  stage.PlayPeriods(4);
  EXPECT_TRUE(stage.PlaysPlainly(4 * kPeriodFrames - kLatency));
  stage.worker->Step();
  EXPECT_EQ(stage.Turns(), "off: at once");
  EXPECT_EQ(stage.session->value(Kind::Mode), kOff);
  EXPECT_EQ(stage.session->value(Kind::Device), kWired);
}

// Plays periods while the worker feeds a standby, as an audio thread does that is faster.
struct Meanwhile {
  static inline const effect_interface_s* g_effect;
  static inline effect_interface_s g_hooked;
  static inline Session* g_session;
  static inline int g_calls;  // before it happens; 0: it does not
  static inline std::vector<float> g_audio;

  static int32_t Create(const effect_uuid_t* uuid, int32_t session_id, int32_t io,
                        effect_handle_t* handle) {
    const int32_t status = test::Library().create_effect(uuid, session_id, io, handle);
    if (status == 0) {
      g_effect = **handle;
      g_hooked = *g_effect;
      g_hooked.process = Process;
      **handle = &g_hooked;
    }
    return status;
  }
  static int32_t Process(effect_handle_t self, audio_buffer_t* in, audio_buffer_t* out) {
    if (g_calls > 0 && --g_calls == 0) {
      for (std::size_t sample = 0; sample < g_audio.size(); sample += kPeriodSamples) {
        g_session->Process(&g_audio[sample], &g_audio[sample], kPeriodFrames);
      }
    }
    return g_effect->process(self, in, out);
  }
  // Steps the worker; `periods` come before it feeds the standby for the nth time.
  static void Step(Stage* stage, int nth, std::size_t periods) {
    g_audio.resize(kPeriodSamples * periods);
    for (float& sample : g_audio) {
      sample = 0.1f * (static_cast<float>(stage->noise()) / 0x1p31f - 1.0f);
    }
    stage->played.insert(stage->played.end(), g_audio.begin(), g_audio.end());
    g_session = stage->session.get();
    g_calls = nth;
    stage->worker->Step();
    stage->heard.insert(stage->heard.end(), g_audio.begin(), g_audio.end());
  }
};

TEST_F(SessionTest, AStandbyThatIsBehindCatchesUp) {
  audio_effect_library_t library = test::Library();
  library.create_effect = Meanwhile::Create;
  for (const std::size_t late : {2u, 3u, 6u}) {
    Stage stage({}, library);
    stage.session->Start();
    stage.Set(Kind::Device, kWired);
    stage.PlayPeriods(5);
    stage.Set(Kind::Mode, kMusic);
    Meanwhile::Step(&stage, 3, late);  // a probe, and a period of history
    stage.PlayPeriods(1);  // two periods the audio thread feeds; if there are more, the worker does
    stage.worker->Step();
    stage.PlayPeriods(4);
    stage.worker->Step();
    const std::vector<Turn> turns = stage.session->TakeTurns();
    ASSERT_EQ(turns.size(), 1u);
    EXPECT_EQ(turns[0].outcome, End::Heard);
    EXPECT_EQ(turns[0].end, 5 + late + (late > 2 ? 1 : 0));
    EXPECT_EQ(Stage::Replay(turns, stage.played), stage.heard) << late;
  }
}

// It is live at once after the stop. A replay has time to fade to it before, and must not.
TEST_F(SessionTest, AStandbyTooLateForTheLastPeriodsIsNotHeardBeforeTheStop) {
  audio_effect_library_t library = test::Library();
  library.create_effect = Meanwhile::Create;
  Stage stage({}, library);
  stage.session->Start();
  stage.Set(Kind::Device, kWired);
  stage.PlayPeriods(5);
  stage.Set(Kind::Mode, kMusic);
  Meanwhile::Step(&stage, 7, 2);  // a probe, and all of history
  stage.session->Stop();
  stage.worker->Step();
  const std::vector<Turn> turns = stage.session->TakeTurns();
  ASSERT_EQ(turns.size(), 1u);
  EXPECT_EQ(turns[0].outcome, End::AtOnce);
  EXPECT_EQ(Stage::Replay(turns, stage.played), stage.heard);
}

TEST_F(SessionTest, WhatCannotBeLoadedIsNotHeard) {
  const struct {
    const char* file;
    uint32_t mode, hrtf;
  } kFaults[] = {
      {"upmix.music.hps.bin", kMusic, kStandard}, {"standard.hki", kMusic, kStandard},
      {"standard.hki", kCinema, kStandard},       {"upmix.cinema.hps.bin", kCinema, kStandard},
      {"upl.music.bin", kMusic, kStandard},       {"upl.cinema.bin", kCinema, kPersonalized},
      {"personalized.ba", kMusic, kPersonalized}, {"personalized.ba", kOff, kPersonalized}};
  // Every file too short, and each of the other conditions with one of them.
  const char* const kConditions[] = {"missing",    "empty", "long",          "directory",
                                     "unreadable", "fifo",  "link to itself"};
  std::filesystem::permissions(tuning_.path(), std::filesystem::perms(0755));
  for (std::size_t i = 0; i < std::size(kFaults) + std::size(kConditions); ++i) {
    const auto& [file, mode, hrtf] = kFaults[i % std::size(kFaults)];
    const std::string condition =
        i < std::size(kFaults) ? "short" : kConditions[i - std::size(kFaults)];
    SCOPED_TRACE(file + (", " + condition));
    Stage stage;
    stage.session->Start();
    stage.PlayPeriods(3);
    const std::string content = tuning_.Read(file), path = tuning_ / file;
    std::filesystem::remove(path);
    if (condition == "directory") {
      std::filesystem::create_directory(path);
    } else if (condition == "fifo") {
      mkfifo(path.c_str(), 0644);
    } else if (condition == "link to itself") {
      std::filesystem::create_symlink(path, path);
    } else if (condition != "missing") {
      const std::size_t kept = condition == "short" ? content.size() / 2 : content.size();
      tuning_.Write(file, condition == "empty"
                              ? ""
                              : content.substr(0, kept) + (condition == "long" ? "x" : ""));
      std::filesystem::permissions(path,
                                   std::filesystem::perms(condition == "unreadable" ? 0 : 0644));
    }
    stage.Set(Kind::WiredHrtf, hrtf);
    stage.Set(Kind::Mode, mode);
    stage.Set(Kind::Device, kWired);
    setfsuid(65534);  // the superuser may read everything
    stage.worker->Step();
    stage.worker->Step();
    setfsuid(geteuid());
    stage.PlayPeriods(4);
    EXPECT_TRUE(stage.PlaysPlainly(4 * kPeriodFrames));
    const std::string turns = stage.Turns();
    EXPECT_NE(turns.find(": not loaded"), std::string::npos) << turns;
    EXPECT_EQ(turns.find(';'), std::string::npos) << "it was tried again: " << turns;
    // The next setting tries it again.
    std::filesystem::remove(path);
    tuning_.Write(file, content);
    stage.Set(Kind::ReloadTuning);
    stage.worker->Step();
    stage.PlayPeriods(4);
    stage.worker->Step();
    EXPECT_NE(stage.Turns().find(": heard"), std::string::npos) << stage.session->Report();
    EXPECT_FALSE(stage.PlaysPlainly(kPeriodFrames));
  }
}

// The lowest gains that a tuning can ask for.
TEST_F(SessionTest, ASoftTuningIsHeard) {
  const auto change = [this]<typename Parameters>(const char* file, float Parameters::*gain_db,
                                                  const upmix_lib::DataKind& kind) {
    Parameters parameters;
    std::string content = tuning_.Read(file);
    ASSERT_EQ(content.size(), sizeof(parameters));
    std::memcpy(&parameters, content.data(), sizeof(parameters));
    parameters.*gain_db = -24.0f;
    upmix_lib::Seal(std::as_writable_bytes(std::span(&parameters, 1)), kind);
    std::memcpy(content.data(), &parameters, sizeof(parameters));
    tuning_.Write(file, content);
  };
  using upmix_lib::CinemaParameters, upmix_lib::LevelParameters;
  change("upmix.cinema.hps.bin", &CinemaParameters::output_gain_db, upmix_lib::kCinemaKind);
  for (const char* file : {"upl.cinema.bin", "upl.music.bin"}) {  // or levelling takes it back
    change(file, &LevelParameters::gain_db, upmix_lib::kLevelKind);
  }
  Stage stage;
  stage.Set(Kind::WiredHrtf, kStandard);
  stage.Set(Kind::Device, kWired);
  stage.session->Start();
  stage.Set(Kind::Mode, kCinema);
  stage.worker->Step();
  stage.PlayPeriods(4);
  stage.worker->Step();
  EXPECT_NE(stage.Turns().find(": heard"), std::string::npos);
}

// On the way to a sound another headphone is loaded, even if that fails.
TEST_F(SessionTest, TheFilesOfOneHeadphoneAreEnough) {
  for (const char* file : {"bluetooth.hki.config", "bluetooth.ba.config", "upmix.music.hpp.bin",
                           "upmix.cinema.hpp.bin"}) {
    std::filesystem::remove(tuning_ / file);
  }
  Stage stage;
  stage.Set(Kind::Device, kWired);
  stage.session->Start();
  for (const uint32_t mode : {kMusic, kOff, kMusic, kOff, kMusic}) {
    stage.Set(Kind::Mode, mode);
    stage.worker->Step();
    stage.PlayPeriods(4);
    stage.worker->Step();
    EXPECT_NE(stage.Turns().find(": heard"), std::string::npos);
  }
}

TEST_F(SessionTest, MemoryThatRunsOutLeavesTheOldSound) {
  property_set("vendor.kelda.effect", "0");
  EXPECT_EQ(Stage().session, nullptr);
  property_set("vendor.kelda.effect", "1");
  for (uint64_t failing = 1, calls = 1; calls >= failing; ++failing) {
    test::FailNew(failing);
    const uint64_t before = test::NewCalls();
    const auto worker = Worker::Make(test::Library(), Worker::Threads::None);
    const auto session = worker == nullptr ? nullptr : Session::Open(worker.get(), {});
    calls = test::NewCalls() - before;
    test::FailNew(0);
    EXPECT_EQ(session != nullptr, calls < failing) << failing;
  }
  for (uint64_t failing = 1; failing < 40; ++failing) {
    Stage stage;
    stage.Set(Kind::Device, kWired);
    stage.session->Start();
    stage.PlayPeriods(2);
    const Setting application{Kind::Application, 1, "an.application.with.a.long.name"};
    test::FailNew(failing);
    const int status = stage.session->Set({Kind::Mode, kMusic});
    stage.session->Set(application);
    stage.session->Set({Kind::ReloadApplications});
    stage.worker->Step();
    test::FailNew(0);
    stage.PlayPeriods(1);
    stage.Set(Kind::Mode, kMusic);
    stage.worker->Step();
    stage.PlayPeriods(4);
    stage.worker->Step();
    EXPECT_NE(stage.Turns().find("music, wired: heard"), std::string::npos) << failing;
    EXPECT_TRUE(status == 0 || status == -ENOMEM);
    stage.Set(Kind::Mode, kOff);
    stage.worker->Step();
    stage.PlayPeriods(4);
    test::FailNew(1 + failing % 3);  // while what was heard is parked
    stage.worker->Step();
    test::FailNew(0);
  }
  // A session that cannot be opened takes nothing from the others.
  const auto worker = Worker::Make(test::Library(), Worker::Threads::None);
  property_set("vendor.kelda.effect", "0");
  EXPECT_EQ(Session::Open(worker.get(), {}), nullptr);
  property_set("vendor.kelda.effect", "1");
  const auto session = Session::Open(worker.get(), {});
  session->Set({Kind::Device, kWired});
  session->Set({Kind::Mode, kMusic});
  worker->Step();
  EXPECT_EQ(session->TakeTurns().size(), 1u);
}

// A session beside an instance with one sound all along.
class LevelTest : public SessionTest {
 protected:
  // The session begins in music on standard ears.
  void Begin(Stage* stage, ParameterSet headphone, float level) {
    Sound music;
    music.mode = UpmixMode::Music;
    music.headphone = headphone;
    ASSERT_TRUE(all_along_->Set(music));
    stage->level = level;
    stage->session->Start();
    stage->Set(Kind::Device, kWired);
    stage->Set(Kind::Mode, kMusic);
  }

  // Returns by how many dB the session is louder in these seconds.
  double Play(Stage* stage, int seconds) {
    double heard = 0, wanted = 0;
    for (int period = 0; period < 47 * seconds; ++period) {
      stage->worker->Step();
      stage->PlayPeriods(1);
      all_along_->Process(&stage->played[stage->played.size() - kPeriodSamples]);
      const float* const mine = &stage->heard[stage->heard.size() - kPeriodSamples];
      heard += std::inner_product(mine, mine + kPeriodSamples, mine, 0.0);
      const float* const other = all_along_->output();
      wanted += std::inner_product(other, other + kPeriodSamples, other, 0.0);
    }
    return 10 * std::log10(heard / wanted);
  }

  const std::unique_ptr<Instance> all_along_ = Instance::Make(test::Library(), 9);
};

// Music in a loud programme, then off while it becomes quiet, then music by an instance that was
// heard before.
TEST_F(LevelTest, IsTheProgrammesHoweverOftenAModeIsHeard) {
  Stage stage;
  Begin(&stage, ParameterSet::WiredStandard, 0.4f);
  Play(&stage, 40);
  stage.Set(Kind::Mode, kOff);
  stage.level = 0.04f;
  Play(&stage, 60);
  for (int step = 0; step < 1000; ++step) {  // a worker with a thread has time for that
    stage.worker->Step();
  }
  stage.Set(Kind::Mode, kMusic);
  Play(&stage, 1);
  EXPECT_NEAR(Play(&stage, 1), 0, 1);
}

// Through the equalizer of the other ears everything is softer.
TEST_F(LevelTest, IsThatOfTheEarsAlsoOfAStandbyKeptWarm) {
  Stage stage({.keep_warm = true});
  Begin(&stage, ParameterSet::WiredPersonalized, 0.2f);
  Play(&stage, 10);
  stage.Set(Kind::WiredHrtf, static_cast<uint32_t>(HrtfType::Personalized));
  Play(&stage, 1);
  EXPECT_NEAR(Play(&stage, 1), 0, 1);
}

TEST_F(SessionTest, SessionsShareOneStandby) {
  const auto worker = Worker::Make(test::Library(), Worker::Threads::None);
  std::vector<std::unique_ptr<Session>> sessions;
  std::vector<float> block(kPeriodSamples);
  for (int i = 0; i < 3; ++i) {
    sessions.push_back(Session::Open(worker.get(), {}));
    sessions.back()->Start();
    sessions.back()->Process(block.data(), block.data(), kPeriodFrames);
    sessions.back()->Set({Kind::Device, kWired});
    sessions.back()->Set({Kind::Mode, kMusic});
  }
  worker->Step();
  // The first is ready, but gets no audio. After a while the others have their turns, and it has
  // one again once its audio goes on.
  std::this_thread::sleep_for(std::chrono::milliseconds(250));
  const auto play = [&](std::size_t which) {
    for (int period = 0; period < 5; ++period) {
      worker->Step();
      sessions[which]->Process(block.data(), block.data(), kPeriodFrames);
    }
  };
  unsigned instances = 4;
  const auto heard = [&](std::size_t which) {
    const auto turns = sessions[which]->TakeTurns();
    return !turns.empty() && turns.back().outcome == End::Heard &&
           turns.back().instance < instances;
  };
  for (const std::size_t which : {1u, 2u, 0u}) {
    play(which);
    worker->Step();
    EXPECT_TRUE(heard(which)) << which;
  }
  // Its audio stops within a crossfade: the others get a standby all the same.
  const auto want = [&](std::size_t which, uint32_t mode) {
    sessions[which]->Set({Kind::Mode, mode});
    worker->Step();
  };
  want(0, kOff);
  sessions[0]->Process(block.data(), block.data(), kPeriodFrames);
  want(1, kOff);
  std::this_thread::sleep_for(std::chrono::milliseconds(250));
  play(1);
  worker->Step();
  EXPECT_TRUE(sessions[0]->changing());
  instances = 5;
  EXPECT_TRUE(heard(1));
  // Those that gave way are stopped: their changes are complete.
  play(0);
  want(0, kMusic);
  want(1, kMusic);
  want(2, kOff);
  std::this_thread::sleep_for(std::chrono::milliseconds(250));
  play(2);
  for (const auto& session : sessions) {
    session->Stop();
  }
  worker->Step();
  EXPECT_TRUE(sessions[0]->arrived() && sessions[1]->arrived() && sessions[2]->arrived());
}

TEST_F(SessionTest, ACaptureIsWhatWasHeard) {
  property_set("vendor.kelda.pcmdump", "5");
  Stage stage;
  stage.Set(Kind::Device, kWired);
  stage.session->Start();
  stage.PlayPeriods(3);
  stage.Set(Kind::Mode, kMusic);
  stage.worker->Step();
  stage.Play(9999, 480);
  stage.session->Stop();
  std::string captured;
  for (const std::string& name : tuning_.Names()) {
    captured += name.find("pcmdump") == 0 ? tuning_.Read(name) : "";
  }
  EXPECT_EQ(captured, std::string(reinterpret_cast<const char*>(stage.heard.data()),
                                  stage.heard.size() * sizeof(float)));
  // A full disk ends nothing but the capture.
  stage.session->Start();
  stage.Set(Kind::Mode, kOff);
  signal(SIGXFSZ, SIG_IGN);  // so that writes fail
  rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full = {0, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  stage.worker->Step();
  stage.PlayPeriods(20);
  stage.session->Stop();
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_TRUE(stage.PlaysPlainly(10 * kPeriodFrames));
}

// A change every 10 ms, while audio plays at its pace; and once more from the turns that were told.
TEST_F(SessionTest, ThreadsMeetOnlyInTheStateWord) {
  const auto worker = Worker::Make(test::Library(), Worker::Threads::Own);
  const auto session = Session::Open(worker.get(), {});
  std::atomic<bool> ends{false};
  std::vector<float> played, heard;
  session->Set({Kind::Device, kWired});
  session->Start();
  std::thread audio([&] {
    std::mt19937 noise(1);
    std::vector<float> block(kPeriodSamples);
    for (auto next = std::chrono::steady_clock::now(); !ends;
         next += std::chrono::microseconds(21333)) {
      for (float& sample : block) {
        sample = 0.1f * (static_cast<float>(noise()) / 0x1p31f - 1.0f);
      }
      played.insert(played.end(), block.begin(), block.end());
      session->Process(block.data(), block.data(), kPeriodFrames);
      heard.insert(heard.end(), block.begin(), block.end());
      std::this_thread::sleep_until(next);
    }
  });
  std::vector<Turn> turns;
  const auto take_turns = [&] {
    for (const Turn& turn : session->TakeTurns()) {
      turns.push_back(turn);
    }
  };
  for (uint32_t change = 0; change < 150; ++change) {
    // In storms, between which there is time for a crossfade.
    if (change % 50 < 25) {
      session->Set({change % 5 == 4 ? Kind::WiredHrtf : Kind::Mode,
                    change % 5 == 4 ? 1 + change / 5 % 2 : (change + change / 50) % 3});
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    session->Report();
    take_turns();
  }
  ends = true;
  audio.join();
  session->Stop();
  // The turn that this ended is told before that of another sound, which is live at once.
  session->Set({Kind::Mode, kMusic});
  session->Set({Kind::ReloadTuning});
  while (turns.empty() || turns.back().outcome != End::AtOnce || turns.back().sound.tuning == 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    take_turns();
  }
  EXPECT_GT(turns.size(), 1u);
  EXPECT_EQ(Stage::Replay(turns, played), heard);
}

}  // namespace
}  // namespace kelda::changeover
