#include "tools/audio/stated_size.h"

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string_view>

namespace kelda::tools {
namespace {

uint64_t SizeOf(std::string_view bytes, bool big_endian) {
  uint64_t number = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[big_endian ? i : bytes.size() - 1 - i]);
    number = number << 8 | byte;
  }
  return number;
}

struct SoundChunk {
  uint64_t stated_bytes = 0;
  uint64_t bytes = 0;    // from its beginning to the end of the file
  bool complete = true;  // the container's size, which is written last, is that of the file
};

// Of a WAV, RF64 or AIFF file.
std::optional<SoundChunk> FindSound(const std::filesystem::path& path) {
  std::error_code error;
  const uint64_t file_bytes = std::filesystem::file_size(path, error);
  std::ifstream file(path, std::ios::binary);
  const auto read = [&](std::size_t bytes) {
    std::string text(bytes, '\0');
    file.read(text.data(), static_cast<std::streamsize>(bytes));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
  };
  const std::string head = error ? "" : read(12);
  if (head.size() < 12) {
    return std::nullopt;
  }
  const std::string_view container = std::string_view(head).substr(0, 4);
  const bool big_endian = container == "FORM" || container == "RIFX";
  if (!big_endian && container != "RIFF" && container != "RF64") {
    return std::nullopt;
  }
  const uint64_t container_bytes = SizeOf(std::string_view(head).substr(4, 4), big_endian);
  uint64_t large_size = 0;  // of a data chunk whose own size does not fit
  for (uint64_t at = head.size(); at + 8 <= file_bytes;) {
    file.seekg(static_cast<std::streamoff>(at));
    const std::string chunk = read(8);
    if (chunk.size() < 8) {
      break;
    }
    const std::string_view name = std::string_view(chunk).substr(0, 4);
    uint64_t size = SizeOf(std::string_view(chunk).substr(4), big_endian);
    if (name == "ds64") {
      const std::string sizes = read(16);
      large_size = sizes.size() == 16 ? SizeOf(std::string_view(sizes).substr(8), false) : 0;
    }
    if (name == "data" || name == "SSND") {
      if (container == "RF64" && size == UINT32_MAX) {
        size = large_size;
      }
      return SoundChunk{size, file_bytes - at - 8, container_bytes + 8 == file_bytes};
    }
    at += 8 + size + size % 2;
  }
  return std::nullopt;
}

}  // namespace

bool IsPlaceholder(uint64_t bytes) {
  constexpr uint64_t kNear = 1u << 16;
  return bytes == 0 || bytes == UINT64_MAX ||
         (bytes > (uint64_t{1} << 31) - kNear && bytes < (uint64_t{1} << 31) + kNear) ||
         (bytes > (uint64_t{1} << 32) - kNear && bytes < (uint64_t{1} << 32));
}

std::string CutContainer(const std::filesystem::path& path) {
  const auto sound = FindSound(path);
  return !sound || sound->stated_bytes <= sound->bytes || IsPlaceholder(sound->stated_bytes)
             ? ""
             : "it was cut off: " + std::to_string(sound->bytes) + " of " +
                   std::to_string(sound->stated_bytes) + " bytes of sound are there";
}

bool LacksSize(const std::filesystem::path& path) {
  const auto sound = FindSound(path);
  return sound && sound->stated_bytes == 0 && sound->bytes > 0 && !sound->complete;
}

}  // namespace kelda::tools
