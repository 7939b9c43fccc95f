#include "tools/core/file_problems.h"

#include <algorithm>

namespace kelda::tools {
namespace {

constexpr std::size_t kMaxShown = 20;

}  // namespace

void FileProblems::Add(std::size_t line, const std::string& what) {
  if (++count_ <= kMaxShown) {
    shown_.emplace_back(line, what);
  }
}

std::string FileProblems::Text() const {
  auto in_order = shown_;
  std::stable_sort(in_order.begin(), in_order.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::string text;
  for (const auto& [line, what] : in_order) {
    text += text.empty() ? "" : "\n";
    text += line == 0 ? "kelda: " + file_ + ": " : file_ + ':' + std::to_string(line) + ": ";
    text += what;
  }
  if (count_ > kMaxShown) {
    text += "\nkelda: " + file_ + ": and " + std::to_string(count_ - kMaxShown) + " more";
  }
  return text;
}

void FileProblems::ThrowIfAny(const std::string& warnings, ExitCode code) const {
  if (!empty()) {
    throw FileFailure(warnings + (warnings.empty() ? "" : "\n") + Text(), code);
  }
}

}  // namespace kelda::tools
