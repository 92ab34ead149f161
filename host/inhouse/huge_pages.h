// Large arrays asked for in huge pages where the system gives them on
// request (transparent huge pages in "madvise" mode, the usual setting).
// A fresh array is faulted in page by page as it is first written; on a
// virtual machine a 4 KiB fault costs several times the copy into it, and a
// mesh of a million faces takes tens of thousands of them.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace inhouse {

inline constexpr std::size_t kHugePage = std::size_t{2} << 20;

// Gives `advice` for the whole pages of `page` bytes inside [data, data +
// bytes), for blocks of at least `least` bytes.
inline void adviseWholePages(const void* data, std::size_t bytes, std::size_t least, std::uintptr_t page,
                             int advice) {
  if (data == nullptr || bytes < least) return;
  const auto start = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t from = (start + page - 1) & ~(page - 1);
  const std::uintptr_t to = (start + bytes) & ~(page - 1);
  if (to > from) (void)::madvise(reinterpret_cast<void*>(from), to - from, advice);
}

// Advises the whole huge pages inside [data, data + bytes); a no-op for
// arrays smaller than two of them, or where the system ignores the advice.
inline void adviseHugePages(const void* data, std::size_t bytes) {
  adviseWholePages(data, bytes, 2 * kHugePage, kHugePage, MADV_HUGEPAGE);
}

// Hands the whole huge pages inside [data, data + bytes) back to the system,
// for a large block about to be freed: the heap keeps what is freed (the
// allocator is told not to trim it), and a freed block's pages would
// otherwise stay with the process until a later block happens to reuse
// them. The range is mapped still; touched again, it is given fresh pages.
inline void returnHugePages(const void* data, std::size_t bytes) {
  adviseWholePages(data, bytes, 2 * kHugePage, kHugePage, MADV_DONTNEED);
}

// Makes the pages of [data, data + bytes) in one call, for an array about to
// be written whole: a page faulted in by the write costs a trap of its own.
// Only for arrays of a mebibyte or more; a no-op where the system cannot.
inline void makePages(const void* data, std::size_t bytes) {
  adviseWholePages(data, bytes, std::size_t{1} << 20, 4096, MADV_POPULATE_WRITE);
}

}  // namespace inhouse
