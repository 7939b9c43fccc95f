#include "tools/equalizer/equalizer_text.h"

#include <algorithm>
#include <span>
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

// In lower case, because the language ignores case.
std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c | 0x20);
    }
  }
  return lower;
}

double ParsePreamp(std::string_view text) {
  std::string_view rest = text;
  const auto gain = TakeDecimal(&rest);
  const std::string unit = Lower(Trimmed(rest));
  if (!gain || (!unit.empty() && unit != "db")) {
    throw std::invalid_argument("Preamp is not a number in dB (" + Quoted(text) + ")");
  }
  return gain->value;
}

// "filter", "filter 12".
bool IsFilter(const std::string& key) {
  constexpr std::string_view kWord = "filter";
  return key.starts_with(kWord) &&
         key.find_first_not_of(" \t0123456789", kWord.size()) == std::string::npos;
}

// Why a command of Equalizer APO is refused, or empty if it is not. To skip such a command would
// change what the other lines mean, or the sound.
std::string_view WhyRefused(std::string_view key) {
  constexpr std::string_view kMeaning[] = {"channel", "device", "stage", "include", "if",
                                           "elseif",  "else",   "endif", "eval"};
  constexpr std::string_view kSound[] = {"copy", "convolution", "delay", "loudnesscorrection",
                                         "vstplugin"};
  const auto in = [&](std::span<const std::string_view> keys) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
  };
  return in(kMeaning) ? "it changes what other lines mean"
         : in(kSound) ? "it changes the sound in a way that an equalizer file cannot"
                      : "";
}

struct Line {
  std::size_t number;  // from 1
  std::string_view text;
  std::string key;  // the text before the colon, in lower case; empty if there is no colon
  std::string_view value;
};

// Calls `visit` with every line that is neither blank nor a comment.
template <typename Visit>
void ForEachLine(std::string_view contents, Visit visit) {
  for (std::size_t number = 1; !contents.empty(); ++number) {
    const std::string_view text = Trimmed(TakeLine(&contents));
    if (text.empty() || text[0] == '#') {
      continue;
    }
    const std::size_t colon = std::min(text.find(':'), text.size());
    const bool has_key = colon < text.size();
    visit(Line{number, text, has_key ? Lower(Trimmed(text.substr(0, colon))) : "",
               has_key ? Trimmed(text.substr(colon + 1)) : ""});
  }
}

// Whether `mark` is surely the decimal mark of some number in the text. Filters that are off count,
// too.
bool TextHasDecimalMark(std::string_view contents, char mark) {
  bool has = false;
  ForEachLine(contents, [&](const Line& line) {
    const bool numbers = line.key == "preamp" || line.key == "graphiceq" || IsFilter(line.key);
    has = has || (numbers && HasDecimalMark(line.text, mark));
  });
  return has;
}

// Adds what one line says to `*text`. Throws UnknownFilter or std::invalid_argument. Returns
// whether the line is known.
bool AddLine(const Line& line, bool decimal_commas, EqualizerText* text) {
  if (line.key == "preamp") {
    text->preamp_db += ParsePreamp(line.value);
  } else if (IsFilter(line.key)) {
    if (const auto band = ParseFilter(line.value, decimal_commas)) {
      if (text->bands.size() == kMaxFilters) {
        throw std::invalid_argument("more filters than can be used (at most " +
                                    std::to_string(kMaxFilters) + ")");
      }
      text->bands.push_back(*band);
    }
  } else if (line.key == "graphiceq") {
    text->graphic_curves.push_back(GraphicCurve::Parse(line.value, decimal_commas));
  } else if (const std::string_view reason = WhyRefused(line.key); !reason.empty()) {
    const std::string_view name = Trimmed(line.text.substr(0, line.text.find(':')));
    throw std::invalid_argument(std::string(name) + " is refused, " + std::string(reason) + " (" +
                                Quoted(line.text) + ")");
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
  const bool decimal_commas = TextHasDecimalMark(contents, ',');
  if (decimal_commas && TextHasDecimalMark(contents, '.')) {
    warnings.Add(0,
                 "warning: it has decimal commas and decimal points; a frequency of '10.000' is "
                 "read as ten thousand");
  }
  std::size_t known = 0;
  ForEachLine(contents, [&](const Line& line) {
    try {
      if (AddLine(line, decimal_commas, &text)) {
        ++known;
      } else {
        warnings.Add(line.number, "warning: unknown line " + Quoted(line.text));
      }
    } catch (const UnknownFilter& unknown) {
      warnings.Add(line.number, std::string("warning: ") + unknown.what());
    } catch (const std::invalid_argument& error) {
      problems.Add(line.number, error.what());
    }
  });
  if (!(text.preamp_db >= upmix_lib::kPreampMinDb && text.preamp_db <= upmix_lib::kPreampMaxDb)) {
    problems.Add(0, "the sum of the preamps is out of range (" + std::to_string(text.preamp_db) +
                        " dB, -60 to 24 dB)");
  }
  if (known == 0 && problems.empty()) {
    problems.Add(0, "it has no known Preamp, Filter or GraphicEQ line");
  }
  problems.ThrowIfAny(warnings.Text());
  text.warnings = warnings.Text();
  return text;
}

}  // namespace kelda::tools
