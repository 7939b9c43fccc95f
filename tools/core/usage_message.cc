#include "tools/core/usage_message.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

// How many letters must be added, removed, replaced or swapped with their neighbour to turn `a`
// into `b` (the distance of optimal string alignment).
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> distance(a.size() + 1,
                                                 std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        distance[i][j] = i + j;
        continue;
      }
      const std::size_t replaced = distance[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      distance[i][j] = std::min({replaced, distance[i - 1][j] + 1, distance[i][j - 1] + 1});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        distance[i][j] = std::min(distance[i][j], distance[i - 2][j - 2] + 1);
      }
    }
  }
  return distance[a.size()][b.size()];
}

// The sub-command that the arguments name; the program itself if they name none.
const CLI::App& Reached(const CLI::App& program) {
  const CLI::App* app = &program;
  while (!app->get_subcommands().empty()) {
    app = app->get_subcommands().front();
  }
  return *app;
}

std::vector<std::string> KnownWords(const CLI::App& app, bool options) {
  std::vector<std::string> known;
  if (options) {
    for (const CLI::Option* option : app.get_options()) {
      for (const std::string& name : option->get_lnames()) {
        known.push_back("--" + name);
      }
    }
  } else {
    const auto all = [](const CLI::App*) { return true; };
    for (const CLI::App* command : app.get_subcommands(all)) {
      known.push_back(command->get_name());
    }
  }
  return known;
}

// The words after the program's that lead to `app`: " tune eq".
std::string CommandLine(const CLI::App* app) {
  return app->get_parent() == nullptr ? app->get_name()
                                      : CommandLine(app->get_parent()) + " " + app->get_name();
}

}  // namespace

bool NamesUnknownCommand(const CLI::App& program) {
  return !program.remaining(true).empty() && !KnownWords(Reached(program), false).empty();
}

std::string UsageMessage(const CLI::App& program, const CLI::ParseError& error) {
  constexpr std::size_t kMostShown = 80;
  const CLI::App& app = Reached(program);
  const std::string help = " (" + CommandLine(&app) + " --help shows what there is)";
  const std::vector<std::string> unknown = program.remaining(true);
  const auto is_option = [](const std::string& word) { return word.size() > 1 && word[0] == '-'; };
  auto found = std::find_if(unknown.begin(), unknown.end(), is_option);
  const bool option = found != unknown.end();
  const bool takes_command = !KnownWords(app, false).empty();
  if (!option && takes_command) {
    found = unknown.begin();
  }
  if (found == unknown.end()) {
    return (takes_command ? "a command is missing" : error.what()) + help;
  }

  const std::string word = found->substr(0, option ? found->find('=') : std::string::npos);
  std::string nearest;
  std::size_t nearest_distance = 3;  // more than a typing error
  for (const std::string& known : KnownWords(app, option)) {
    const std::size_t distance = Distance(word, known);
    if (distance < nearest_distance && 2 * distance < word.size()) {
      nearest = known;
      nearest_distance = distance;
    }
  }
  return (option ? "unknown option " : "unknown command ") + Quoted(word, kMostShown) +
         (nearest.empty() ? "" : ", did you mean " + nearest + "?") + help;
}

}  // namespace kelda::tools
