// The dynamic symbols that a library defines.
#ifndef KELDA_TESTS_TOOLS_SYMBOLS_H_
#define KELDA_TESTS_TOOLS_SYMBOLS_H_

#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace kelda::tools {

inline std::set<std::string> ExportedSymbols(const std::string& library) {
  struct Closer {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
  };
  const std::unique_ptr<std::FILE, Closer> pipe(
      popen(("nm --dynamic --defined-only --format=just-symbols '" + library + "'").c_str(), "r"));
  std::set<std::string> symbols;
  char line[512];
  while (pipe != nullptr && std::fgets(line, sizeof(line), pipe.get()) != nullptr) {
    const std::string symbol(line);
    symbols.insert(symbol.substr(0, symbol.find_first_of("@\n")));
  }
  return symbols;
}

}  // namespace kelda::tools

#endif  // KELDA_TESTS_TOOLS_SYMBOLS_H_
