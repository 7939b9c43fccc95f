// sound_figures: measures how a signal library sounds.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "assurance/sound/plane_figures.h"
#include "assurance/sound/signal_library.h"
#include "tools/core/json.h"

namespace kelda::sound {
namespace {

void Print(const std::vector<Figure>& figures) {
  for (const Figure& figure : figures) {
    std::printf("%-75s %10.3f %s\n", figure.name.c_str(), figure.value, figure.unit);
  }
}

std::vector<Figure> Measure(const std::string& library, const std::string& tuning,
                            const std::string& mixes) {
  const SignalLibrary signal_library(library, tuning);
  const Upmix upmix = [&](const Planes& in) { return signal_library.Upmix(in); };
  std::vector<Figure> figures;
  Signal guitar;
  for (const MixPlan& plan : MixPlans()) {
    const Mix mix = LoadMix(mixes, plan.name);
    for (const Stem& stem : mix.stems) {
      if (guitar.empty() && stem.place == Place::kLeft) guitar = stem.signal[0];
    }
    for (Figure& figure : MixFigures(upmix, mix)) figures.push_back(std::move(figure));
  }
  for (Figure& figure : MadeFigures(upmix, guitar)) figures.push_back(std::move(figure));
  return figures;
}

}  // namespace
}  // namespace kelda::sound

int main(int argc, char** argv) try {
  CLI::App app("Measures how a signal library sounds.");
  std::string library, tuning, mixes;
  app.add_option("--library", library, "the signal library")->required();
  app.add_option("--tuning", tuning, "the tuning directory")->required();
  app.add_option("--mixes", mixes, "what make_mixes wrote")->required();
  CLI11_PARSE(app, argc, argv);
  kelda::sound::Print(kelda::sound::Measure(library, tuning, mixes));
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "sound_figures: %s\n", error.what());
  return 1;
}
