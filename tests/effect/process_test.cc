// Audio through the exported record: what the process entry takes, what comes out in each
// mode, and what a change of mode does to it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <memory>
#include <random>

#include "tests/effect/test_support.h"
#include "tests/laboratory/effect_client.h"

namespace kelda {
namespace {

using test::Effect;
using test::Ramp;

constexpr unsigned kPeriod = 1024, kLongest = 3 * kPeriod;  // that is not cut

class ProcessTest : public test::DataDirTest {
 protected:
  ProcessTest() { WriteTuning(); }
};

// What the stages that run make of the input: left and right come from one channel each,
// scaled, and late.
struct Sound {
  const char* name;
  uint32_t mode, hrtf;
  unsigned from[2];
  float gain[2];
  unsigned delay;
};
// The fake library's components in chain order: upmix, equalizer, level control.
constexpr Sound kSounds[] = {
    {"off", 0, 1, {0, 1}, {1, 1}, 0},
    {"off, equalized", 0, 2, {0, 1}, {0.5f, 0.5f}, 3},
    {"music", 1, 1, {0, 1}, {50 * 0.25f, 28 * 0.25f}, 142 + 2},
    {"music, equalized", 1, 2, {0, 1}, {50 * 0.125f, 28 * 0.125f}, 142 + 3 + 2},
    {"cinema", 2, 1, {1, 0}, {4 * 0.25f, 2 * 0.25f}, 142 + 2},
    {"cinema, equalized", 2, 2, {1, 0}, {4 * 0.125f, 2 * 0.125f}, 142 + 3 + 2},
    {"automatic", 3, 1, {0, 1}, {50 * 0.25f, 28 * 0.25f}, 142 + 2},
};
constexpr Sound kOff = kSounds[0], kMusic = kSounds[2], kCinema = kSounds[4];

void Set(Effect* effect, const Sound& sound) {
  effect->SetParam(1, sound.hrtf);
  effect->SetMode(sound.mode);
  effect->SetDevice(AUDIO_DEVICE_OUT_WIRED_HEADSET);
}

// An effect that is fed a ramp, and a model that counts the frames in its rings.
class Stream {
 public:
  explicit Stream(const Sound& sound) : sound_(sound) {
    Set(&effect_, sound);
    effect_.Reset();  // forgets the fade
    effect_.Enable();
  }

  void Feed(unsigned frames, bool in_place) {
    std::vector<float> out;
    ASSERT_EQ(effect_.Process(Ramp(frames, 2, fed_), &out, in_place), 0);
    const std::vector<float> expected = Expected(frames);
    const auto differs = std::mismatch(out.begin(), out.end(), expected.begin()).first;
    ASSERT_EQ(out, expected) << sound_.name << ", block of " << frames << ", first at sample "
                             << differs - out.begin();
  }

  // By a reset, by disabling, by a configuration; one that is refused flushes nothing.
  void Flush(uint32_t how) {
    switch (how) {
      case 0:
        effect_.Reset();
        break;
      case 1:
        effect_.Disable();
        effect_.Enable();
        break;
      default:
        const bool accepted =
            effect_.SetConfig(how == 2 ? test::StereoConfig() : effect_config_t{}) == 0;
        ASSERT_EQ(accepted, how == 2);
        if (!accepted) {
          return;
        }
    }
    discarded_ += queued_.size();
    ready_ = false;
    delayed_.clear();
    waiting_.clear();
    queued_.clear();
  }

  void ExpectCounters() {
    const std::string report = effect_.Dump();
    for (const auto& [label, count] : {std::pair<std::string, std::size_t>{"input  : ", fed_},
                                       {"process: ", processed_},
                                       {"output : ", heard_},
                                       {"discard: ", discarded_}}) {
      EXPECT_NE(report.find(label + std::to_string(count) + "\n"), std::string::npos) << report;
    }
  }

 private:
  using Frame = std::array<float, 2>;

