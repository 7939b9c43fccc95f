#include "tools/library/library_trial.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "platform/audio_format.h"
#include "tools/core/decibels.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

constexpr uint32_t kWorkLimitBytes = 64u << 20;  // far more than the phone has to give
constexpr std::size_t kWorkMargin = 64;
constexpr char kWorkMark = '\x5A';
constexpr double kSilentPeak = 1e-6;

}  // namespace

bool ComponentTrial::Call(const char* entry, const std::string& what, int32_t status) {
  std::printf("  %s  %-44s status %d\n", entry, what.c_str(), status);
  std::fflush(stdout);  // so that a crash does not lose it
  if (status != 0) {
    fits_ = false;
  }
  return status == 0;
}

void ComponentTrial::Refused(const char* entry, const std::string& what, bool refused) {
  std::printf("  %s  %-44s %s\n", entry, what.c_str(), refused ? "refused" : "NOT REFUSED");
  std::fflush(stdout);
  if (!refused) {
    fits_ = false;
  }
}

void ComponentTrial::Expect(bool condition, const std::string& problem) {
  if (condition) {
    return;
  }
  std::printf("  does not fit: %s\n", problem.c_str());
  std::fflush(stdout);
  fits_ = false;
}

std::vector<char> ComponentTrial::Parameters(const char* file, uint32_t bytes) {
  const std::filesystem::path path = path_ / file;
  std::vector<char> parameters;
  if (WhyUnreadable(path).empty()) {
    std::ifstream stream(path, std::ios::binary);
    parameters.assign(std::istreambuf_iterator<char>(stream), {});
  }
  Expect(parameters.size() == bytes, std::string(file) + " has " +
                                         std::to_string(parameters.size()) +
                                         " bytes where the library asks for " +
                                         std::to_string(bytes) + ": its tuning is of another kind");
  parameters.resize(std::min(bytes, kWorkLimitBytes));
  return parameters;
}

std::vector<char> ComponentTrial::WorkMemory(uint32_t bytes) {
  const bool possible = bytes > 0 && bytes <= kWorkLimitBytes;
  Expect(possible, "work memory of " + std::to_string(bytes) + " bytes, limit " +
                       std::to_string(kWorkLimitBytes));
  return possible ? std::vector<char>(bytes + kWorkMargin, kWorkMark) : std::vector<char>();
}

void ComponentTrial::CheckWorkMemory(const std::vector<char>& work) {
  Expect(
      std::all_of(work.end() - kWorkMargin, work.end(), [](char c) { return c == kWorkMark; }),
      "it wrote beyond its work memory of " + std::to_string(work.size() - kWorkMargin) + " bytes");
}

void ComponentTrial::Block(const char* entry, int frames, GuardedFloats* out,
                           const std::function<int32_t()>& process) {
  constexpr int kBlocks = 100;
  double shortest_s = 1e9;
  for (int block = 0; block < kBlocks; ++block) {
    const auto start = std::chrono::steady_clock::now();
    const int32_t status = process();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    shortest_s = std::min(shortest_s, taken.count());
    if (block == 0 || status != 0) {
      if (!Call(entry, "process block " + std::to_string(block + 1), status)) {
        return;
      }
    }
  }
  const double peak = static_cast<double>(out->peak());
  std::printf("         peak %.1f dBFS; %.1f us for %d frames, %.2f %% of their time\n", ToDb(peak),
              1e6 * shortest_s, frames, 100 * shortest_s * kSampleRateHz / frames);
  Expect(out->intact(), "it wrote beyond its output");
  Expect(out->finite(), "its output is not finite");
  Expect(peak > kSilentPeak, "its output is silent");
}

}  // namespace kelda::tools
