// What the virtualizer does to audio.
#include <gtest/gtest.h>

#include <limits>

#include "tests/laboratory/components.h"
#include "upmix-lib/binaural/plane_responses.h"

namespace kelda::upmix_lib {
namespace {

constexpr double kMostErrorDb = -120.0;

Planes NoisePlanes(std::size_t blocks, uint32_t seed) {
  Planes planes;
  for (uint32_t p = 0; p < kPlanes; ++p) {
    planes.push_back(Noise(blocks * kBlock, seed + p));
  }
  return planes;
}

// In the time domain.
void ExpectConvolution(const Planes& out, const HrirSet& hrirs, const Planes& in) {
  for (int ear = 0; ear < kEars; ++ear) {
    std::vector<double> expected(in[0].size());
    for (std::size_t plane = 0; plane < kPlanes; ++plane) {
      const auto taps = hrirs.response(static_cast<int>(plane), ear);
      for (std::size_t at = 0; at < expected.size(); ++at) {
        const std::size_t count = std::min(taps.size(), expected.size() - at);
        for (std::size_t n = 0; n < count; ++n) {
          expected[at + n] += double{in[plane][at]} * double{taps[n]};
        }
      }
    }
    EXPECT_LT(ErrorDb(out[static_cast<std::size_t>(ear)], expected), kMostErrorDb);
  }
}

// Kinds as callers send them (2,1,0,0; after a reset 1,0), and in any other order. After the
// frames of a short block of kind 2 there is silence.
TEST(Virtualizer, MatchesDirectConvolutionWhateverTheKinds) {
  const HrirSet set = NoiseHrirs(256, 4);
  const std::vector<std::pair<int32_t, int32_t>> kOrders[] = {
      {{2, 1024}, {1, 1024}, {0, 1024}, {0, 1024}}, {{1, 1024}, {0, 1024}, {0, 1024}, {0, 1024}},
      {{2, 1024}, {2, 0}, {1, 1024}, {0, 1024}},    {{2, 1}, {1, 1024}, {0, 1024}, {1, 1024}},
      {{0, 1024}, {2, 500}, {0, 1024}, {2, 960}},   {{2, 1023}, {2, 1023}, {1, 1024}, {2, 1024}}};
  for (const auto& order : kOrders) {
    VirtualizerInstance instance(set);
    Planes in = NoisePlanes(order.size(), 40), heard = in;
    for (std::size_t n = 0; n < in[0].size(); ++n) {
      if (static_cast<int32_t>(n % kBlock) < order[n / kBlock].second) {
        continue;
      }
      for (std::size_t p = 0; p < kPlanes; ++p) {
        in[p][n] = std::numeric_limits<float>::quiet_NaN();
        heard[p][n] = 0.0f;
      }
    }
    const Planes out = instance.Process(
        in, [&](std::size_t b) { std::tie(instance.kind, instance.frames) = order[b]; });
    SCOPED_TRACE(testing::PrintToString(order));
    ExpectConvolution(out, set, heard);
  }
}

TEST(Virtualizer, FlagsMuteTheirPlanesUntilAFlushAtOnce) {
  const HrirSet set = NoiseHrirs(128, 6);
  VirtualizerInstance instance(set);
  instance.flags = {0, 1, 0, -1, 0, 256, 0};
  const Planes in = NoisePlanes(3, 60);
  Planes heard = in;
  for (const std::size_t muted : {1u, 3u, 5u}) {
    heard[muted].assign(in[muted].size(), 0.0f);
  }
  ExpectConvolution(instance.Process(in), set, heard);
  ASSERT_EQ(instance.Flush(), kOk);
  instance.flags = {};
  ExpectConvolution(instance.Process(in), set, in);
}

// The largest bend of a curve: a click stands out from a smooth tone.
double LargestBend(std::span<const float> curve) {
  double largest = 0.0;
  for (std::size_t i = 2; i < curve.size(); ++i) {
    largest = std::max(
        largest, std::abs(double{curve[i]} - 2.0 * double{curve[i - 1]} + double{curve[i - 2]}));
  }
  return largest;
}

TEST(Virtualizer, ChangesOfFlagsAndDataDoNotClick) {
  const HrirSet after = NoiseHrirs(512, 12);
  VirtualizerInstance instance(NoiseHrirs(256, 11));
  const Planes tone(kPlanes, Sine(440.0, 0.1, 12 * kBlock));
  const Planes out = instance.Process(tone, [&](std::size_t block) {
    if (block == 3) {
      instance.flags = {1, 0, 0, 1, 0, 0, 1};
    }
    if (block == 6) {
      instance.flags = {};
    }
    for (const HrirSet& next : {NoiseHrirs(128, 14), after}) {  // The first is never heard.
      if (block != 9) {
        break;
      }
      instance.Install(next);
      ASSERT_EQ(A0556(instance.handle()), kOk);
    }
  });
  const std::span<const float> all(out[0]);
  double steady_bend = 0.0;
  for (const std::size_t block : {2u, 5u, 8u, 11u}) {  // which know no change
    steady_bend = std::max(steady_bend, LargestBend(all.subspan(block * kBlock, kBlock)));
  }
  EXPECT_LT(LargestBend(all.subspan(kBlock)), 1.25 * steady_bend);
  // It did change: the last block is what the new data make of the tone.
  const Planes expected = VirtualizerInstance(after).Process(tone);
  EXPECT_LT(ErrorDb(all.last(kBlock), std::span(expected[0]).last(kBlock)), -100.0);
}

TEST(Virtualizer, FailedReloadLeavesThePreviousDataAudible) {
  const HrirSet set = NoiseHrirs(256, 13);
  VirtualizerInstance instance(set);
  const Planes in = NoisePlanes(2, 130);
  const Planes out = instance.Process(in, [&](std::size_t block) {
    if (block == 0) {
      return;
    }
    int32_t error = 0, detail = 0;
    instance.directory().Write("data", "damaged");
    EXPECT_EQ(A0556(instance.handle()), kDataTooShort);
    EXPECT_EQ(A0783(instance.handle(), &error, &detail), kOk);
    EXPECT_EQ(detail, kDataTooShort);
  });
  ExpectConvolution(out, set, in);
}

TEST(PlaneResponses, AreSharedByEqualEarsAndRoomsAndKeptForNobody) {
  const HrirSet ears = NoiseHrirs(256, 14), other_ears = NoiseHrirs(256, 15);
  const RoomParameters room = {-18.0f, -12.0f, 0.2f, 5.0f, 5000.0f, {}};
  RoomParameters other_room = room, no_room = room;
  other_room.decay_s = 0.3f;
  no_room.early_level_db = no_room.late_level_db = kRoomOffDb;

  PlaneResponses first = SharedPlaneResponses(ears, room);
  const PlaneResponses second = SharedPlaneResponses(ears, room);
  EXPECT_EQ(second.direct, first.direct);
  EXPECT_EQ(second.room, first.room);
  const PlaneResponses wider = SharedPlaneResponses(ears, other_room);
  EXPECT_EQ(wider.direct, first.direct);
  EXPECT_GT(wider.room->partition_count, first.room->partition_count);
  const PlaneResponses dry = SharedPlaneResponses(ears, no_room);
  EXPECT_EQ(dry.direct, first.direct);
  EXPECT_EQ(dry.room, nullptr);

  first = SharedPlaneResponses(other_ears, room);
  EXPECT_NE(first.direct, second.direct);
  EXPECT_NE(first.room, second.room);
  const std::weak_ptr<const ConvolverResponses> left = first.room;
  first = {};
  EXPECT_TRUE(left.expired());
}

}  // namespace
}  // namespace kelda::upmix_lib
