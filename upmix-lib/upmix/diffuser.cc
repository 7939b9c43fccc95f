#include "upmix-lib/upmix/diffuser.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <span>

#include "platform/math_constants.h"
#include "upmix-lib/base/aligned_buffer.h"
#include "upmix-lib/base/decibels.h"
#include "upmix-lib/transforms/complex_vec.h"

namespace kelda::upmix_lib {
namespace {

// Filters are designed on a finer grid than they are long, to be flat between its bins.
constexpr int kPartitions = Diffuser::kPartitions;
constexpr int kAllPassTaps = Diffuser::kTaps;
constexpr int kDesignFrames = 4096;
constexpr int kDesignBins = kDesignFrames / 2 + 1;
constexpr int kDesignTurns = 40;

// Of 700, the pair that colours wide sound least at the ears, beside what stays in front.
constexpr uint32_t kSeeds[2] = {128, 618};
constexpr double kLongestLowMs = 11.0, kLongestHighMs = 4.0;
constexpr double kLowHz = 300.0, kHighHz = 3000.0;  // between these the longest delay falls

// Straight between these points over the logarithm of the frequency, as at the last ones beyond.
struct CurvePoint {
  double hz, value;
};

// How much the planes of the two sides have in common. Without it the ears would hear them at
// 90 and 135 degrees almost in phase around 1.3 and 2.8 kHz and in opposite phase around 0.6 and
// 1.9 kHz, since a head is 0.7 ms wide. With it, independent ambience has the coherence of a
// diffuse field at the default ears. Up to 1 kHz the curve also makes up for what stays in front.
constexpr CurvePoint kCorrelations[] = {{250, 0.28},   {315, 0.44},   {400, -0.10},  {500, 0.42},
                                        {630, 0.35},   {800, 0.01},   {950, -0.07},  {1060, -0.31},
                                        {1190, -0.61}, {1335, -0.39}, {1500, -0.08}, {1680, 0.62},
                                        {1890, 0.93},  {2120, 0.63},  {2380, -0.08}, {2670, -0.70},
                                        {3000, -0.70}, {3360, -0.03}, {3780, -0.10}, {4240, 0.00}};

// Decibels against the colour that wide sound has at the default ears where the ambience meets what
// stays of it in front. Sixths of an octave above 280 Hz, no more than 2.5 dB off the mean, and
// half way between what music and what cinema ask for: finer or larger, it would suit the noise
// that it was fitted to and not the reverberation in mixes.
constexpr CurvePoint kColoursDb[] = {
    {157, 0.2},  {280, 0.2},   {314, -0.6},  {352, -1.2},  {396, 0.4},   {444, -2.2},
    {498, -2.2}, {559, 1.6},   {628, 1.6},   {705, -2.4},  {791, 0.0},   {888, 1.6},
    {997, -2.0}, {1119, 1.6},  {1256, 1.4},  {1410, -1.9}, {1582, -0.1}, {1776, 1.6},
    {1994, 1.6}, {2238, -2.2}, {2512, 0.1},  {2820, 1.6},  {3165, 0.7},  {3553, -2.4},
    {3988, 0.3}, {4476, -0.5}, {6330, -0.4}, {7975, 0.2},  {11278, 0.0}};

// Uniform in [0, 1) (W. H. Press et al., "Numerical Recipes", quick and dirty generator).
double Random(uint32_t& state) {
  state = state * 1664525u + 1013904223u;
  return state / 4294967296.0;
}

double DesignHz(int bin) { return static_cast<double>(bin) * kSampleRateHz / kDesignFrames; }

// Number of the ear's band (Glasberg and Moore 1990).
double ErbNumber(double hz) { return 21.4 * std::log10(1.0 + 0.00437 * hz); }

struct Response {
  AlignedBuffer re = AlignedBuffer(kDesignBins), im = AlignedBuffer(kDesignBins);
};

class Designer {
 public:
  // Of magnitude 1 and a random group delay.
  Response Random(uint32_t seed) const;
  // Shifted by a quarter of a period.
  static Response Quadrature(const Response& response);
  // Makes `response` one of kAllPassTaps taps and magnitude 1.
  void MakeAllPass(Response& response);
  // The taps of `response`, each frequency times `gain`(hz).
  template <typename Gain>
  std::array<float, kAllPassTaps> Taps(const Response& response, const Gain& gain);

