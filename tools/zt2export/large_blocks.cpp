// zt2export's operator new for big blocks. A mesh of a million triangles
// lives in a few dozen arrays of several megabytes each, and on 4 KiB pages
// the kernel faults every one of them in page by page: on such a mesh that
// cost more than all of the mesh processing. Blocks of 2 MiB and more are
// therefore mapped on their own, aligned to 2 MiB and offered to the kernel
// for transparent huge pages, so each fault brings in 512 pages at once.
// Smaller blocks, and big ones whenever a mapping fails, come from malloc.
//
// Replacing the global operator new in the executable replaces it for the
// exporter module and every library the process loads, which is what the
// host's allocator is for. Sanitizer builds keep their own operator new, so
// that they still see every overrun.
#include <sys/mman.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

#include "host/inhouse/sanitized.h"

#if !defined(ZTX_SANITIZED)

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

struct LargeBlock {
  void* data = nullptr;
  std::size_t length = 0;
};

// Live large blocks. Nothing here may allocate (it is operator new), so the
// table is fixed; when it is full, further big blocks come from malloc.
// Constant-initialised, so it works before any constructor has run.
std::mutex gLock;
std::array<LargeBlock, 512> gBlocks{};

void* mapLarge(std::size_t size) {
  if (size > (std::size_t{1} << 46)) return nullptr;  // let malloc refuse what no mapping could hold
  // Whole huge pages: a block's last part would otherwise fault in page by page.
  const std::size_t length = (size + kHugePage - 1) & ~(kHugePage - 1);
  // Map one huge page more than asked, then give back what lies before the
  // first 2 MiB boundary and after the block.
  const std::size_t mapped = length + kHugePage;
  void* base = ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(base);
  const std::uintptr_t data = (start + kHugePage - 1) & ~(std::uintptr_t{kHugePage} - 1);
  if (data > start) ::munmap(base, data - start);
  if (const std::size_t tail = start + mapped - (data + length); tail > 0)
    ::munmap(reinterpret_cast<void*>(data + length), tail);
  auto* block = reinterpret_cast<void*>(data);
  ::madvise(block, length, MADV_HUGEPAGE);  // refused where huge pages are off: then plain pages

  const std::lock_guard<std::mutex> hold(gLock);
  for (LargeBlock& slot : gBlocks) {
    if (slot.data == nullptr) {
      slot = {block, length};
      return block;
    }
  }
  ::munmap(block, length);
  return nullptr;
}

// True when `p` was one of ours, now unmapped.
bool unmapLarge(void* p) {
  if (reinterpret_cast<std::uintptr_t>(p) % kHugePage != 0) return false;  // ours all start on a boundary
  std::size_t length = 0;
  {
    const std::lock_guard<std::mutex> hold(gLock);
    for (LargeBlock& slot : gBlocks) {
      if (slot.data == p) {
        length = slot.length;
        slot = {};
        break;
      }
    }
  }
  if (length == 0) return false;
  ::munmap(p, length);
  return true;
}

void* allocate(std::size_t size) {
  if (size >= kHugePage) {
    if (void* p = mapLarge(size)) return p;
  }
  if (size == 0) size = 1;
  for (;;) {
    if (void* p = std::malloc(size)) return p;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}

void release(void* p) noexcept {
  if (p != nullptr && !unmapLarge(p)) std::free(p);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }

#endif
