#include "assurance/sound/peers.h"

#include <bit>
#include <cmath>
#include <complex>
#include <cstdlib>

#include "tools/measure/spectrum.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/binaural/hrir_set.h"

namespace kelda::sound {
namespace {

using enum upmix_lib::Plane;

// ffmpeg's 5.1, and from where its filter `headphone` is to render each channel.
constexpr int kPlaneOfChannel[] = {kFL, kFR, kFC, kFC, kBL, kBR};
constexpr const char* kChannels[] = {"FL", "FR", "FC", "LFE", "BL", "BR"};

// Runs ffmpeg over `in`; `more_inputs` and `graph` are its options.
Planes Ffmpeg(const Planes& in, const std::filesystem::path& scratch,
              const std::string& more_inputs, const std::string& graph) {
  const std::filesystem::path from = scratch / "in.wav", to = scratch / "out.wav";
  // What the filter holds back is pushed out by silence.
  Planes longer = in;
  for (Signal& channel : longer) {
    channel.resize(channel.size() + 48000);
  }
  WritePlanes(from, longer);
  const std::string command = "ffmpeg -nostdin -v error -y -i '" + from.string() + "' " +
                              more_inputs + " -filter_complex '" + graph +
                              "' -ar 48000 -c:a pcm_f32le '" + to.string() + "'";
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error("failed: " + command);
  }
  return ReadPlanes(to);
}

// By how many frames the sum of `out` is later than the sum of `in`: the peak of their
// cross-correlation.
std::ptrdiff_t Lag(const Planes& in, const Planes& out) {
  const std::size_t size = std::bit_ceil(2 * std::max(in[0].size(), out[0].size()));
  const tools::SpectrumAnalysis analysis(size);
  const auto spectrum_of = [&](const Planes& planes) {
    std::vector<double> sum(planes[0].size());
    for (const Signal& plane : planes) {
      for (std::size_t n = 0; n < sum.size(); ++n) {
        sum[n] += double{plane[n]};
      }
    }
    return analysis.Forward(sum);
  };
  tools::Spectrum cross = spectrum_of(out);
  const tools::Spectrum sent = spectrum_of(in);
  for (std::size_t k = 0; k < cross.size(); ++k) {
    cross[k] *= std::conj(sent[k]);
  }
  const std::vector<double> correlation = analysis.Inverse(cross);
  std::size_t peak = 0;
  for (std::size_t n = 0; n < size; ++n) {
    if (std::abs(correlation[n]) > std::abs(correlation[peak])) {
      peak = n;
    }
  }
  return static_cast<std::ptrdiff_t>(peak) -
         (peak > size / 2 ? static_cast<std::ptrdiff_t>(size) : 0);
}

// The system's output over its input: its lag is found once, by noise from the centre.
std::function<Planes(const Planes&)> InLine(const std::function<Planes(const Planes&)>& system) {
  const Planes noise(2, upmix_lib::PinkNoise(1, 96000));
  return [system, lag = Lag(noise, system(noise))](const Planes& in) {
    Planes out = system(in);
    for (Signal& plane : out) {
      Signal moved(in[0].size());
      for (std::size_t n = 0; n < moved.size(); ++n) {
        const std::ptrdiff_t from = static_cast<std::ptrdiff_t>(n) + lag;
        if (from >= 0 && from < std::ssize(plane)) {
          moved[n] = plane[static_cast<std::size_t>(from)];
        }
      }
      plane = moved;
    }
    return out;
  };
}

}  // namespace

System MakePeer(const std::string& name, const std::filesystem::path& hki,
                const std::filesystem::path& scratch) {
  const auto filter = [scratch](const std::string& inputs, const std::string& graph) {
    return [=](const Planes& in) { return Ffmpeg(in, scratch, inputs, graph); };
  };
  if (name == "bypass") {
    return {name, {}, [](const Planes& in) { return in; }};
  }
  if (name == "crossfeed") {
    return {name, {}, InLine(filter("", "crossfeed"))};
  }
  if (name == "loudnorm") {
    return {name, {}, InLine(filter("", "loudnorm=I=-16")), -16.0};
  }
  if (name != "surround") {
    throw std::runtime_error("no such peer: " + name);
  }
  upmix_lib::HrirSet set;
  if (LoadHrirSet(hki, set) != upmix_lib::kOk) {
    throw std::runtime_error(hki.string() + ": no HRIRs");
  }
  std::string inputs, streams, map;
  for (std::size_t channel = 0; channel < std::size(kChannels); ++channel) {
    Planes pair;
    for (const int ear : {0, 1}) {
      const auto taps = set.response(kPlaneOfChannel[channel], ear);
      pair.emplace_back(taps.begin(), taps.end());
    }
    const std::filesystem::path file = scratch / (std::string(kChannels[channel]) + ".wav");
    WritePlanes(file, pair);
    inputs.append(" -i '").append(file.string()).append("'");
    streams.append("[").append(std::to_string(channel + 1)).append("]");
    map.append(channel > 0 ? "|" : "").append(kChannels[channel]);
  }
  const auto upmixed = InLine(filter("", "surround=chl_out=5.1"));
  return {
      name,
      [upmixed](const Planes& in) {
        Planes six = upmixed(in), seven(upmix_lib::kPlanes, Signal(in[0].size()));
        for (const std::size_t channel : {0u, 1u, 2u, 4u, 5u}) {
          seven[static_cast<std::size_t>(kPlaneOfChannel[channel])] = six[channel];
        }
        return seven;
      },
      InLine(filter(inputs, "[0]surround=chl_out=5.1[s];[s]" + streams + "headphone=map=" + map))};
}

}  // namespace kelda::sound
