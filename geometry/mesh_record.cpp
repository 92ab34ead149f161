#include "geometry/mesh_record.h"

void GroupTable::resizeGroups(std::size_t n) {
  starts_.assign(n, 0);
  counts_.assign(n, 0);
}

void GroupTable::appendGroups(std::size_t n) {
  const std::uint32_t end = counts_.empty() ? 0 : starts_.back() + unit_ * counts_.back();
  starts_.insert(starts_.end(), n, end);
  counts_.insert(counts_.end(), n, 0);
}

void GroupTable::setGroupCount(std::size_t g, std::uint32_t n) {
  // Moving the later starts by the difference rather than by n keeps the
  // starts right when a count is set twice.
  const std::uint32_t delta = unit_ * (n - counts_[g]);
  counts_[g] = n;
  for (std::size_t i = g + 1; i < starts_.size(); ++i) starts_[i] += delta;
}
