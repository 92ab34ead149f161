// Materials met by the node pre-pass, by identity, with dense indices in the
// order the walk first met them. Materials are written in index order.
#pragma once

#include <unordered_map>
#include <vector>

class Mtl;

class MaterialIndexTable {
 public:
  // Adds `m` with the next index unless it is there already; returns its index.
  int add(Mtl* m) {
    auto [it, inserted] = index_.emplace(m, static_cast<int>(order_.size()));
    if (inserted) order_.push_back(m);
    return it->second;
  }
  // The index of `m`, or -1.
  int find(const Mtl* m) const {
    auto it = index_.find(m);
    return it == index_.end() ? -1 : it->second;
  }
  bool contains(const Mtl* m) const { return index_.count(m) != 0; }
  int size() const { return static_cast<int>(order_.size()); }
  // Materials in index order.
  const std::vector<Mtl*>& materials() const { return order_; }
  void clear() {
    index_.clear();
    order_.clear();
  }

 private:
  std::unordered_map<const Mtl*, int> index_;
  std::vector<Mtl*> order_;
};
