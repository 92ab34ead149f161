// A position in the scene document: the JSON value and its path from the
// document root ("nodes[2].children[0].transform"). Every typed read checks
// the value and fails with a SceneLoadError naming the file and the path, so
// that a bad scene is reported where it is wrong.
#pragma once

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/max_types.h"

namespace hostmodel {

// Why a string with a NUL in it is refused, in the scene file and in an image list.
inline constexpr const char* kNulInText = "a name or a path cannot hold a NUL character";

class JsonCursor {
 public:
  JsonCursor(const nlohmann::json& value, std::string path, const std::string& sourceName)
      : value_(&value), step_(std::make_shared<const PathStep>(PathStep{nullptr, std::move(path), 0, false})),
        source_(&sourceName) {}

  const nlohmann::json& json() const { return *value_; }
  // Spelled out only when asked for (to report an error): a cursor holds its
  // last step and shares the rest with its parent, so that a deep document
  // does not cost the square of its depth.
  std::string path() const;
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
  // A number that is finite as a 32-bit float: 1e39 is refused here, not
  // turned into infinity on its way to a file.
  float asFloat() const;
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
  struct PathStep {
    std::shared_ptr<const PathStep> parent;
    std::string key;  // a member name; the whole path at the root
    std::size_t index;
    bool isIndex;
  };
  JsonCursor(const nlohmann::json& value, std::shared_ptr<const PathStep> step, const std::string* source)
      : value_(&value), step_(std::move(step)), source_(source) {}
  JsonCursor member(const nlohmann::json& value, const char* name) const {
    return JsonCursor(value, std::make_shared<const PathStep>(PathStep{step_, name, 0, false}), source_);
  }
  JsonCursor element(const nlohmann::json& value, std::size_t index) const {
    return JsonCursor(value, std::make_shared<const PathStep>(PathStep{step_, {}, index, true}), source_);
  }
  const nlohmann::json* value_;
  std::shared_ptr<const PathStep> step_;
  const std::string* source_;
};

// The message for a number too large for a float.
extern const char* const kNotAFloat;

// The error text: "<source>: <path>: <message>", or "<source>: <message>" at the root.
std::string placeMessage(const std::string& sourceName, const std::string& path, const std::string& message);

}  // namespace hostmodel
