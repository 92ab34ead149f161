#include "format/chunk_kinds.h"

#include <cstdio>

std::string hexId(std::uint32_t id) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%x", id);
  return buf;
}
