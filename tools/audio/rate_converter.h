#ifndef KELDA_TOOLS_AUDIO_RATE_CONVERTER_H_
#define KELDA_TOOLS_AUDIO_RATE_CONVERTER_H_

#include <soxr.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kelda::tools {

// Brings interleaved stereo to another rate, by libsoxr; at its best quality, from 44.1 to 48 kHz,
// flat within 0.01 dB to 20 kHz, with images and aliases below -120 dB. Without delay: the first
// output frame belongs to the first input frame.
class RateConverter {
 public:
  // Whether a rate can be converted: it is within a factor of 256 of the other.
  static bool Takes(int from_hz, int to_hz);

  // Throws std::runtime_error if memory runs out.
  // `quality` is one of libsoxr's recipes.
  RateConverter(int from_hz, int to_hz, unsigned long quality = SOXR_VHQ);

  // Converts `frames` frames and appends to `*output` what is ready.
  void Push(const float* stereo, std::size_t frames, std::vector<float>* output);
  // Appends the rest: the output is then as long as the input, rounded to a frame.
  void Finish(std::vector<float>* output);

 private:
  struct Deleter {
    void operator()(soxr_t converter) const { soxr_delete(converter); }
  };

  // Converts until `frames` are consumed; with none, until nothing more comes out.
  void Convert(const float* stereo, std::size_t frames, std::vector<float>* output);

  int from_hz_;
  int to_hz_;
  std::unique_ptr<soxr, Deleter> converter_;
  int64_t frames_in_ = 0;
  int64_t frames_out_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_RATE_CONVERTER_H_
