// A position in the scene document: the JSON value and its path from the
// document root ("nodes[2].children[0].transform"). Every typed read checks
// the value and fails with a SceneLoadError naming the file and the path, so
// that a bad scene is reported where it is wrong.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/max_types.h"

namespace hostmodel {

class JsonCursor {
 public:
  JsonCursor(const nlohmann::json& value, std::string path, const std::string& sourceName)
      : value_(&value), path_(std::move(path)), source_(&sourceName) {}

  const nlohmann::json& json() const { return *value_; }
  const std::string& path() const { return path_; }
  const std::string& sourceName() const { return *source_; }

  [[noreturn]] void fail(const std::string& message) const;

  bool isObject() const { return value_->is_object(); }
  bool isArray() const { return value_->is_array(); }
  bool isString() const { return value_->is_string(); }
  bool isNull() const { return value_->is_null(); }

  // Fails unless this is an object whose members are all in `allowed`.
  void expectMembers(std::initializer_list<const char*> allowed) const;
  bool has(const char* name) const;
  // A member that must be there.
  JsonCursor operator[](const char* name) const;
  // A member that may be missing; JSON null counts as given.
  std::optional<JsonCursor> find(const char* name) const;

  // The elements of an array.
  std::vector<JsonCursor> elements() const;
  std::size_t size() const;

  std::string asString() const;
  bool asBool() const;
  int asInt() const;
  // An integer from `min` to `max`.
  long long asInteger(long long min, long long max) const;
  // Any finite number.
  double asNumber() const;
  float asFloat() const { return static_cast<float>(asNumber()); }
  Point3 asPoint3() const;
  Color asColor() const;
  // A class id: two parts, each a number or a string of hexadecimal digits after "0x".
  Class_ID asClassId() const;
  unsigned int asClassIdPart() const;

  // Typed reads of an optional member with a default.
  std::string stringOr(const char* name, const std::string& fallback) const;
  bool boolOr(const char* name, bool fallback) const;
  double numberOr(const char* name, double fallback) const;

 private:
  JsonCursor child(const nlohmann::json& value, std::string path) const {
    return JsonCursor(value, std::move(path), *source_);
  }
  const nlohmann::json* value_;
  std::string path_;
  const std::string* source_;
};

// The error text: "<source>: <path>: <message>", or "<source>: <message>" at the root.
std::string placeMessage(const std::string& sourceName, const std::string& path, const std::string& message);

}  // namespace hostmodel
