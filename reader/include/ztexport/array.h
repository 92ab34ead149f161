// ztexport::Array: a contiguous, typed array whose storage is shared. Copying
// an Array shares the storage; a binding hands out views onto data() and keeps
// storage() alive as long as a view exists, so nothing is copied.
#pragma once

#include <cstddef>
#include <memory>

namespace ztexport {

namespace detail {
// Zeroed memory of `bytes` bytes mapped straight from the system, or
// nullptr; freed with freePages.
void* allocatePages(std::size_t bytes);
void freePages(void* p, std::size_t bytes);
}  // namespace detail

template <typename T>
class Array {
 public:
  Array() = default;
  // `size` elements, not initialised: the reader fills them from the file.
  // Large ones are mapped from the system each on its own, whatever the
  // heap has kept from earlier reads, so that a read costs the same every time.
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
