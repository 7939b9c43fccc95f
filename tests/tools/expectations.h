// What tests of the tools expect of texts.
#ifndef KELDA_TESTS_TOOLS_EXPECTATIONS_H_
#define KELDA_TESTS_TOOLS_EXPECTATIONS_H_

#include <gtest/gtest.h>

#include <string>

#include "tools/core/failure.h"

namespace kelda::tools {

inline testing::AssertionResult Holds(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "'" << part << "' is not in\n" << text;
}

// Whether `text` is, from end to end, of a POSIX extended regular expression.
// (std::regex sets off g++ 12's -Wmaybe-uninitialized under the sanitizers.)
inline testing::AssertionResult Matches(const std::string& text, const std::string& pattern) {
  if (testing::internal::RE::FullMatch(text, testing::internal::RE(pattern))) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << pattern << " is not the form of\n" << text;
}

// The message of the Failure that `action` must throw, without `path` wherever it is.
template <typename Action>
std::string Refusal(ExitCode code, const std::string& path, Action action) {
  try {
    action();
  } catch (const Failure& failure) {
    EXPECT_EQ(code, failure.code());
    std::string what = failure.what();
    for (std::size_t at; !path.empty() && (at = what.find(path)) != std::string::npos;) {
      what.erase(at, path.size());
    }
    return what;
  }
  return "nothing was refused";
}

}  // namespace kelda::tools

#endif  // KELDA_TESTS_TOOLS_EXPECTATIONS_H_
