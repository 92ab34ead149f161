// ZTX_SANITIZED is defined in builds under AddressSanitizer, ThreadSanitizer
// or MemorySanitizer, which keep their own allocator and reserve vast shadow
// ranges: code that tunes allocation or address space stands aside there.
// GCC says so with __SANITIZE_ADDRESS__, clang through __has_feature.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZTX_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define ZTX_SANITIZED 1
#endif
#endif
