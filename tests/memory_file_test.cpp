#include <gtest/gtest.h>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "host/inhouse/exceptions.h"
#include "support/test_support.h"

TEST(MemoryFile, EmptyBufferHasSizeZero) {
  T_MemoryFile f(8192);
  EXPECT_EQ(f.getSize(), 0u);
}
