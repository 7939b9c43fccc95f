// Audio through the surface: what the process entry takes, what comes out in each
// mode, and what a change of mode does to it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "tests/effect/effect_client.h"

namespace kelda {
namespace {

using test::Effect;
using test::Ramp;

constexpr uint32_t kWired = AUDIO_DEVICE_OUT_WIRED_HEADSET;

class ProcessTest : public test::DataDirTest {
 protected:
  ProcessTest() { WriteTuning(); }
};

// What the stages that run make of the ramp: from which channel, how loud, how late.
struct Channel {
  unsigned from;
  float gain;
  unsigned delay;

  float At(unsigned frame) const {
    if (frame < delay) return 0;
    const auto value = static_cast<float>(frame - delay + 1);
    return gain * (from == 0 ? value : -value);
  }
};
struct Sound {
  const char* name;
  uint32_t mode;
  uint32_t hrtf;
  Channel left, right;
};
// The fake library's components in chain order: upmix, equalizer, level control.
const Sound kSounds[] = {
    {"off", 0, 1, {0, 1, 0}, {1, 1, 0}},
    {"off, equalized", 0, 2, {0, 0.5f, 3}, {1, 0.5f, 3}},
    {"music", 1, 1, {0, 50 * 0.25f, 5 + 2}, {1, 28 * 0.25f, 5 + 2}},
    {"music, equalized", 1, 2, {0, 50 * 0.125f, 5 + 3 + 2}, {1, 28 * 0.125f, 5 + 3 + 2}},
    {"cinema", 2, 1, {1, 4 * 0.25f, 7 + 2}, {0, 2 * 0.25f, 7 + 2}},
    {"cinema, equalized", 2, 2, {1, 4 * 0.125f, 7 + 3 + 2}, {0, 2 * 0.125f, 7 + 3 + 2}},
    {"automatic", 3, 1, {0, 50 * 0.25f, 5 + 2}, {1, 28 * 0.25f, 5 + 2}},
};

void Set(Effect* effect, const Sound& sound) {
  effect->SetParam(1, sound.hrtf);
  effect->SetMode(sound.mode);
  effect->SetDevice(kWired);
}

TEST_F(ProcessTest, PeriodsSoundLikeTheirStages) {
  for (const Sound& sound : kSounds) {
    Effect effect;
    Set(&effect, sound);
    effect.Enable();
    for (unsigned block = 0; block < 6; ++block) {
      std::vector<float> out;
      ASSERT_EQ(effect.Process(Ramp(1024, 2, block * 1024), &out, block % 2 == 1), 0);
      for (unsigned f = 0; f < 1024; ++f) {
        const unsigned frame = block * 1024 + f;
        ASSERT_EQ(out[2 * f], sound.left.At(frame)) << sound.name << ", frame " << frame;
        ASSERT_EQ(out[2 * f + 1], sound.right.At(frame)) << sound.name << ", frame " << frame;
      }
    }
  }
}

TEST_F(ProcessTest, RandomBlocksLoseNothingInAnyMode) {
  const uint32_t seed = test::NewSeed();
  std::mt19937 random(seed);
  for (const Sound& sound : kSounds) {
    Effect effect;
    Set(&effect, sound);
    effect.Reset();  // forgets the fade
    effect.Enable();
    unsigned fed = 0, heard = 0;
    while (fed < 60000) {
      const auto frames =
          static_cast<unsigned>(random() % 4 == 0 ? 1 + random() % 9000 : 1 + random() % 1000);
      if (frames == 1024) continue;
      std::vector<float> out;
      ASSERT_EQ(effect.Process(Ramp(frames, 2, fed), &out, random() % 2 == 0), 0);
      fed += frames;
      // Slices of three periods are delivered whole or as silence.
      for (unsigned begin = 0; begin < frames; begin += 3072) {
        const auto first = out.begin() + 2 * begin;
        const auto last = out.begin() + 2 * std::min(frames, begin + 3072);
        const bool starts = heard < 12;  // the chain's own latency is silence, too
        if (std::all_of(first, last, [](float x) { return x == 0; }) &&
            !(starts && fed > 2 * 3072)) {
          continue;
        }
        for (auto sample = first; sample != last; sample += 2, ++heard) {
          ASSERT_EQ(sample[0], sound.left.At(heard)) << sound.name << ", seed " << seed;
          ASSERT_EQ(sample[1], sound.right.At(heard)) << sound.name << ", seed " << seed;
        }
      }
    }
    EXPECT_GT(heard, 50000u) << sound.name;
  }
}

// A constant, so that every sample shows the gain that it was given, in blocks of 480.
// Frames are counted as they enter the output ring: what was queued at the change fades
// out towards its newest frame, then the new chain's latency is silence, then it fades in.
TEST_F(ProcessTest, FadesIntoMusicAndCinemaAndNotIntoOff) {
  constexpr int kSilence = 96 + 48, kFade = 4800;
  constexpr double kPi = 3.141592653589793;
  for (const int change : {0, 3, 7, 20, 30}) {
    for (const Sound& sound : {kSounds[2], kSounds[4], kSounds[0]}) {
      const Sound& before = kSounds[sound.mode == 1 ? 4 : 2];
      Effect effect;
      Set(&effect, before);
      effect.Reset();
      effect.Enable();
      const int processed = change * 480 / 1024 * 1024;
      int heard = 0, queued = 0;
      for (int block = 0; block < 60; ++block) {
        if (block == change) {
          effect.SetMode(sound.mode);
          queued = processed - heard;
        }
        std::vector<float> out;
        effect.Process(std::vector<float>(960, 1.0f), &out, true);
        if (block < 4) {  // fewer than two periods are queued
          ASSERT_EQ(out, std::vector<float>(960));
          continue;
        }
        for (size_t f = 0; f < 480; ++f, ++heard) {
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
          const bool filling = heard < 16 || (p >= 0 && p < 16);  // the delays are
          if (filling) continue;
          const Sound& of = p < 0 ? before : sound;
          ASSERT_EQ(out[2 * f], of.left.gain * static_cast<float>(gain))
              << "into " << sound.name << " at block " << change << ", frame " << heard;
          ASSERT_EQ(out[2 * f + 1], of.right.gain * static_cast<float>(gain)) << sound.name;
        }
      }
      EXPECT_GT(heard, processed + kSilence + kFade);
    }
  }
}

TEST_F(ProcessTest, RefusesWhatIsMissingOrUnequal) {
  Effect effect;
  test::TakeLog();
  std::vector<float> in(16), out(16, 7.0f);
  audio_buffer_t source{}, sink{};
  source.frameCount = sink.frameCount = 8;
  source.f32 = in.data();
  sink.f32 = out.data();
  audio_buffer_t no_data = source, shorter = source;
  no_data.raw = nullptr;
  shorter.frameCount = 7;
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
    if (idle != 0) effect.Enable();
    out.assign(16, 7.0f);
  }
  source.frameCount = sink.frameCount = 0;
  EXPECT_EQ(process(effect.handle(), &source, &sink), 0);
  EXPECT_EQ(test::TakeLog(), test::Lines{});
}

TEST_F(ProcessTest, ResetConfigurationAndDisableEmptyTheChain) {
  Effect effect;
  Set(&effect, kSounds[3]);  // music, equalized: three stages hold history
  effect.Enable();
  const auto flush = [&](int how) {
    if (how == 0) effect.Reset();
    if (how == 1) effect.SetConfig(test::StereoConfig());
    if (how == 2) {
      effect.Disable();
      effect.Enable();
    }
  };
  for (int how = 0; how < 3; ++how) {
    std::vector<float> out;
    effect.Process(Ramp(1024), &out);
    effect.Process(Ramp(3000), &out);
    EXPECT_EQ(out, std::vector<float>(6000)) << "nothing was queued before";
    flush(how);
    effect.Process(Ramp(1024), &out);  // as if it were the first
    for (unsigned f = 0; f < 1024; ++f) {
      ASSERT_EQ(out[2 * f], kSounds[3].left.At(f)) << how;
    }
    flush(how);
  }
  const std::string dump = effect.Dump();
  EXPECT_NE(dump.find("discard: 6144\n"), std::string::npos) << dump;
  // A refused configuration leaves the queue alone.
  std::vector<float> out;
  effect.Process(Ramp(3000), &out);
  EXPECT_EQ(effect.SetConfig(effect_config_t{}), -22);
  effect.Process(Ramp(500), &out);
  EXPECT_EQ(out[999], kSounds[3].right.At(499));
}

TEST_F(ProcessTest, InstancesDoNotKnowOfEachOther) {
  Effect music, off, cinema;
  Set(&music, kSounds[2]);
  Set(&cinema, kSounds[4]);
  for (Effect* const effect : {&music, &off, &cinema}) effect->Enable();
  off.Disable();
  off.Enable();
  for (unsigned block = 0; block < 4; ++block) {
    for (const auto& [effect, sound] :
         {std::pair{&music, &kSounds[2]}, {&off, &kSounds[0]}, {&cinema, &kSounds[4]}}) {
      std::vector<float> out;
      ASSERT_EQ(effect->Process(Ramp(1024, 2, block * 1024), &out), 0);
      ASSERT_EQ(out[0], sound->left.At(block * 1024)) << sound->name;
      ASSERT_EQ(out[2047], sound->right.At(block * 1024 + 1023)) << sound->name;
    }
  }
  EXPECT_EQ(music.Stages(), "-M--L");
  EXPECT_EQ(off.Stages(), "P----");
  EXPECT_NE(music.Dump().find("enableCount: 1\n"), std::string::npos);
  EXPECT_NE(off.Dump().find("enableCount: 2\n"), std::string::npos);
}

}  // namespace
}  // namespace kelda
