// Small text helpers every layer needs, written once. (How names in the
// host's code page become text is format/code_page.h's business.)
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ztext {

// ASCII letters lowered, every other byte kept: extensions and format names
// compare so, whatever code page the rest of the name is in.
inline std::string asciiLower(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

// The extension of the file `path` names, with its dot, its ASCII letters
// lowered: ".zt2" for "Out.ZT2", nothing for a name without one.
inline std::string lowerExtension(const std::string& path) {
  return asciiLower(std::filesystem::path(path).extension().string());
}

// "FIELD=VALUE" split at its first '='; nothing when there is no '=' or no field.
inline std::optional<std::pair<std::string, std::string>> splitAssignment(std::string_view text) {
  const std::size_t eq = text.find('=');
  if (eq == std::string_view::npos || eq == 0) return std::nullopt;
  return std::make_pair(std::string(text.substr(0, eq)), std::string(text.substr(eq + 1)));
}

}  // namespace ztext
