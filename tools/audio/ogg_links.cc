#include "tools/audio/ogg_links.h"

#include <ogg/ogg.h>

#include <fstream>
#include <map>
#include <set>
#include <string_view>

#include "tools/core/interruption.h"

namespace kelda::tools {
namespace {

// A recording of a radio may go on after its headers with any page.
constexpr long kHeaderPages = 3;

// The pages of a file, one after the other; libogg leaves out what is damaged.
class Pages {
 public:
  explicit Pages(const std::filesystem::path& path) : file_(path, std::ios::binary) {
    ogg_sync_init(&sync_);
  }
  ~Pages() { ogg_sync_clear(&sync_); }
  Pages(const Pages&) = delete;
  Pages& operator=(const Pages&) = delete;

  // False at the end of the file.
  bool Next(ogg_page* page) {
    constexpr int kPiece = 1 << 16;
    for (begin_ = end_;;) {
      const long bytes = ogg_sync_pageseek(&sync_, page);
      end_ = begin_ + (bytes < 0 ? -bytes : bytes);
      if (bytes > 0) {
        return true;
      }
      begin_ = end_;
      if (bytes == 0) {
        file_.read(ogg_sync_buffer(&sync_, kPiece), kPiece);
        if (file_.gcount() == 0) {
          return false;
        }
        ogg_sync_wrote(&sync_, static_cast<long>(file_.gcount()));
      }
    }
  }
  // Where the page begins, in bytes from the start of the file.
  int64_t begin() const { return begin_; }

 private:
  std::ifstream file_;
  ogg_sync_state sync_;
  int64_t begin_ = 0, end_ = 0;
};

}  // namespace

std::vector<OggLink> OggLinks(const std::filesystem::path& path) {
  std::error_code error;
  std::vector<OggLink> links;
  if (!std::filesystem::is_regular_file(path, error)) {
    return links;
  }
  char head[4] = {};
  std::ifstream(path, std::ios::binary).read(head, sizeof(head));
  if (std::string_view(head, sizeof(head)) != "OggS") {
    return links;
  }
  const auto end = static_cast<int64_t>(std::filesystem::file_size(path, error));
  Pages pages(path);
  std::map<int, long> next_pages;  // by the serial number of a stream of this link
  std::set<int> open_streams;
  bool beginning = false;  // among the first pages of a link's streams
  for (ogg_page page; pages.Next(&page);) {
    CheckInterruption();
    const bool begins_stream = ogg_page_bos(&page) != 0;
    const int stream = ogg_page_serialno(&page);
    if (links.empty() && (pages.begin() != 0 || !begins_stream)) {
      return links;
    }
    if (begins_stream && !beginning) {
      if (!links.empty()) {
        links.back().end = pages.begin();
        links.back().complete = open_streams.empty();
      }
      links.push_back({pages.begin(), end, false, false});
      next_pages.clear();
      open_streams.clear();
    }
    beginning = begins_stream;
    if (begins_stream) {
      open_streams.insert(stream);
    } else if (const auto next = next_pages.find(stream); next == next_pages.end()) {
      links.back().lacks_pages = true;  // the first of a stream is not there
      continue;
    } else if (next->second != ogg_page_pageno(&page) && next->second > kHeaderPages) {
      links.back().lacks_pages = true;
    }
    next_pages[stream] = ogg_page_pageno(&page) + 1;
    if (ogg_page_eos(&page) != 0) {
      open_streams.erase(stream);
    }
  }
  if (!links.empty()) {
    links.back().complete = open_streams.empty();
  }
  return links;
}

}  // namespace kelda::tools
