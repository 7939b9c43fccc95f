// Writes a short piece of music for demonstrations: about 17 s, stereo, 48 kHz,
// 24-bit FLAC or WAV.
//
// Every part shows something on headphones: a bass and a voice-like lead in the centre, plucked
// strings on both sides, a pad that is all ambience, and percussion in a room. Every run writes the
// same bytes.
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kRateHz = 48000;
constexpr double kBeatSeconds = 0.5;
constexpr int kBars = 8;
constexpr double kTailSeconds = 1.5;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

// A stereo mix, planar: left and right.
struct Mix {
  std::vector<double> left;
  std::vector<double> right;

  explicit Mix(std::size_t frames) : left(frames), right(frames) {}
  // Adds a mono part at a time. Pan from -1 (left) to 1 (right), constant power.
  void Add(const std::vector<double>& part, double seconds, double gain, double pan) {
    const auto start = static_cast<std::size_t>(seconds * kRateHz);
    const double angle = (pan + 1.0) * std::numbers::pi / 4.0;
    for (std::size_t i = 0; i < part.size() && start + i < left.size(); ++i) {
      left[start + i] += gain * std::cos(angle) * part[i];
      right[start + i] += gain * std::sin(angle) * part[i];
    }
  }
};

double NoteHz(int midi) { return 440.0 * std::exp2((midi - 69) / 12.0); }

std::size_t Frames(double seconds) { return static_cast<std::size_t>(seconds * kRateHz); }

// From -1 to 1, the same with every standard library.
class Noise {
 public:
  explicit Noise(uint32_t seed) : random_(seed) {}
  double operator()() { return static_cast<double>(random_()) / 2147483647.5 - 1.0; }

 private:
  std::mt19937 random_;
};

// Karplus and Strong, "Digital Synthesis of Plucked-String and Drum Timbres",
// Computer Music Journal 7(2), 1983: noise in a loop with a two-point average;
// a first-order all-pass makes up the fraction of a frame for the pitch.
std::vector<double> Pluck(int midi, double seconds, Noise* noise) {
  const double period = kRateHz / NoteHz(midi) - 0.5;
  const auto whole = static_cast<std::size_t>(period - 0.1);
  const double fraction = period - static_cast<double>(whole);
  const double allpass = (1.0 - fraction) / (1.0 + fraction);
  std::vector<double> line(whole);
  double smooth = 0.0;
  for (double& sample : line) {
    smooth += 0.6 * ((*noise)() - smooth);
    sample = smooth;
  }
  std::vector<double> part(Frames(seconds));
  double last = 0.0;
  double allpass_in = 0.0;
  double allpass_out = 0.0;
  for (std::size_t i = 0; i < part.size(); ++i) {
    double& slot = line[i % whole];
    part[i] = slot;
    const double average = 0.4985 * (slot + last);
    last = slot;
    allpass_out = allpass * (average - allpass_out) + allpass_in;
    allpass_in = average;
    slot = allpass_out;
  }
  return part;
}

// Harmonics under two formants, with vibrato: something like a sung "ah".
std::vector<double> Voice(int midi, double seconds) {
  std::vector<double> part(Frames(seconds));
  double phase = 0.0;
  for (std::size_t i = 0; i < part.size(); ++i) {
    const double t = static_cast<double>(i) / kRateHz;
    const double vibrato = 1.0 + 0.006 * std::min(t / 0.4, 1.0) * std::sin(kTwoPi * 5.2 * t);
    const double pitch_hz = NoteHz(midi) * vibrato;
    phase += pitch_hz / kRateHz;
    double sample = 0.0;
    for (int harmonic = 1; harmonic <= 12; ++harmonic) {
      const double hz = harmonic * pitch_hz;
      const auto formant = [&](double centre, double width) {
        return std::exp(-std::pow((hz - centre) / width, 2.0));
      };
      const double level = formant(750.0, 260.0) + 0.6 * formant(1200.0, 300.0) +
                           0.15 * formant(2700.0, 500.0) + 0.25 / harmonic;
      sample += level / harmonic * std::sin(kTwoPi * harmonic * phase);
    }
    const double rise = std::min(t / 0.06, 1.0);
    const double fall = std::clamp((seconds - t) / 0.15, 0.0, 1.0);
    part[i] = sample * rise * fall;
  }
  return part;
}