  // The model says which slices are silence.
  std::vector<float> Expected(unsigned frames) {
    std::vector<float> out;
    const auto hear = [&](Frame frame) { out.insert(out.end(), frame.begin(), frame.end()); };
    if (frames == kPeriod) {  // passes by what waits in the rings
      for (unsigned i = 0; i < frames; ++i) {
        hear(RunStages(fed_++));
      }
      heard_ += frames;
      return out;
    }
    const unsigned whole = frames > kLongest ? kPeriod : frames;
    for (unsigned begin = 0; begin < frames; begin += whole) {
      const unsigned slice = std::min(whole, frames - begin);
      for (unsigned i = 0; i < slice; ++i) {
        waiting_.push_back(fed_++);
      }
      while (waiting_.size() >= kPeriod) {
        for (unsigned i = 0; i < kPeriod; ++i, waiting_.pop_front()) {
          queued_.push_back(RunStages(waiting_.front()));
        }
      }
      ready_ = ready_ || queued_.size() >= 2 * kPeriod;
      const bool silent = !ready_ || queued_.size() < slice;
      for (unsigned i = 0; i < slice; ++i) {
        hear(silent ? Frame{} : queued_.front());
        if (!silent) {
          queued_.pop_front();
        }
      }
      heard_ += silent ? 0 : slice;
    }
    return out;
  }
  Frame RunStages(unsigned frame) {
    ++processed_;
    delayed_.push_back(static_cast<float>(frame + 1));
    if (delayed_.size() <= sound_.delay) {
      return {};
    }
    const float left = delayed_.front();
    delayed_.pop_front();
    return {sound_.gain[0] * (sound_.from[0] == 0 ? left : -left),
            sound_.gain[1] * (sound_.from[1] == 0 ? left : -left)};
  }

