// ztexport::Array: a contiguous, typed array whose storage is shared. Copying
// an Array shares the storage; a binding hands out views onto data() and keeps
// storage() alive as long as a view exists, so nothing is copied.
#pragma once

#include <cstddef>
#include <memory>

namespace ztexport {

template <typename T>
class Array {
 public:
  Array() = default;
  // `size` elements, not initialised: the reader fills them from the file.
  explicit Array(std::size_t size) : storage_(size > 0 ? new T[size] : nullptr), size_(size) {}

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T* data() { return storage_.get(); }
  const T* data() const { return storage_.get(); }
  T& operator[](std::size_t i) { return storage_[i]; }
  const T& operator[](std::size_t i) const { return storage_[i]; }
  T* begin() { return data(); }
  T* end() { return data() + size_; }
  const T* begin() const { return data(); }
  const T* end() const { return data() + size_; }

  // The owner of the elements; empty for an empty array.
  const std::shared_ptr<T[]>& storage() const { return storage_; }

 private:
  std::shared_ptr<T[]> storage_;
  std::size_t size_ = 0;
};

}  // namespace ztexport
