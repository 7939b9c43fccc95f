// Writes the default tuning, a complete set of tuning files.
#include <cstdio>
#include <exception>

#include "tools/default_tuning.h"
#include "tools/failure.h"

int main(int argc, char** argv) {
  using namespace kelda::tools;
  if (argc != 3) {
    std::fputs("usage: make_default_tuning DIR KEMAR.sofa\n", stderr);
    return static_cast<int>(ExitCode::kUsage);
  }
  try {
    WriteTuningDirectory(argv[1], MakeDefaultTuning(argv[2]));
    return static_cast<int>(ExitCode::kSuccess);
  } catch (const Failure& failure) {
    std::fprintf(stderr, "make_default_tuning: %s\n", failure.what());
    return static_cast<int>(failure.code());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make_default_tuning: %s\n", error.what());
    return static_cast<int>(ExitCode::kUnexpected);
  }
}
