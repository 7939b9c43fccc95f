// make_mixes STEMS FOLDER: places the dry stems that render_stems wrote, and saves the mixes.
#include <cstdio>
#include <exception>

#include "assurance/sound/mixes.h"

int main(int argc, char** argv) try {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_mixes STEMS FOLDER\n");
    return 2;
  }
  for (const kelda::sound::MixPlan& plan : kelda::sound::MixPlans()) {
    SaveMix(MakeMix(plan, argv[1]), argv[2]);
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "make_mixes: %s\n", error.what());
  return 1;
}