  const Sound sound_;
  Effect effect_;
  unsigned fed_ = 0;
  std::size_t processed_ = 0, heard_ = 0, discarded_ = 0;
  bool ready_ = false;
  std::deque<float> delayed_;     // within the stages
  std::deque<unsigned> waiting_;  // in the input ring
  std::deque<Frame> queued_;      // in the output ring
};

TEST_F(ProcessTest, RandomBlocksLoseAndRepeatNothingInAnyMode) {
  std::mt19937 random(test::NewSeed());
  const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  std::vector<std::unique_ptr<Stream>> streams;  // at once: they do not know of each other
  for (const Sound& sound : kSounds) {
    streams.push_back(std::make_unique<Stream>(sound));
  }
  for (int step = 0; step < 4000; ++step) {
    for (const auto& stream : streams) {
      if (step > 200 && stream != streams[0]) {
        break;  // loud ones are no longer exact
      }
      if (below(12) == 0) {
        stream->Flush(below(4));
      }
      const unsigned sizes[] = {kPeriod, 1 + below(700), 1 + below(kLongest),
                                kLongest - 2 + below(5), 1 + below(9000)};
      ASSERT_NO_FATAL_FAILURE(stream->Feed(sizes[below(5)], below(2) == 0));
    }
  }
  for (const auto& stream : streams) {
    stream->ExpectCounters();
  }
}

// A constant, so that every sample shows the gain that it was given, in blocks of 480.
// Frames are counted as they enter the output ring: what was queued at the change fades
// out towards its newest frame, then the new chain's latency is silence, then it fades in.
TEST_F(ProcessTest, FadesIntoMusicAndCinemaAndNotIntoOff) {
  constexpr int kSilence = 96 + 48, kFade = 4800;
  constexpr double kPi = 3.141592653589793;
  for (const int change : {0, 3, 7, 20, 30}) {
    for (const Sound& sound : {kMusic, kCinema, kOff}) {
      const Sound& before = sound.mode == 1 ? kCinema : kMusic;
      Effect effect;
      Set(&effect, before);
      effect.Reset();
      effect.Enable();
      const int processed = change * 480 / 1024 * 1024;
      int heard = 0, queued = 0;
      for (int block = 0; block < 60; ++block) {
        std::vector<float> out;
        if (block == change) {
          effect.SetMode(sound.mode);
          queued = processed - heard;
          effect.Process(std::vector<float>(2 * kPeriod, 1.0f), &out);
          EXPECT_EQ(out.back(), sound.gain[1]) << "a whole period does not fade";
        }
        effect.Process(std::vector<float>(960, 1.0f), &out, true);
        if (block < 4) {  // fewer than two periods are queued
          ASSERT_EQ(out, std::vector<float>(960));
          continue;
        }
        for (std::size_t f = 0; f < 480; ++f, ++heard) {
          if (heard < kSilence) {
            continue;  // the stages' delays fill
          }
          const int p = heard - processed;  // since the change
          double gain = 1;
          if (block >= change && sound.mode != 0) {
            if (p < 0) {
              gain = (std::cos(kPi * (queued + 1 + p) / queued) + 1) * 0.5;
            } else if (p < kSilence) {
              gain = 0;
            } else if (p < kSilence + kFade) {
              gain = (1 - std::cos(kPi * (p - kSilence) / kFade)) * 0.5;
            }
          }
          const Sound& of = p < 0 ? before : sound;
          ASSERT_EQ(out[2 * f], of.gain[0] * static_cast<float>(gain))
              << "into " << sound.name << " at block " << change << ", frame " << heard;
          ASSERT_EQ(out[2 * f + 1], of.gain[1] * static_cast<float>(gain)) << sound.name;
        }
      }
      EXPECT_GT(heard, processed + kSilence + kFade);
    }
  }
}

// Which block takes up the fade that a mode asks for shows in its silence: the latency of
// the chain that ran then. The next mode has none, and does not fade.
TEST_F(ProcessTest, EveryBlockTakesUpAFadeButOneOfAPeriod) {
  constexpr std::size_t kSilence = 96 + 48, kRampsFirst = 1, kPrimes = 4 * 512 - 512;
  const struct {
    unsigned frames;
    std::size_t silent;
  } kCases[] = {{0, kPrimes + kSilence + kRampsFirst},
                {512, kPrimes + kSilence + kRampsFirst},
                {4 * kPeriod, kPeriod + kSilence + kRampsFirst},
                {kPeriod, kPrimes + kRampsFirst}};
  for (const auto& [frames, silent] : kCases) {
    Effect effect;
    Set(&effect, kCinema);
    effect.Enable();
    std::vector<float> heard, out;
    effect.Process(std::vector<float>(2 * frames, 1.0f), &heard);
    if (frames == kPeriod) {
      heard.clear();  // was heard at once
    }
    effect.SetMode(0);
    for (int block = 0; block < 8; ++block) {
      effect.Process(std::vector<float>(2 * 512, 1.0f), &out);
      heard.insert(heard.end(), out.begin(), out.end());
    }
    const auto first = std::find_if(heard.begin(), heard.end(), [](float f) { return f != 0; });
    EXPECT_EQ(static_cast<std::size_t>(first - heard.begin()), 2 * silent) << frames;
  }
}

TEST_F(ProcessTest, RefusesWhatIsMissingOrUnequal) {
  Effect effect;
  test::TakeLog();
  std::vector<float> in(16), out(16, 7.0f);
  audio_buffer_t source{8, {in.data()}}, sink{8, {out.data()}};
  audio_buffer_t no_data{8, {nullptr}}, shorter{7, {in.data()}};
  const auto process = (*effect.handle())->process;
  for (const int32_t idle : {-61, 0}) {
    EXPECT_EQ(process(nullptr, &source, &sink), -22);
    EXPECT_EQ(process(effect.handle(), nullptr, &sink), -22);
    EXPECT_EQ(process(effect.handle(), &source, nullptr), -22);
    EXPECT_EQ(process(effect.handle(), &no_data, &sink), -22);
    EXPECT_EQ(process(effect.handle(), &source, &no_data), -22);
    EXPECT_EQ(process(effect.handle(), &shorter, &sink), -22);
    EXPECT_EQ(out, std::vector<float>(16, 7.0f));
    EXPECT_EQ(process(effect.handle(), &source, &sink), idle);
    EXPECT_EQ(out, std::vector<float>(16, idle == 0 ? 0.0f : 7.0f));
    if (idle != 0) {
      effect.Enable();
    }
  }
  source.frameCount = sink.frameCount = 0;
  EXPECT_EQ(process(effect.handle(), &source, &sink), 0);
  EXPECT_EQ(test::TakeLog(), test::Lines{});
}

}  // namespace
}  // namespace kelda
