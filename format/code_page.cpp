#include "format/code_page.h"

#include <cstdint>

namespace {

// Windows-1252 from 0x80 to 0x9F; the rest of the bytes are their own code points.
constexpr char32_t kHighControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char32_t codePoint(unsigned char byte) { return byte >= 0x80 && byte < 0xA0 ? kHighControls[byte - 0x80] : byte; }

void appendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

}  // namespace

std::string codePageToUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (const char byte : bytes) appendUtf8(out, codePoint(static_cast<unsigned char>(byte)));
  return out;
}

bool codePageFromUtf8(std::string_view text, std::string& bytes) {
  bytes.clear();
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
    if (length == 0 || i + length > text.size()) return false;
    char32_t c = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
    for (std::size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if ((next >> 6) != 2) return false;
      c = (c << 6) | (next & 0x3F);
    }
    i += length;
    if (c < 0x80 || (c >= 0xA0 && c < 0x100)) {
      bytes += static_cast<char>(c);
      continue;
    }
    bool found = false;
    for (unsigned k = 0; k < 32 && !found; ++k)
      if (kHighControls[k] == c) {
        bytes += static_cast<char>(0x80 + k);
        found = true;
      }
    if (!found) return false;
  }
  return true;
}

namespace {

// The length of the UTF-8 sequence starting at `text[at]`, 0 when it is not one.
std::size_t utf8SequenceLength(std::string_view text, std::size_t at) {
  const auto c = static_cast<unsigned char>(text[at]);
  const std::size_t n = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
  if (n == 0 || at + n > text.size()) return 0;
  for (std::size_t i = 1; i < n; ++i)
    if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80) return 0;
  return n;
}

}  // namespace

std::string codePageFromUtf8Lossy(std::string_view text) {
  std::string bytes;
  if (codePageFromUtf8(text, bytes)) return bytes;
  bytes.clear();
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t n = utf8SequenceLength(text, at);
    std::string one;
    if (n > 0 && codePageFromUtf8(text.substr(at, n), one)) bytes += one;
    else bytes += '?';
    at += n > 0 ? n : 1;
  }
  return bytes;
}

std::string displayText(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t n = utf8SequenceLength(bytes, at);
    if (n == 0) return codePageToUtf8(bytes);
    at += n;
  }
  return std::string(bytes);
}
