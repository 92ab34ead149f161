// Large arrays asked for in huge pages where the system gives them on
// request (transparent huge pages in "madvise" mode, the usual setting).
// A fresh array is faulted in page by page as it is first written; on a
// virtual machine a 4 KiB fault costs several times the copy into it, and a
// mesh of a million faces takes tens of thousands of them.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace inhouse {

inline constexpr std::size_t kHugePage = std::size_t{2} << 20;

// Advises the whole huge pages inside [data, data + bytes); a no-op for
// arrays smaller than two of them, or where the system ignores the advice.
inline void adviseHugePages(const void* data, std::size_t bytes) {
  if (data == nullptr || bytes < 2 * kHugePage) return;
  const auto start = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t from = (start + kHugePage - 1) & ~(kHugePage - 1);
  const std::uintptr_t to = (start + bytes) & ~(kHugePage - 1);
  if (to > from) (void)::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
}

// `values` with room for `count` elements, the room advised as above before
// anything is written to it.
template <typename T>
void reserveHuge(std::vector<T>& values, std::size_t count) {
  values.reserve(count);
  adviseHugePages(values.data(), values.capacity() * sizeof(T));
}

}  // namespace inhouse
