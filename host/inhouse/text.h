// Small text helpers every layer needs, written once. (How names in the
// host's code page become text is format/code_page.h's business.)
#pragma once

#ifndef ZTX_NO_FILE_SYSTEM
#include <filesystem>
#endif
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
#ifndef ZTX_NO_FILE_SYSTEM
inline std::string lowerExtension(const std::string& path) {
  return asciiLower(std::filesystem::path(path).extension().string());
}

// The name of the file `path` names without folder and extension: "scene"
// for "out/scene.zt2".
inline std::string fileStem(const std::string& path) { return std::filesystem::path(path).stem().string(); }
#else
// The WebAssembly build for zt2view's page has no std::filesystem: the same
// splits of a name, by the same rules ("." and "..", and a name starting with
// its only dot, have no extension).
inline std::pair<std::string, std::string> stemAndExtension(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  if (name == "." || name == ".." || dot == 0 || dot == std::string::npos) return {name, ""};
  return {name.substr(0, dot), name.substr(dot)};
}

inline std::string lowerExtension(const std::string& path) { return asciiLower(stemAndExtension(path).second); }

inline std::string fileStem(const std::string& path) { return stemAndExtension(path).first; }
#endif

// "FIELD=VALUE" split at its first '='; nothing when there is no '=' or no field.
inline std::optional<std::pair<std::string, std::string>> splitAssignment(std::string_view text) {
  const std::size_t eq = text.find('=');
  if (eq == std::string_view::npos || eq == 0) return std::nullopt;
  return std::make_pair(std::string(text.substr(0, eq)), std::string(text.substr(eq + 1)));
}

}  // namespace ztext
