#include "tools/audio/ogg_links.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <string_view>

namespace kelda::tools {
namespace {

constexpr std::string_view kCapturePattern = "OggS";

// A page's header, RFC 3533 section 6.
struct Page {
  bool begins_stream;
  bool ends_stream;
  uint32_t serial;
  int64_t bytes;  // header and body
};

// Reads the header of the page at `offset`; false if there is none.
bool ReadPage(std::ifstream* file, int64_t offset, Page* page) {
  std::array<unsigned char, 27> header;
  std::array<unsigned char, 255> segments;
  file->clear();
  file->seekg(offset);
  if (!file->read(reinterpret_cast<char*>(header.data()), header.size()) ||
      std::memcmp(header.data(), kCapturePattern.data(), kCapturePattern.size()) != 0 ||
      !file->read(reinterpret_cast<char*>(segments.data()), header[26])) {
    return false;
  }
  page->begins_stream = (header[5] & 2) != 0;
  page->ends_stream = (header[5] & 4) != 0;
  page->serial = header[14] | uint32_t{header[15]} << 8 | uint32_t{header[16]} << 16 |
                 uint32_t{header[17]} << 24;
  page->bytes = int64_t{27} + header[26];
  for (std::size_t i = 0; i < header[26]; ++i) {
    page->bytes += segments[i];
  }
  return true;
}

// The next capture pattern at or after `offset`; `end` if there is none.
int64_t NextPage(std::ifstream* file, int64_t offset, int64_t end) {
  std::string piece(std::size_t{1} << 16, '\0');
  while (offset < end) {
    file->clear();
    file->seekg(offset);
    file->read(piece.data(), static_cast<std::streamsize>(piece.size()));
    const std::string_view got(piece.data(), static_cast<std::size_t>(file->gcount()));
    if (const std::size_t at = got.find(kCapturePattern); at != std::string_view::npos) {
      return offset + static_cast<int64_t>(at);
    }
    if (got.size() < kCapturePattern.size()) {
      break;
    }
    offset += static_cast<int64_t>(got.size() - kCapturePattern.size() + 1);
  }
  return end;
}

}  // namespace

std::vector<OggLink> OggLinks(const std::filesystem::path& path) {
  std::error_code error;
  std::vector<OggLink> links;
  if (!std::filesystem::is_regular_file(path, error)) {
    return links;
  }
  std::ifstream file(path, std::ios::binary);
  const auto end = static_cast<int64_t>(std::filesystem::file_size(path, error));
  Page page;
  if (!ReadPage(&file, 0, &page)) {
    return links;
  }
  std::set<uint32_t> open_streams;
  bool beginning = false;  // among the first pages of a link's streams
  for (int64_t offset = 0; offset < end;) {
    if (!ReadPage(&file, offset, &page)) {
      offset = NextPage(&file, offset + 1, end);
      continue;
    }
    if (page.begins_stream && !beginning) {
      if (!links.empty()) {
        links.back().end = offset;
        links.back().complete = open_streams.empty();
      }
      links.push_back({offset, end, false});
      open_streams.clear();
    }
    beginning = page.begins_stream;
    if (page.begins_stream) {
      open_streams.insert(page.serial);
    }
    if (page.ends_stream && offset + page.bytes <= end) {
      open_streams.erase(page.serial);
    }
    offset += page.bytes;
  }
  if (!links.empty()) {
    links.back().complete = open_streams.empty();
  }
  return links;
}

}  // namespace kelda::tools
