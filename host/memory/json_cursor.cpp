#include "host/memory/json_cursor.h"

#include <cmath>
#include <limits>

#include "host/memory/memory_host.h"

namespace hostmodel {
namespace {

std::string kindOf(const nlohmann::json& v) {
  switch (v.type()) {
    case nlohmann::json::value_t::null: return "null";
    case nlohmann::json::value_t::object: return "an object";
    case nlohmann::json::value_t::array: return "an array";
    case nlohmann::json::value_t::string: return "a string";
    case nlohmann::json::value_t::boolean: return "a boolean";
    case nlohmann::json::value_t::number_integer:
    case nlohmann::json::value_t::number_unsigned:
    case nlohmann::json::value_t::number_float: return "a number";
    default: return "an unsupported value";
  }
}

}  // namespace

const char* const kNotAFloat = "expected a number that a 32-bit float holds (magnitude at most 3.4e38)";

std::string placeMessage(const std::string& sourceName, const std::string& path, const std::string& message) {
  return path.empty() ? sourceName + ": " + message : sourceName + ": " + path + ": " + message;
}

std::string JsonCursor::path() const {
  std::vector<const PathStep*> steps;
  for (const PathStep* s = step_.get(); s; s = s->parent.get()) steps.push_back(s);
  // A place hundreds of levels down is told by its ends; the middle would
  // fill screens without helping anyone find it.
  constexpr std::size_t kShownAtEachEnd = 12;
  const std::size_t elided = steps.size() > 3 * kShownAtEachEnd ? steps.size() - 2 * kShownAtEachEnd : 0;
  std::string p;
  std::size_t index = 0;
  for (auto it = steps.rbegin(); it != steps.rend(); ++it, ++index) {
    if (elided && index >= kShownAtEachEnd && index < kShownAtEachEnd + elided) {
      if (index == kShownAtEachEnd) p += "...(" + std::to_string(elided) + " steps)...";
      continue;
    }
    const PathStep& s = **it;
    if (elided && index == kShownAtEachEnd + elided && !s.isIndex) {
      p += s.key;  // no dot after the gap
      continue;
    }
    if (s.isIndex)
      p += "[" + std::to_string(s.index) + "]";
    else if (s.parent)
      p += (p.empty() ? "" : ".") + s.key;
    else
      p = s.key;
  }
  return p;
}

void JsonCursor::fail(const std::string& message) const {
  throw SceneLoadError(placeMessage(*source_, path(), message));
}

void JsonCursor::expectMembers(std::initializer_list<const char*> allowed) const {
  if (!isObject()) fail("expected an object, found " + kindOf(*value_));
  for (const auto& [key, value] : value_->items()) {
    bool known = false;
    for (const char* name : allowed) known = known || key == name;
    if (known) continue;
    std::string list;
    for (const char* name : allowed) list += (list.empty() ? "" : ", ") + std::string(name);
    fail("unknown member \"" + key + "\" (expected one of: " + list + ")");
  }
}

bool JsonCursor::has(const char* name) const { return isObject() && value_->contains(name); }

JsonCursor JsonCursor::operator[](const char* name) const {
  if (!isObject()) fail("expected an object, found " + kindOf(*value_));
  const auto it = value_->find(name);
  if (it == value_->end()) fail(std::string("missing required member \"") + name + "\"");
  return member(*it, name);
}

std::optional<JsonCursor> JsonCursor::find(const char* name) const {
  if (!isObject()) fail("expected an object, found " + kindOf(*value_));
  const auto it = value_->find(name);
  if (it == value_->end()) return std::nullopt;
  return member(*it, name);
}

std::vector<JsonCursor> JsonCursor::elements() const {
  if (!isArray()) fail("expected an array, found " + kindOf(*value_));
  // One block holds every element's step, each cursor sharing it: a list of a
  // million vertices costs one allocation, not a million.
  const std::size_t n = value_->size();
  std::vector<JsonCursor> out;
  out.reserve(n);
  if (n == 0) return out;
  const auto steps = std::make_shared<PathStep[]>(n);
  for (std::size_t i = 0; i < n; ++i) {
    steps[i] = PathStep{step_, {}, i, true};
    out.push_back(JsonCursor((*value_)[i], std::shared_ptr<const PathStep>(steps, &steps[i]), source_));
  }
  return out;
}

std::size_t JsonCursor::size() const {
  if (!isArray()) fail("expected an array, found " + kindOf(*value_));
  return value_->size();
}

std::string JsonCursor::asString() const {
  if (!isString()) fail("expected a string, found " + kindOf(*value_));
  // The host's strings are C strings, and the system reads a NUL in a path as
  // its end: a name would lose its tail, a path would name another file.
  const std::string& s = value_->get_ref<const std::string&>();
  if (s.find('\0') != std::string::npos) fail(kNulInText);
  return s;
}

bool JsonCursor::asBool() const {
  if (!value_->is_boolean()) fail("expected true or false, found " + kindOf(*value_));
  return value_->get<bool>();
}

int JsonCursor::asInt() const {
  return static_cast<int>(asInteger(std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

long long JsonCursor::asInteger(long long min, long long max) const {
  const auto range = [&] { return " from " + std::to_string(min) + " to " + std::to_string(max); };
  long long v = 0;
  if (value_->is_number_unsigned()) {
    const auto u = value_->get<unsigned long long>();
    if (u > static_cast<unsigned long long>(std::numeric_limits<long long>::max()))
      fail("expected an integer" + range());
    v = static_cast<long long>(u);
  } else if (value_->is_number_integer()) {
    v = value_->get<long long>();
  } else if (value_->is_number_float()) {
    // 30.0 is as good an integer as 30; 30.5 is not.
    const double d = value_->get<double>();
    if (!std::isfinite(d) || d != std::floor(d) || std::fabs(d) > 9.0e15) fail("expected an integer" + range());
    v = static_cast<long long>(d);
  } else {
    fail("expected an integer" + range() + ", found " + kindOf(*value_));
  }
  if (v < min || v > max) fail("expected an integer" + range() + ", found " + std::to_string(v));
  return v;
}

double JsonCursor::asNumber() const {
  if (!value_->is_number()) fail("expected a number, found " + kindOf(*value_));
  const double d = value_->get<double>();
  if (!std::isfinite(d)) fail("expected a finite number");
  return d;
}

float JsonCursor::asFloat() const {
  const double d = asNumber();
  if (std::fabs(d) > std::numeric_limits<float>::max()) fail(kNotAFloat);
  return static_cast<float>(d);
}

Point3 JsonCursor::asPoint3() const {
  if (!isArray() || value_->size() != 3) fail("expected an array of 3 numbers");
  Point3 p;
  for (int i = 0; i < 3; ++i) {
    const nlohmann::json& v = (*value_)[i];
    // A sound number is read in place; a cursor, and its place, only to refuse one.
    if (v.is_number()) {
      const double d = v.get<double>();
      if (std::isfinite(d) && std::fabs(d) <= std::numeric_limits<float>::max()) {
        p[i] = static_cast<float>(d);
        continue;
      }
    }
    p[i] = element(v, static_cast<std::size_t>(i)).asFloat();
  }
  return p;
}

Color JsonCursor::asColor() const {
  if (!isArray() || value_->size() != 3) fail("expected a colour: an array of 3 numbers (red, green, blue, 0..1)");
  const Point3 p = asPoint3();
  return {p.x, p.y, p.z};
}

unsigned int JsonCursor::asClassIdPart() const {
  if (isString()) {
    const std::string s = value_->get<std::string>();
    const bool hex = s.size() > 2 && s.size() <= 10 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X') &&
                     s.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
    if (!hex) fail("expected a number or a hexadecimal string such as \"0x1020\", found \"" + s + "\"");
    return static_cast<unsigned int>(std::stoul(s.substr(2), nullptr, 16));
  }
  return static_cast<unsigned int>(asInteger(0, std::numeric_limits<unsigned int>::max()));
}

Class_ID JsonCursor::asClassId() const {
  if (!isArray() || value_->size() != 2) fail("expected a class id: an array of 2 numbers or hexadecimal strings");
  const auto parts = elements();
  return Class_ID(parts[0].asClassIdPart(), parts[1].asClassIdPart());
}

std::string JsonCursor::stringOr(const char* name, const std::string& fallback) const {
  const auto m = find(name);
  return m ? m->asString() : fallback;
}

bool JsonCursor::boolOr(const char* name, bool fallback) const {
  const auto m = find(name);
  return m ? m->asBool() : fallback;
}

double JsonCursor::numberOr(const char* name, double fallback) const {
  const auto m = find(name);
  return m ? m->asNumber() : fallback;
}

}  // namespace hostmodel
