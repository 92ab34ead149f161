// zt2export's operator new and heap set-up; allocator.h says why.
#include "tools/zt2export/allocator.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

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

void setUpAllocator() {
  // Arrays below 2 MiB come from the heap and are handed back to it, never
  // to the system: the next array reuses pages already in place.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  // Grow the heap by one block, free it (it stays as the heap's top), and
  // ask for huge pages on the new part. Where the heap cannot grow, malloc
  // maps the block instead, the break does not move and nothing is asked.
  constexpr std::size_t kHeapGrowth = std::size_t{64} << 20;
  const auto before = reinterpret_cast<std::uintptr_t>(::sbrk(0));
  void* volatile block = std::malloc(kHeapGrowth);  // volatile: the compiler may not drop the pair
  std::free(block);
  const auto after = reinterpret_cast<std::uintptr_t>(::sbrk(0));
  const std::uintptr_t first = (before + kHugePage - 1) & ~(std::uintptr_t{kHugePage} - 1);
  if (after > first) ::madvise(reinterpret_cast<void*>(first), after - first, MADV_HUGEPAGE);
}

#else

void setUpAllocator() {}

#endif
