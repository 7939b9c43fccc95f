// TOML files that the user wrote.
#ifndef KELDA_TOOLS_TOML_FILE_H_
#define KELDA_TOOLS_TOML_FILE_H_

#include <cstddef>
#include <filesystem>
#include <string>

// Debian has it as headers only. Its parser asserts what a damaged text ("[@]") does not
// keep, and refuses that text a line later: without the assertions it does.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(expr) static_cast<void>(0)
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

namespace kelda::tools {

// Throws FileFailure: unreadable, larger than 1 MiB, or no TOML (with the line).
toml::table ReadToml(const std::filesystem::path& path);

std::size_t LineOf(const toml::node& node);

// The value of an integer or a float.
double NumberOf(const toml::node& node);

// A value as the user may have written it, for messages; "a table" and the like for what
// has no short form.
std::string Shown(const toml::node& node);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TOML_FILE_H_
