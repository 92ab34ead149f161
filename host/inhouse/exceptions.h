// Exceptions of the in-house base library. Only this layer throws: a missing
// input file, a script failure and exhausted memory. Scene problems never
// throw; they go to the export's info log.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#ifndef __cpp_exceptions
#include <functional>
#endif

class T_Exception : public std::runtime_error {
 public:
  explicit T_Exception(const std::string& message) : std::runtime_error(message) {}
  std::string getErrorMessage() const { return what(); }
};

class T_FileException_FileNotFound : public T_Exception {
 public:
  explicit T_FileException_FileNotFound(const std::string& fileName)
      : T_Exception("File not found: " + fileName), fileName_(fileName) {}
  const std::string& fileName() const { return fileName_; }

 private:
  std::string fileName_;
};

// Bytes of a file that do not follow its format; `offset` is where the fault lies.
class T_FileException_BadData : public T_Exception {
 public:
  T_FileException_BadData(const std::string& message, std::size_t offset) : T_Exception(message), offset_(offset) {}
  std::size_t offset() const { return offset_; }

 private:
  std::size_t offset_;
};

class T_ScriptException_BlockNotFound : public T_Exception {
 public:
  explicit T_ScriptException_BlockNotFound(const std::string& block)
      : T_Exception("Block not found: " + block) {}
};

class T_MemoryException_Allocation : public T_Exception {
 public:
  T_MemoryException_Allocation() : T_Exception("Out of system memory resources") {}
};

// The libraries under the glTF conversion (this one, format, reader, glTF)
// throw through here. Natively it throws `error`. The conversion is also built
// for WebAssembly, for zt2view's page, with a C++ runtime that has no
// exception support: there a fault cannot unwind, so its message is kept for
// the page and the module stops (a trap); the page shows the message and
// starts a fresh module for the next file. Nothing in that build recovers
// from a fault, so stopping loses nothing but the rewording a catch does on
// the way up: a FaultWording stands in for such a catch.
#ifdef __cpp_exceptions
template <class E>
[[noreturn]] void raiseError(E&& error) {
  throw std::forward<E>(error);
}
#else
// `baseFault`: the fault is a T_Exception, which a FaultWording words.
[[noreturn]] void stopOnFault(const std::string& message, bool baseFault);

template <class E>
[[noreturn]] void raiseError(E&& error) {
  stopOnFault(error.what(), std::is_base_of_v<T_Exception, std::decay_t<E>>);
}

// While one lives, a T_Exception raised gets its message from the innermost
// one, as from the innermost catch of T_Exception natively (those catches
// throw errors of other kinds, which no outer catch rewords again).
class FaultWording {
 public:
  explicit FaultWording(std::function<std::string(const std::string&)> reword);
  ~FaultWording();
  FaultWording(const FaultWording&) = delete;
  FaultWording& operator=(const FaultWording&) = delete;
};
#endif
