#include "options/number_text.h"

#include <charconv>
#include <cmath>
#include <limits>

bool parseInt32(const std::string& text, std::int32_t& out) {
  const char* first = text.data();
  const char* last = first + text.size();
  // from_chars takes '-' but not '+'; "+-1" is still malformed.
  if (first != last && *first == '+') {
    ++first;
    if (first != last && *first == '-') return false;
  }
  if (first == last || *first == '+') return false;
  std::int64_t v = 0;
  const auto [end, ec] = std::from_chars(first, last, v);
  if (ec != std::errc() || end != last) return false;
  if (v < std::numeric_limits<std::int32_t>::min() || v > std::numeric_limits<std::int32_t>::max()) return false;
  out = static_cast<std::int32_t>(v);
  return true;
}

bool parseFiniteFloat(const std::string& text, float& out) {
  const char* first = text.data();
  const char* last = first + text.size();
  if (first != last && *first == '+') {
    ++first;
    if (first != last && *first == '-') return false;
  }
  if (first == last || *first == '+') return false;
  float v = 0.0f;
  const auto [end, ec] = std::from_chars(first, last, v, std::chars_format::general);
  if (ec != std::errc() || end != last || !std::isfinite(v)) return false;
  out = v;
  return true;
}

std::string formatFloat(float value) {
  char buffer[64];
  const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
  return ec == std::errc() ? std::string(buffer, end) : std::string("?");
}
