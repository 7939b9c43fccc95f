#include "changeover/history.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

namespace kelda::changeover {
namespace {

using Programme = std::vector<std::pair<int, float>>;  // seconds, and their level in dB

constexpr float kSilence = -200;

float Db(float power) { return 10 * std::log10(power); }

void Publish(const Programme& programme, History* history) {
  for (const auto& [seconds, level_db] : programme) {
    const float peak = level_db == kSilence ? 0 : std::sqrt(2.0f) * std::pow(10.0f, level_db / 20);
    std::vector<float> period(kPeriodSamples);
    for (std::size_t frame = 0; frame < kPeriodFrames; ++frame) {  // 375 Hz: weighted by 0 dB
      period[2 * frame] = period[2 * frame + 1] =
          peak * static_cast<float>(std::sin(std::numbers::pi / 64 * static_cast<double>(frame)));
    }
    for (int i = 0; i < seconds * kSampleRateHz / static_cast<int>(kPeriodFrames); ++i) {
      history->Publish(period.data());
    }
  }
}

TEST(HistoryTest, TheProgrammeIsThatOfTheWindowSinceTheLastJumpOrPause) {
  const struct {
    Programme programme;
    float level_db;
  } cases[] = {
      {{{20, -20}}, -20},
      {{{20, -12}, {6, -33}}, -12},                 // the gate leaves out the quiet part
      {{{20, -12}, {31, -33}}, -33},                // which is all there is in the window
      {{{20, -22}, {2, -14}}, -14},                 // a jump
      {{{20, -17}, {4, -14}}, -16.4f},              // is more than 3 dB
      {{{20, -22}, {1, -14}}, -21.0f},              // and longer than a burst
      {{{20, -12}, {3, kSilence}, {6, -28}}, -28},  // a pause
      {{{20, -12}, {1, kSilence}, {6, -28}}, -12},  // a shorter one
      {{{20, -12}, {3, kSilence}, {1, -28}}, -12},  // the gain is not there yet
      {{{2, -12}, {25, kSilence}, {10, -28}}, -28},
  };
  for (const auto& [programme, level_db] : cases) {
    History history;
    Publish(programme, &history);
    EXPECT_NEAR(Db(history.ProgrammePower(History::kLevels)), level_db, 0.3) << level_db;
  }
  History history;
  EXPECT_EQ(history.ProgrammePower(History::kLevels), 0);
  Publish({{20, -12}, {16, -33}}, &history);
  EXPECT_NEAR(Db(history.ProgrammePower(History::kLevels / 2)), -33, 0.3);
  history.Forget();
  Publish({{3, kSilence}}, &history);
  EXPECT_EQ(history.ProgrammePower(History::kLevels), 0);
}

TEST(HistoryTest, PowersAreWeightedAsLoudnessIs) {
  // By the formula of ITU-R BS.1770-4.
  for (const auto& [hz, gain_db] : {std::pair{25.0, -10.5},
                                    {40.0, -5.6},
                                    {100.0, -1.1},
                                    {375.0, 0.0},
                                    {1000.0, 0.7},
                                    {2000.0, 3.1},
                                    {4000.0, 4.0},
                                    {12000.0, 4.0}}) {
    History history;
    std::vector<float> period(kPeriodSamples);
    for (int n = 0, number = 0; number < 100; ++number) {
      for (std::size_t i = 0; i < kPeriodSamples; i += 2, ++n) {
        period[i] =
            static_cast<float>(0.2 * std::sin(2 * std::numbers::pi * hz / kSampleRateHz * n));
      }
      history.Publish(period.data());
    }
    EXPECT_NEAR(Db(history.ProgrammePower(100)) - Db(0.01f), gain_db, 0.5) << hz;
  }
}

TEST(HistoryTest, TheGainFollowsALevelAndKeepsGaps) {
  History history;
  Publish({{3, -33}}, &history);
  const std::vector<float> silence(kPeriodSamples, 0.0f);
  for (int i = 0; i < 3; ++i) {
    history.Publish(silence.data());
  }
  Publish({{3, -33}, {3, kSilence}}, &history);
  const float power = std::pow(10.0f, -12.0f / 10);
  EXPECT_NEAR(20 * std::log10(history.GainTo(power, 60)), 21, 0.3);
  EXPECT_NEAR(20 * std::log10(history.GainTo(power, 141)), 21.7, 0.3);  // in the gap
  EXPECT_EQ(history.GainTo(power, 400), 1);                             // silence
  EXPECT_EQ(history.GainTo(0, 60), 1);
}

}  // namespace
}  // namespace kelda::changeover