std::vector<double> Bass(int midi, double seconds) {
  std::vector<double> part(Frames(seconds));
  for (std::size_t i = 0; i < part.size(); ++i) {
    const double t = static_cast<double>(i) / kRateHz;
    const double phase = kTwoPi * NoteHz(midi) * t;
    const double fall = std::clamp((seconds - t) / 0.05, 0.0, 1.0);
    part[i] = (std::sin(phase) + 0.35 * std::sin(2.0 * phase) * std::exp(-3.0 * t) +
               0.15 * std::sin(3.0 * phase) * std::exp(-6.0 * t)) *
              std::min(t / 0.008, 1.0) * std::exp(-1.2 * t) * fall;
  }
  return part;
}

// Detuned sines with slow random phases: one channel of a pad. Another seed
// gives a channel that is not correlated with it.
std::vector<double> Pad(const std::vector<int>& chord, double seconds, Noise* noise) {
  std::vector<double> part(Frames(seconds));
  for (const int midi : chord) {
    for (int partial = 0; partial < 5; ++partial) {
      const double hz = NoteHz(midi) * (1.0 + 0.004 * (*noise)());
      const double start = kTwoPi * (*noise)();
      const double sway_hz = 0.2 + 0.15 * (*noise)();
      for (std::size_t i = 0; i < part.size(); ++i) {
        const double t = static_cast<double>(i) / kRateHz;
        part[i] += std::sin(kTwoPi * hz * t + start + 0.8 * std::sin(kTwoPi * sway_hz * t + start));
      }
    }
  }
  for (std::size_t i = 0; i < part.size(); ++i) {
    const double t = static_cast<double>(i) / kRateHz;
    part[i] *= std::min(t / 0.5, 1.0) * std::clamp((seconds - t) / 0.5, 0.0, 1.0);
  }
  return part;
}

// A drum with pitch that falls from `from_hz` to `to_hz`, or, with `hiss`, a shaker.
std::vector<double> Drum(double from_hz, double to_hz, double decay_seconds, double hiss,
                         Noise* noise) {
  std::vector<double> part(Frames(6.0 * decay_seconds));
  double phase = 0.0;
  double last = 0.0;
  for (std::size_t i = 0; i < part.size(); ++i) {
    const double t = static_cast<double>(i) / kRateHz;
    phase += (to_hz + (from_hz - to_hz) * std::exp(-t / 0.03)) / kRateHz;
    const double white = (*noise)();
    part[i] = ((1.0 - hiss) * std::sin(kTwoPi * phase) + hiss * 0.5 * (white - last)) *
              std::exp(-t / decay_seconds);
    last = white;
  }
  return part;
}

// A room: each ear gets its own decaying noise as impulse response, thinned out
// to a few hundred taps, after 12 ms.
std::vector<double> Room(const std::vector<double>& dry, Noise* noise) {
  constexpr int kTaps = 300;
  constexpr double kDecaySeconds = 0.35;
  std::vector<double> wet(dry.size());
  for (int tap = 0; tap < kTaps; ++tap) {
    const double seconds = 0.012 + 0.9 * tap / kTaps + 0.001 * ((*noise)() + 1.0);
    const double gain = (*noise)() * std::exp(-seconds / kDecaySeconds);
    const std::size_t delay = Frames(seconds);
    for (std::size_t i = delay; i < wet.size(); ++i) {
      wet[i] += gain * dry[i - delay];
    }
  }
  return wet;
}

