// The dependency rule the driver writes and the batch reads back: every path
// a file system allows make to name survives the trip.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/depfile.h"

namespace {

TEST(DependencyRule, EveryPathComesBackAsWritten) {
  const std::vector<std::string> paths = {
      "out/plain.zt2",       "with space/a b.png", "hash#mark.tga",    "dollar$sign.bmp", "trailing\\",
      "back\\slash\\ space", "two\\\\ before.png", "colon:inside.jpg", "ünïcode/名前.png", "-leading-dash"};
  for (std::size_t split = 0; split <= paths.size(); ++split) {
    const std::vector<std::string> targets(paths.begin(), paths.begin() + split);
    const std::vector<std::string> prerequisites(paths.begin() + split, paths.end());
    if (targets.empty()) continue;
    const zt2export::ExportFiles read = zt2export::parseDependencyRule(zt2export::dependencyRule(targets, prerequisites));
    EXPECT_EQ(read.targets, targets) << "split at " << split;
    EXPECT_EQ(read.prerequisites, prerequisites) << "split at " << split;
  }
}

}  // namespace
