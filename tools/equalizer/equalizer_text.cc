#include "tools/equalizer/equalizer_text.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "tools/core/decimal.h"
#include "tools/core/file_problems.h"
#include "tools/core/text_file.h"
#include "tools/equalizer/equalizer_filter_line.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kMaxTextBytes = std::size_t{16} << 20;
constexpr std::size_t kMaxFilters = 1000;

std::string_view Trimmed(std::string_view text) {
  constexpr const char* kBlanks = " \t\v\f\r";
  const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

// In small letters: the language does not tell cases apart.
std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c | 0x20);
  }
  return lower;
}

double ParsePreamp(std::string_view text) {
  std::string_view rest = text;
  const auto gain_db = TakeDecimal(&rest);
  const std::string unit = Lower(Trimmed(rest));
  if (!gain_db || (!unit.empty() && unit != "db")) {
    throw std::invalid_argument("Preamp is not a number in dB (" + Quoted(text) + ")");
  }
  return *gain_db;
}

// "filter", "filter 12".
bool IsFilter(const std::string& key) {
  constexpr std::string_view kWord = "filter";
  return key.starts_with(kWord) &&
         key.find_first_not_of(" \t0123456789", kWord.size()) == std::string::npos;
}

// Takes one line over. Throws UnknownFilter or std::invalid_argument. Returns whether the
// line is known.
bool TakeLine(std::string_view line, EqualizerText* text) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return false;
  const std::string key = Lower(Trimmed(line.substr(0, colon)));
  const std::string_view value = Trimmed(line.substr(colon + 1));
  if (key == "preamp") {
    text->preamp_db += ParsePreamp(value);
  } else if (IsFilter(key)) {
    if (const auto band = ParseFilter(value)) {
      if (text->bands.size() == kMaxFilters) {
        throw std::invalid_argument("more filters than can be used (at most " +
                                    std::to_string(kMaxFilters) + ")");
      }
      text->bands.push_back(*band);
    }
  } else if (key == "graphiceq") {
    text->graphic_curves.push_back(GraphicCurve::Parse(value));
  } else if (key == "channel" || key == "device" || key == "include") {
    throw std::invalid_argument("refused, it changes what other lines mean (" + Quoted(line) + ")");
  } else {
    return false;
  }
  return true;
}

}  // namespace

EqualizerText ReadEqualizerText(const std::filesystem::path& path) {
  const std::string contents = ReadTextFile(path, kMaxTextBytes);
  EqualizerText text;
  FileProblems problems(path.string());
  FileProblems warnings(path.string());
  std::size_t number = 0, known = 0;
  for (std::string_view rest = contents; !rest.empty();) {
    const std::string_view whole = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(whole.size() + 1, rest.size()));
    ++number;
    const std::string_view line = Trimmed(whole);
    if (line.empty() || line[0] == '#') continue;
    try {
      if (TakeLine(line, &text)) {
        ++known;
      } else {
        warnings.Add(number, "warning: unknown line " + Quoted(line));
      }
    } catch (const UnknownFilter& unknown) {
      warnings.Add(number, std::string("warning: ") + unknown.what());
    } catch (const std::invalid_argument& error) {
      problems.Add(number, error.what());
    }
  }
  if (!(text.preamp_db >= upmix_lib::kPreampMinDb && text.preamp_db <= upmix_lib::kPreampMaxDb)) {
    problems.Add(0, "the preamps' sum is out of range (" + std::to_string(text.preamp_db) +
                        " dB, -60 to 24 dB)");
  }
  if (known == 0 && problems.empty()) {
    problems.Add(0, "no Preamp, Filter or GraphicEQ line that is known");
  }
  problems.ThrowIfAny();
  text.warnings = warnings.Text();
  return text;
}

}  // namespace kelda::tools
