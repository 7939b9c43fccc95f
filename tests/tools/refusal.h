// What a reader says is wrong.
#ifndef KELDA_TESTS_TOOLS_REFUSAL_H_
#define KELDA_TESTS_TOOLS_REFUSAL_H_

#include <gtest/gtest.h>

#include <string>

#include "tools/failure.h"

namespace kelda::tools {

// The message of the Failure that `action` must throw, without `path` wherever it is.
template <typename Action>
std::string Refusal(ExitCode code, const std::string& path, Action action) {
  try {
    action();
  } catch (const Failure& failure) {
    EXPECT_EQ(code, failure.code());
    std::string what = failure.what();
    for (size_t at; !path.empty() && (at = what.find(path)) != std::string::npos;) {
      what.erase(at, path.size());
    }
    return what;
  }
  return "nothing was refused";
}

}  // namespace kelda::tools

#endif  // KELDA_TESTS_TOOLS_REFUSAL_H_