 private:
  void Truncate(Response& response);

  const RealFft fft_ = RealFft(kDesignFrames);
  AlignedBuffer time_ = AlignedBuffer(kDesignFrames);
  AlignedBuffer scratch_ = AlignedBuffer(static_cast<std::size_t>(fft_.scratch_floats()));
};

Response Designer::Random(uint32_t seed) const {
  uint32_t state = seed * 2654435769u;
  const int bands = static_cast<int>(ErbNumber(0.5 * kSampleRateHz)) + 2;
  double share[64] = {};
  for (int b = 0; b < bands; ++b) {
    share[b] = upmix_lib::Random(state);
  }
  Response response;
  double phase = 0.0;
  for (int k = 0; k < kDesignBins; ++k) {
    const double hz = DesignHz(k);
    const double high =
        std::clamp(std::log(std::max(hz, 1.0) / kLowHz) / std::log(kHighHz / kLowHz), 0.0, 1.0);
    const double longest_s = 1e-3 * (kLongestLowMs + high * (kLongestHighMs - kLongestLowMs));
    const double band = ErbNumber(hz);
    const int below = static_cast<int>(band);
    const double delay_s =
        longest_s * (share[below] + (band - below) * (share[below + 1] - share[below]));
    response.re.data()[k] = static_cast<float>(std::cos(phase));
    response.im.data()[k] = static_cast<float>(std::sin(phase));
    phase -= 2.0 * kPi * delay_s * kSampleRateHz / kDesignFrames;
  }
  return response;
}

Response Designer::Quadrature(const Response& response) {
  Response turned;
  for (int k = 0; k < kDesignBins; ++k) {
    turned.re.data()[k] = -response.im.data()[k];
    turned.im.data()[k] = response.re.data()[k];
  }
  return turned;
}

void Designer::Truncate(Response& response) {
  float* taps = time_.data();
  fft_.Inverse(response.re.data(), response.im.data(), taps, scratch_.data());
  for (int n = 0; n < kAllPassTaps; ++n) {
    taps[n] *= 1.0f / kDesignFrames;
  }
  std::fill(taps + kAllPassTaps, taps + kDesignFrames, 0.0f);
  fft_.Forward(taps, response.re.data(), response.im.data(), scratch_.data());
}

void Designer::MakeAllPass(Response& response) {
  for (int turn = 0; turn < kDesignTurns; ++turn) {
    Truncate(response);
    float *re = response.re.data(), *im = response.im.data();
    for (int k = 0; k < kDesignBins; ++k) {
      const float scale = 1.0f / std::sqrt(re[k] * re[k] + im[k] * im[k] + 1e-20f);
      re[k] *= scale;
      im[k] *= scale;
    }
  }
  Truncate(response);
}

template <typename Gain>
std::array<float, kAllPassTaps> Designer::Taps(const Response& response, const Gain& gain) {
  Response shaped;
  for (int k = 0; k < kDesignBins; ++k) {
    const auto g = static_cast<float>(gain(DesignHz(k)));
    shaped.re.data()[k] = g * response.re.data()[k];
    shaped.im.data()[k] = g * response.im.data()[k];
  }
  Truncate(shaped);
  std::array<float, kAllPassTaps> taps;
  std::copy_n(time_.data(), kAllPassTaps, taps.begin());
  return taps;
}

double ValueAt(std::span<const CurvePoint> curve, double hz) {
  const auto above = std::find_if(curve.begin(), curve.end(),
                                  [hz](const CurvePoint& point) { return hz < point.hz; });
  if (above == curve.begin() || above == curve.end()) {
    return above == curve.begin() ? curve.front().value : curve.back().value;
  }
  const CurvePoint& below = above[-1];
  const double at = std::log(hz / below.hz) / std::log(above->hz / below.hz);
  return below.value + at * (above->value - below.value);
}

// Two sides mixed by this angle have the correlation that they are to have.
double MixAngle(double hz) { return 0.5 * std::asin(ValueAt(kCorrelations, hz)); }

}  // namespace

struct DiffuserTables {
  // What a plane takes from the ambience of its own side, then what the plane of the other side
  // takes from the same ambience: [group of kLanes bins][sides, backs][partition][own, other]
  // [left, right][re, im]
  static constexpr int kFilterFloats = 2 * kLanes;
  static constexpr int kRowFloats = 2 * 2 * kFilterFloats;
  alignas(kSimdAlignmentBytes) float filters[kHopBinGroups * 2 * kPartitions * kRowFloats];
  const RealFft& fft = SharedRealFft<kHopTransform>();

