// An array of a host mesh: a growable block of plain values, as a vector is,
// or one whose values still lie in a file and are read when first used. A
// large mesh loaded from buffer files keeps its arrays there until something
// reads them, so that an export holds in memory only the arrays it is working
// on, and an array it owns can go as soon as it has been read.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

// Where a deferred array's bytes come from.
class ArraySource {
 public:
  virtual ~ArraySource() = default;
  // Fills `out` with `bytes` bytes of the array from byte `offset` on (a
  // whole number of values). Throws a T_Exception naming the file when they
  // can no longer be read as they were when the scene was loaded (the file
  // was cut short or changed meanwhile).
  virtual void read(void* out, std::size_t offset, std::size_t bytes) const = 0;
};

template <typename T>
class HostArray {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                "a host array holds plain values");

 public:
  using value_type = T;
  using size_type = std::size_t;
  using iterator = T*;
  using const_iterator = const T*;

  HostArray() = default;
  explicit HostArray(std::size_t n) { resize(n); }
  HostArray(std::size_t n, const T& value) { assign(n, value); }
  HostArray(std::initializer_list<T> values) { assign(values.begin(), values.end()); }
  // A deferred array's copy is deferred too: it reads the same bytes when used.
  HostArray(const HostArray& other) : source_(other.source_) {
    if (source_) {
      size_ = other.size_;
      return;
    }
    reserve(other.size_);
    if (other.size_) std::memcpy(static_cast<void*>(data_), other.data_, other.size_ * sizeof(T));
    size_ = other.size_;
  }
  HostArray(HostArray&& other) noexcept { swap(other); }
  HostArray& operator=(HostArray other) noexcept {
    swap(other);
    return *this;
  }
  ~HostArray() { ::operator delete(data_); }

  // `n` values that `source` reads on first use.
  static HostArray deferred(std::shared_ptr<const ArraySource> source, std::size_t n) {
    HostArray a;
    a.size_ = n;
    if (n) a.source_ = std::move(source);
    return a;
  }
  // Whether the values are still in their file.
  bool isDeferred() const { return source_ != nullptr; }
  // Copies values [first, first + n) to `out`. A deferred array reads just
  // those from its file and stays deferred: a caller that reads it once, a
  // block at a time, never holds it whole.
  void copyOut(std::size_t first, std::size_t n, T* out) const {
    if (n == 0) return;
    if (source_)
      source_->read(out, first * sizeof(T), n * sizeof(T));
    else
      std::memcpy(static_cast<void*>(out), data_ + first, n * sizeof(T));
  }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  std::size_t capacity() const { return source_ ? size_ : capacity_; }

  const T* data() const {
    if (source_) load();
    return data_;
  }
  T* data() {
    if (source_) load();
    return data_;
  }
  const T& operator[](std::size_t i) const { return data()[i]; }
  T& operator[](std::size_t i) { return data()[i]; }
  const T* begin() const { return data(); }
  const T* end() const { return data() + size_; }
  T* begin() { return data(); }
  T* end() { return data() + size_; }
  const T& front() const { return data()[0]; }
  const T& back() const { return data()[size_ - 1]; }
  T& back() { return data()[size_ - 1]; }

  void reserve(std::size_t n) {
    if (source_) load();
    if (n <= capacity_) return;
    T* block = static_cast<T*>(::operator new(n * sizeof(T)));
    if (size_) std::memcpy(static_cast<void*>(block), data_, size_ * sizeof(T));
    ::operator delete(data_);
    data_ = block;
    capacity_ = n;
  }
  // New values are value-initialised, as a vector's are.
  void resize(std::size_t n) { resize(n, T{}); }
  void resize(std::size_t n, const T& value) {
    if (n > size_) {
      reserve(n);
      std::uninitialized_fill(data_ + size_, data_ + n, value);
    } else if (source_) {
      load();
    }
    size_ = n;
  }
  void assign(std::size_t n, const T& value) {
    clear();
    resize(n, value);
  }
  template <typename It>
  void assign(It first, It last) {
    clear();
    reserve(static_cast<std::size_t>(std::distance(first, last)));
    for (; first != last; ++first) data_[size_++] = *first;
  }
  void push_back(const T& value) {
    if (source_) load();
    if (size_ == capacity_) {
      const T copy = value;  // `value` may lie in the block that grows
      reserve(std::max<std::size_t>(8, 2 * capacity_));
      data_[size_++] = copy;
      return;
    }
    data_[size_++] = value;
  }
  template <typename... Args>
  T& emplace_back(Args&&... args) {
    push_back(T{std::forward<Args>(args)...});
    return back();
  }
  void clear() {
    source_.reset();
    size_ = 0;
  }
  void swap(HostArray& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
    std::swap(source_, other.source_);
  }

  friend bool operator==(const HostArray& a, const HostArray& b) {
    return a.size_ == b.size_ && std::equal(a.begin(), a.end(), b.begin());
  }

 private:
  // Reads a deferred array into a block of its own; a failed read leaves it deferred.
  void load() const {
    T* block = static_cast<T*>(::operator new(size_ * sizeof(T)));
    try {
      source_->read(block, 0, size_ * sizeof(T));
    } catch (...) {
      ::operator delete(block);
      throw;
    }
    ::operator delete(data_);
    data_ = block;
    capacity_ = size_;
    source_.reset();
  }

  mutable T* data_ = nullptr;
  std::size_t size_ = 0;
  mutable std::size_t capacity_ = 0;
  mutable std::shared_ptr<const ArraySource> source_;
};