Mix Compose() {
  const double bar = 4.0 * kBeatSeconds;
  const std::size_t frames = Frames(kBars * bar + kTailSeconds);
  Mix music(frames);
  Mix percussion(frames);
  Noise noise(1968);

  const int roots[] = {45, 41, 36, 43};  // A minor, F, C, G
  const std::vector<int> chords[] = {
      {57, 60, 64, 67}, {57, 60, 65, 69}, {55, 60, 64, 67}, {55, 59, 62, 67}};
  const int melody[kBars][2] = {{76, 72}, {77, 76}, {79, 76}, {74, 71},
                                {76, 81}, {77, 72}, {76, 79}, {74, 74}};
  for (int i = 0; i < kBars; ++i) {
    const double start = i * bar;
    const int root = roots[i % 4];
    const std::vector<int>& chord = chords[i % 4];
    for (const double beat : {0.0, 1.5, 2.0, 3.0}) {
      music.Add(Bass(beat == 1.5 ? root + 12 : root, 0.9 * kBeatSeconds),
                start + beat * kBeatSeconds, 0.26, 0.0);
    }
    music.Add(Pad(chord, bar + 0.5, &noise), start, 0.028, -1.0);
    music.Add(Pad(chord, bar + 0.5, &noise), start, 0.028, 1.0);
    for (int eighth = 0; eighth < 8; ++eighth) {
      const int note = chord[static_cast<std::size_t>(eighth * 3 % 4)] + (eighth % 3 == 2 ? 12 : 0);
      music.Add(Pluck(note, 1.6, &noise), start + eighth * kBeatSeconds / 2.0, 0.38,
                eighth % 2 == 0 ? -0.75 : 0.75);
    }
    if (i >= 2) {  // the voice starts after two bars of the room alone
      music.Add(Voice(melody[i][0], 2.4 * kBeatSeconds), start, 0.20, 0.0);
      music.Add(Voice(melody[i][1], 1.4 * kBeatSeconds), start + 2.5 * kBeatSeconds, 0.20, 0.0);
    }
    for (int beat = 0; beat < 4; ++beat) {
      const double at = start + beat * kBeatSeconds;
      if (beat % 2 == 0) {
        percussion.Add(Drum(160.0, 52.0, 0.09, 0.02, &noise), at, 0.55, 0.0);
      } else {
        percussion.Add(Drum(330.0, 190.0, 0.05, 0.6, &noise), at, 0.32, 0.15);
      }
      percussion.Add(Drum(9000.0, 9000.0, 0.02, 1.0, &noise), at + kBeatSeconds / 2.0, 0.22, 0.6);
      percussion.Add(Drum(9000.0, 9000.0, 0.012, 1.0, &noise), at + kBeatSeconds / 4.0, 0.14, -0.6);
    }
  }
  music.Add(percussion.left, 0.0, 1.0, -1.0);
  music.Add(percussion.right, 0.0, 1.0, 1.0);
  music.Add(Room(percussion.left, &noise), 0.0, 0.07, -1.0);
  music.Add(Room(percussion.right, &noise), 0.0, 0.07, 1.0);
  return music;
}

// Interleaved, with the loudest sample at -3 dBFS and the end faded out.
std::vector<float> Finish(const Mix& mix) {
  double peak = 0.0;
  for (std::size_t i = 0; i < mix.left.size(); ++i) {
    peak = std::max({peak, std::abs(mix.left[i]), std::abs(mix.right[i])});
  }
  std::vector<float> samples;
  const std::size_t fade = Frames(kTailSeconds);
  for (std::size_t i = 0; i < mix.left.size(); ++i) {
    const std::size_t left = mix.left.size() - i;
    const double fall = std::min(static_cast<double>(left) / static_cast<double>(fade), 1.0);
    const double gain = std::pow(10.0, -3.0 / 20.0) / peak * fall;
    samples.push_back(static_cast<float>(gain * mix.left[i]));
    samples.push_back(static_cast<float>(gain * mix.right[i]));
  }
  return samples;
}

bool Write(const std::string& path, const std::vector<float>& samples) {
  SF_INFO info{};
  info.samplerate = kRateHz;
  info.channels = 2;
  info.format = SF_FORMAT_PCM_24 | (path.ends_with(".wav") ? SF_FORMAT_WAV : SF_FORMAT_FLAC);
  SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file == nullptr) {
    return false;
  }
  const auto frames = static_cast<sf_count_t>(samples.size() / 2);
  const bool written = sf_writef_float(file, samples.data(), frames) == frames;
  return sf_close(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: make_demo_music FILE.flac|FILE.wav\n", stderr);
    return 2;
  }
  if (!Write(argv[1], Finish(Compose()))) {
    std::fprintf(stderr, "make_demo_music: %s: cannot be written\n", argv[1]);
    return 1;
  }
  return 0;
}
