// ztexport::Array: a contiguous, typed array whose storage is shared. Copying
// an Array shares the storage; a binding hands out views onto data() and keeps
// storage() alive as long as a view exists, so nothing is copied.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace ztexport {

namespace detail {
// Memory of `bytes` bytes in whole huge pages, not initialised (a block an
// earlier array gave back, else mapped from the system), or nullptr; freed
// with freePages.
void* allocatePages(std::size_t bytes);
void freePages(void* p, std::size_t bytes);
}  // namespace detail

template <typename T>
class Array {
 public:
  Array() = default;
  // `size` elements, not initialised: the reader fills them from the file.
  // Large ones get whole pages of their own (detail::allocatePages).
  explicit Array(std::size_t size) : size_(size) {
    if (size == 0) return;
    if (size * sizeof(T) >= kWholePages) {
      if (void* p = detail::allocatePages(size * sizeof(T))) {
        storage_ = std::shared_ptr<T[]>(static_cast<T*>(p), [bytes = size * sizeof(T)](T* q) { detail::freePages(q, bytes); });
        return;
      }
    }
    storage_ = std::shared_ptr<T[]>(new T[size]);
  }

  // `size` elements kept alive by `storage`, which may own a larger block
  // (shared_ptr's aliasing constructor): a view of another array's elements
  // as this type, without copying them.
  Array(std::shared_ptr<T[]> storage, std::size_t size) : storage_(std::move(storage)), size_(size) {}
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
  static constexpr std::size_t kWholePages = std::size_t{1} << 20;
  std::shared_ptr<T[]> storage_;
  std::size_t size_ = 0;
};

}  // namespace ztexport