  DiffuserTables();
  void Load(const std::array<float, kAllPassTaps>& taps, bool back, bool other, int side);
};

void DiffuserTables::Load(const std::array<float, kAllPassTaps>& taps, bool back, bool other,
                          int side) {
  float padded[kHopTransform] = {};
  HopSpectrum spectrum;
  for (int partition = 0; partition < kPartitions; ++partition) {
    const float* from = taps.data() + partition * kHopFrames;
    for (int n = 0; n < kHopFrames; ++n) {
      padded[n] = from[n] / kHopTransform;
    }
    spectrum.TransformOf(fft, padded);
    for (int group = 0; group < kHopBinGroups; ++group) {
      const int row = (2 * group + (back ? 1 : 0)) * kPartitions + partition;
      float* at = filters + row * kRowFloats + ((other ? 2 : 0) + side) * kFilterFloats;
      std::copy_n(spectrum.re + group * kLanes, kLanes, at);
      std::copy_n(spectrum.im + group * kLanes, kLanes, at + kLanes);
    }
  }
}

DiffuserTables::DiffuserTables() {
  Designer designer;
  const auto colour = [](double hz) { return AmplitudeFromDb(ValueAt(kColoursDb, hz)); };
  const auto own_gain = [&](double hz) { return colour(hz) * std::cos(MixAngle(hz)); };
  const auto other_gain = [&](double hz) { return colour(hz) * std::sin(MixAngle(hz)); };
  for (int side = 0; side < 2; ++side) {
    Response response = designer.Random(kSeeds[side]);
    designer.MakeAllPass(response);
    Response turned = Designer::Quadrature(response);
    designer.MakeAllPass(turned);
    Load(designer.Taps(response, own_gain), false, false, side);
    Load(designer.Taps(turned, own_gain), true, false, side);
    Load(designer.Taps(response, other_gain), false, true, side);
    Load(designer.Taps(turned, other_gain), true, true, side);
  }
}

const DiffuserTables* SharedDiffuserTables() {
  static const DiffuserTables tables;
  return &tables;
}

void Diffuser::Process(const float (&ambience)[2][kHopFrames], Diffused& out) {
  histories_[0].Append(ambience[0]);
  histories_[1].Append(ambience[1]);
  inputs_.Append(tables_->fft,
                 {histories_[0].newest() - kHopFrames, histories_[1].newest() - kHopFrames});

  HopSpectrum sums[2][2];  // [sides, backs][left, right]
  const float* row = tables_->filters;
  for (int group = 0; group < kHopBinGroups; ++group) {
    const int bin = group * kLanes;
    for (HopSpectrum(&sum)[2] : sums) {
      HopProducts left_plane, right_plane;
      for (int partition = 0; partition < kPartitions;
           ++partition, row += DiffuserTables::kRowFloats) {
        const HopSpectrum(&input)[2] = inputs_[partition];
        const Complex<Vec> left = {Load<Vec>(input[0].re + bin), Load<Vec>(input[0].im + bin)};
        const Complex<Vec> right = {Load<Vec>(input[1].re + bin), Load<Vec>(input[1].im + bin)};
        left_plane.Add(left, row);
        right_plane.Add(right, row + DiffuserTables::kFilterFloats);
        right_plane.Add(left, row + 2 * DiffuserTables::kFilterFloats);
        left_plane.Add(right, row + 3 * DiffuserTables::kFilterFloats);
      }
      left_plane.StoreTo(sum[0], group);
      right_plane.StoreTo(sum[1], group);
    }
  }
  for (int side = 0; side < 2; ++side) {
    sums[0][side].LastHop(tables_->fft, out.side[side]);
    sums[1][side].LastHop(tables_->fft, out.back[side]);
  }
}

}  // namespace kelda::upmix_lib
