#include "tools/library/elf_library.h"

#include <elf.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <span>
#include <type_traits>

#include "tools/core/failure.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

struct Elf32 {
  using Header = Elf32_Ehdr;
  using Section = Elf32_Shdr;
  using Symbol = Elf32_Sym;
};

struct Elf64 {
  using Header = Elf64_Ehdr;
  using Section = Elf64_Shdr;
  using Symbol = Elf64_Sym;
};

using Native = std::conditional_t<sizeof(void*) == 8, Elf64, Elf32>;

[[noreturn]] void Refuse(const std::string& reason) { throw Failure(ExitCode::kInput, reason); }

// The `bytes` bytes at `offset`. Refuses what does not lie in the file.
std::span<const char> Part(std::span<const char> file, uint64_t offset, uint64_t bytes) {
  if (offset > file.size() || bytes > file.size() - offset) {
    Refuse("damaged: " + std::to_string(bytes) + " bytes at " + std::to_string(offset) +
           " are beyond the file's " + std::to_string(file.size()));
  }
  return file.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(bytes));
}

template <typename T>
T Read(std::span<const char> file, uint64_t offset) {
  T value;
  std::memcpy(&value, Part(file, offset, sizeof(T)).data(), sizeof(T));
  return value;
}

template <typename Elf>
std::set<std::string> ExportedFunctions(std::span<const char> file) {
  const auto header = Read<typename Elf::Header>(file, 0);
  if (header.e_type != ET_DYN) {
    Refuse("not a shared library");
  }
  const auto section = [&](uint64_t index) {
    return Read<typename Elf::Section>(file,
                                       header.e_shoff + index * sizeof(typename Elf::Section));
  };
  std::set<std::string> functions;
  for (unsigned i = 0; i < header.e_shnum; ++i) {
    const auto symbols = section(i);
    if (symbols.sh_type != SHT_DYNSYM) {
      continue;
    }
    const auto names_section = section(symbols.sh_link);
    const auto names = Part(file, names_section.sh_offset, names_section.sh_size);
    const auto table = Part(file, symbols.sh_offset, symbols.sh_size);
    for (uint64_t at = 0; at + sizeof(typename Elf::Symbol) <= table.size();
         at += sizeof(typename Elf::Symbol)) {
      const auto symbol = Read<typename Elf::Symbol>(table, at);
      if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_TYPE(symbol.st_info) != STT_FUNC) {
        continue;
      }
      if (symbol.st_name >= names.size()) {
        Refuse("damaged: a symbol without a name");
      }
      const auto name = names.subspan(symbol.st_name);
      functions.emplace(name.data(), strnlen(name.data(), name.size()));
    }
  }
  return functions;
}

std::string ProcessorName(const unsigned char* identity, unsigned machine) {
  const char* const width = identity[EI_CLASS] == ELFCLASS64 ? ", 64 bit" : ", 32 bit";
  switch (machine) {
    case EM_ARM:
    case EM_AARCH64:
      return std::string("ARM") + width;
    case EM_386:
    case EM_X86_64:
      return std::string("x86") + width;
    default:
      return "processor " + std::to_string(machine) + width;
  }
}

}  // namespace

ElfLibrary ReadElfLibrary(const std::filesystem::path& path) {
  constexpr std::size_t kMaxLibraryBytes = std::size_t{1} << 30;
  const std::string file = ReadWholeFile(path, kMaxLibraryBytes);
  try {
    const auto identity = Read<std::array<unsigned char, EI_NIDENT>>(file, 0);
    if (std::memcmp(identity.data(), ELFMAG, SELFMAG) != 0) {
      Refuse("not a shared library");
    }
    if (identity[EI_DATA] != ELFDATA2LSB) {
      Refuse("not little-endian");
    }
    const bool wide = identity[EI_CLASS] == ELFCLASS64;
    // Both classes have the machine at the same place.
    const auto machine = Read<uint16_t>(file, offsetof(Elf64_Ehdr, e_machine));
    const auto self = [] {
      std::ifstream program("/proc/self/exe", std::ios::binary);
      Native::Header header{};
      program.read(reinterpret_cast<char*>(&header), sizeof(header));
      return header;
    }();
    return {ProcessorName(identity.data(), machine),
            machine == self.e_machine && identity[EI_CLASS] == self.e_ident[EI_CLASS],
            wide ? ExportedFunctions<Elf64>(file) : ExportedFunctions<Elf32>(file)};
  } catch (const Failure& failure) {
    throw Failure(failure.code(), path.string() + ": " + failure.what());
  }
}

}  // namespace kelda::tools
