// The host's memory policy. A mesh of a million triangles lives in a few
// dozen arrays of several megabytes and a few hundred smaller ones; on 4 KiB
// pages the kernel faults every one of them in page by page, and on such a
// mesh that cost more than all of the mesh processing. zt2export's operator
// new (allocator.cpp) therefore maps each block of 2 MiB and more on its own
// and offers it to the kernel for transparent huge pages; smaller blocks come
// from malloc's heap, which setUpAllocator prepares the same way. The module
// allocates through the same operator new, since the executable's definition
// replaces it for every library of the process. Sanitizer builds keep the
// sanitizer's allocator, and setUpAllocator then does nothing.
#pragma once

// Call first thing in main. Freed heap memory stays in the heap for the next
// array instead of going back to the system, and the heap is grown once by
// some tens of megabytes with huge pages asked for there: untouched, that
// costs address space only.
void setUpAllocator();
