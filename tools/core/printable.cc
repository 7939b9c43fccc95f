#include "tools/core/printable.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

namespace kelda::tools {
namespace {

unsigned char Byte(char c) { return static_cast<unsigned char>(c); }

// The length in bytes of the UTF-8 character at the start of `text`; 0 if there is none.
std::size_t CharacterBytes(std::string_view text) {
  const unsigned char first = Byte(text[0]);
  const std::size_t bytes = first < 0x80                    ? 1
                            : first >= 0xC2 && first < 0xE0 ? 2
                            : first >= 0xE0 && first < 0xF0 ? 3
                            : first >= 0xF0 && first < 0xF5 ? 4
                                                            : 0;
  const unsigned char second = text.size() > 1 ? Byte(text[1]) : 0;
  if ((first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90) ||  // overlong
      (first == 0xED && second >= 0xA0) ||                                     // half a character
      (first == 0xF4 && second >= 0x90)) {                                     // beyond U+10FFFF
    return 0;
  }
  const auto continues = [](char c) { return (Byte(c) & 0xC0) == 0x80; };
  if (bytes == 0 || bytes > text.size() ||
      !std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(bytes),
                   continues)) {
    return 0;
  }
  return bytes;
}

// U+0000 to U+001F, U+007F to U+009F.
bool IsControl(std::string_view character) {
  return character.size() == 1 ? Byte(character[0]) < 0x20 || Byte(character[0]) == 0x7F
                               : Byte(character[0]) == 0xC2 && Byte(character[1]) < 0xA0;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t known = CharacterBytes(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(known, 1));
    text.remove_prefix(character.size());
    if (character == "\t") {
      shown += ' ';
    } else if (known != 0 && !IsControl(character)) {
      shown += character;
    } else {
      for (const char c : character) {
        char escaped[8];
        std::snprintf(escaped, sizeof(escaped), "\\x%02x", Byte(c));
        shown += escaped;
      }
    }
  }
  return shown;
}

std::string PrintableLines(std::string_view lines) {
  std::string shown;
  for (std::size_t end = lines.find('\n'); end != std::string_view::npos; end = lines.find('\n')) {
    shown += Printable(lines.substr(0, end)) + '\n';
    lines.remove_prefix(end + 1);
  }
  return shown + Printable(lines);
}

}  // namespace kelda::tools
