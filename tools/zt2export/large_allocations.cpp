// zt2export's allocation functions: those of the standard library, but a
// large block (a mesh's arrays, the file being written) is advised into huge
// pages before it is handed out (host/inhouse/huge_pages.h). A large export
// touches as much fresh memory as it holds at its peak, and most of its
// system time was spent faulting it in 4 KiB at a time. The exporter module
// and the model reader, loaded into this process, allocate through these too.
#include <malloc.h>

#include <cstdlib>
#include <new>

#include "host/inhouse/huge_pages.h"

namespace {

void* allocate(std::size_t size) {
  if (size == 0) size = 1;
  for (;;) {
    if (void* p = std::malloc(size)) {
      inhouse::adviseHugePages(p, size);
      return p;
    }
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}

// An array is constructed whole as soon as it is made (the import library's
// and our readers' vertex and face arrays), so a large one's pages are made
// in one call rather than one trap each. A vector's block is not: it is
// often reserved beyond what it comes to hold.
void* allocateArray(std::size_t size) {
  void* p = allocate(size);
  inhouse::makePages(p, size);
  return p;
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocateArray(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return allocateArray(size);
  } catch (...) {
    return nullptr;
  }
}

namespace {

// A large block's huge pages go back to the system before the block goes
// back to the heap, so that the run holds the memory it uses rather than
// the most it ever used (a mesh's arrays come and go one after the other).
// Only whole huge pages inside the block are returned: the heap's own
// bookkeeping lies at a block's ends.
void release(void* p) noexcept {
  if (p) inhouse::returnHugePages(p, malloc_usable_size(p));
  std::free(p);
}

}  // namespace

// Their pairs: what they hand out is malloc's, and goes back to it. Replaced
// together, so that a checking allocator (a sanitizer's) sees one pair.
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
