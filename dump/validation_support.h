// Small helpers the validators share: wording a fault, reading numbers and
// lists out of decoded fields.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dump/reader_tree.h"
#include "dump/dump_error.h"

namespace zt2dump {

[[noreturn]] inline void fault(const DecodedFile& file, const std::string& what) {
  throw DumpError(file.path + ": " + what);
}

// "MeshFaceChunk at offset 230".
inline std::string where(const DecodedChunk& c) { return c.name + " at offset " + std::to_string(c.offset); }

inline std::int64_t intOf(const Json& v) { return v.get<std::int64_t>(); }

inline std::vector<std::int64_t> intsOf(const Json& v) {
  std::vector<std::int64_t> out;
  out.reserve(v.size());
  for (const Json& e : v) out.push_back(e.get<std::int64_t>());
  return out;
}

inline std::int64_t sum(const std::vector<std::int64_t>& v) {
  std::int64_t s = 0;
  for (std::int64_t x : v) s += x;
  return s;
}

// The first decoded child with this id, or nullptr.
inline const DecodedChunk* childWithId(const DecodedChunk& c, std::uint32_t id) {
  for (const DecodedChunk& child : c.children)
    if (child.id == id && child.decoded) return &child;
  return nullptr;
}

}  // namespace zt2dump
