// Spectra of impulse responses in double precision, for designs in which speed does not matter.
#ifndef KELDA_TOOLS_MEASURE_SPECTRUM_H_
#define KELDA_TOOLS_MEASURE_SPECTRUM_H_

#include <complex>
#include <cstddef>
#include <kissfft.hh>
#include <span>
#include <vector>

namespace kelda::tools {

// bins() values, from 0 Hz to half of the sampling rate.
using Spectrum = std::vector<std::complex<double>>;
using Power = std::vector<double>;

// Transforms of one size, a power of two.
class SpectrumAnalysis {
 public:
  explicit SpectrumAnalysis(std::size_t size);

  std::size_t size() const { return size_; }
  std::size_t bins() const { return size_ / 2 + 1; }

  // `signal` has at most size() samples.
  Spectrum Forward(std::span<const double> signal) const;
  Power PowerOf(std::span<const float> signal) const;

  // size() samples; scaled so that it undoes Forward.
  std::vector<double> Inverse(const Spectrum& spectrum) const;

  // The minimum-phase spectrum of `power`, whose values are above zero, by folding its
  // cepstrum (Oppenheim and Schafer, "Discrete-Time Signal Processing", chapter 13).
  Spectrum MinimumPhase(const Power& power) const;

 private:
  std::size_t size_;
  kissfft<double> forward_;
  kissfft<double> inverse_;
};

// Of `size` values, symmetric: 0 would be half a sample before the first and after the last one.
std::vector<double> HannWindow(std::size_t size);

// The gain of sample `n` of a response that is cut to `count` samples: 1, and over the last eighth
// a fall to 0 by a raised cosine.
double FadeOut(std::size_t n, std::size_t count);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_SPECTRUM_H_
