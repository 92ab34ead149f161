// zt2export's operator new and heap set-up, linked into this test so that
// everything here (GoogleTest included) allocates through them.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "host/inhouse/sanitized.h"
#include "tools/zt2export/allocator.h"

// Sanitizer builds keep the sanitizer's operator new: nothing of ours to test there.

#if !defined(ZTX_SANITIZED)
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

bool onHugeBoundary(const void* p) { return reinterpret_cast<std::uintptr_t>(p) % (2 * kMiB) == 0; }

TEST(Allocator, EverySizeIsWholeWritableAndBigOnesStartOnAHugePage) {
  setUpAllocator();  // as zt2export does first; what follows runs on the prepared heap
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, 2 * kMiB - 1, 2 * kMiB, 2 * kMiB + 1, 37 * kMiB}) {
    SCOPED_TRACE(size);
    auto block = std::unique_ptr<unsigned char[]>(new unsigned char[size]);
    ASSERT_NE(block.get(), nullptr);
    if (size >= 2 * kMiB) {
      EXPECT_TRUE(onHugeBoundary(block.get()));
    }
    std::memset(block.get(), 0xA5, size);
    EXPECT_EQ(size == 0 || block[size - 1] == 0xA5, true);
  }
}

TEST(Allocator, MoreLiveBlocksThanTheTableHoldsStillWork) {
  // The table of mapped blocks is fixed; past it, big blocks come from malloc.
  std::vector<std::unique_ptr<char[]>> live;
  for (int i = 0; i < 600; ++i) {
    live.emplace_back(new char[2 * kMiB]);
    live.back()[0] = static_cast<char>(i);
    live.back()[2 * kMiB - 1] = static_cast<char>(i);
  }
  for (int i = 0; i < 600; ++i) EXPECT_EQ(live[i][2 * kMiB - 1], static_cast<char>(i));
  live.clear();
  auto again = std::make_unique<char[]>(3 * kMiB);  // a slot freed above is used again
  EXPECT_TRUE(onHugeBoundary(again.get()));
}

TEST(Allocator, AnAbsurdSizeIsRefusedTheStandardWay) {
  const std::size_t absurd = std::size_t{1} << 62;
  EXPECT_THROW((void)std::make_unique<char[]>(absurd), std::bad_alloc);
  EXPECT_EQ(::operator new(absurd, std::nothrow), nullptr);
}

TEST(Allocator, ThreadsAllocateAndFreeSideBySide) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) {
        std::vector<int> v(static_cast<std::size_t>((i % 5) + 1) * kMiB / 2, t);
        if (v.back() != t) std::abort();
      }
    });
  }
  for (std::thread& th : threads) th.join();
}

}  // namespace
#endif
