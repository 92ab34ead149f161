// What a library function answers when it can fail in a way its caller is
// expected to handle: the value, or an Error made of a kind to branch on and
// a message to show. The message is one line, ready for the user: it names
// the file and the cause, or gives the system's reason for the caller to put
// after the file it knows ("Permission denied").
//
// Libraries return these rather than throw, print or keep a reason aside;
// the few exceptions that remain are the boundaries docs/architecture.md
// names under "Errors".
#pragma once

#include <cassert>
#include <string>
#include <utility>
#include <variant>

enum class ErrorKind {
  io,          // the system refused a read or a write
  refused,     // the file is not one this program may write or remove (a folder, a link out, an input)
  busy,        // another run holds what this one needs (a lock)
  badData,     // bytes or text that do not follow their format
  badRequest,  // an argument the caller should not have passed
};

struct Error {
  ErrorKind kind = ErrorKind::io;
  std::string message;
};

template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & {
    assert(ok());
    return std::get<0>(state_);
  }
  const T& value() const& {
    assert(ok());
    return std::get<0>(state_);
  }
  T&& value() && {
    assert(ok());
    return std::get<0>(std::move(state_));
  }
  const Error& error() const {
    assert(!ok());
    return std::get<1>(state_);
  }
  // The error's message; empty on success. For a caller that only passes
  // the reason on.
  std::string message() const { return ok() ? std::string() : error().message; }

 private:
  std::variant<T, Error> state_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : error_(std::move(error)), failed_(true) {}

  bool ok() const { return !failed_; }
  explicit operator bool() const { return ok(); }
  const Error& error() const {
    assert(failed_);
    return error_;
  }
  std::string message() const { return failed_ ? error_.message : std::string(); }

 private:
  Error error_;
  bool failed_ = false;
};
