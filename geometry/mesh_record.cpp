#include "geometry/mesh_record.h"

#include <algorithm>

void GroupTable::resizeGroups(std::size_t n) {
  starts_.assign(n, 0);
  counts_.assign(n, 0);
  settled_ = n;
}

void GroupTable::insertGroups(std::size_t at, std::size_t n) {
  // Empty groups move no start: group `at`'s stays right, the later ones are summed again.
  starts_.insert(starts_.begin() + static_cast<std::ptrdiff_t>(at), n, 0);
  counts_.insert(counts_.begin() + static_cast<std::ptrdiff_t>(at), n, 0);
  settled_ = std::min(settled_, at);
}

void GroupTable::setGroupCount(std::size_t g, std::uint32_t n) {
  counts_[g] = n;
  settled_ = std::min(settled_, g + 1);
}

void GroupTable::settle(std::size_t end) const {
  if (settled_ >= end) return;
  if (settled_ == 0) {
    starts_[0] = 0;
    settled_ = 1;
  }
  for (; settled_ < end; ++settled_) starts_[settled_] = starts_[settled_ - 1] + unit_ * counts_[settled_ - 1];
}
