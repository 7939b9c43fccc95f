// Whether a text matches a POSIX extended regular expression from end to end.
// (std::regex sets off g++ 12's -Wmaybe-uninitialized under the sanitizers.)
#ifndef KELDA_TESTS_TOOLS_MATCHES_H_
#define KELDA_TESTS_TOOLS_MATCHES_H_

#include <regex.h>

#include <stdexcept>
#include <string>

namespace kelda::tools {

inline bool Matches(const std::string& text, const std::string& pattern) {
  regex_t expression;
  if (regcomp(&expression, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
    throw std::invalid_argument(pattern);
  }
  const bool matches = regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
  regfree(&expression);
  return matches;
}

}  // namespace kelda::tools

#endif  // KELDA_TESTS_TOOLS_MATCHES_H_
