#include "geometry/mesh_record.h"

void GroupTable::resizeGroups(std::size_t n) {
  starts_.assign(n, 0);
  counts_.assign(n, 0);
}

void GroupTable::insertGroups(std::size_t at, std::size_t n) {
  std::uint32_t start = 0;
  if (at < starts_.size())
    start = starts_[at];
  else if (!counts_.empty())
    start = starts_.back() + unit_ * counts_.back();
  starts_.insert(starts_.begin() + static_cast<std::ptrdiff_t>(at), n, start);
  counts_.insert(counts_.begin() + static_cast<std::ptrdiff_t>(at), n, 0);
}

void GroupTable::setGroupCount(std::size_t g, std::uint32_t n) {
  // Moving the later starts by the difference rather than by n keeps the
  // starts right when a count is set twice.
  const std::uint32_t delta = unit_ * (n - counts_[g]);
  counts_[g] = n;
  for (std::size_t i = g + 1; i < starts_.size(); ++i) starts_[i] += delta;
}
