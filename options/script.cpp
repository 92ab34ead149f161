#include "options/script.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <variant>

#include "host/inhouse/exceptions.h"
#include "options/number_text.h"

namespace {

enum class TokenKind { Word, String, OpenBrace, CloseBrace, Equals, Semicolon, End };

struct Token {
  TokenKind kind = TokenKind::End;
  std::string text;
  int line = 0;
};

struct Entry {
  std::string key;
  std::string value;
  bool quoted = false;
  int line = 0;
};

struct Block {
  std::string name;
  int line = 0;
  std::vector<Entry> entries;
};

using Value = std::variant<std::int32_t, float, std::string>;

[[noreturn]] void failAt(const std::string& file, int line, const std::string& reason) {
  throw T_Exception(file + ":" + std::to_string(line) + ": " + reason);
}

bool isWordChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '.' ||
         c == '+' || c == '-';
}

bool isIdentifier(const std::string& s) {
  if (s.empty() || (s[0] >= '0' && s[0] <= '9')) return false;
  for (char c : s)
    if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_')) return false;
  return true;
}

std::string describe(const Token& t) {
  switch (t.kind) {
    case TokenKind::Word: return "'" + t.text + "'";
    case TokenKind::String: return "\"" + t.text + "\"";
    case TokenKind::OpenBrace: return "'{'";
    case TokenKind::CloseBrace: return "'}'";
    case TokenKind::Equals: return "'='";
    case TokenKind::Semicolon: return "';'";
    case TokenKind::End: return "the end of the file";
  }
  return "?";
}

std::vector<Token> tokenize(const std::string& text, const std::string& file) {
  std::vector<Token> tokens;
  int line = 1;
  // Editors on Windows often start a UTF-8 file with a byte order mark; it is not part of the script.
  std::size_t i = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;
  const std::size_t n = text.size();
  auto endsLine = [](char c) { return c == '\n' || c == '\r'; };
  while (i < n) {
    const char c = text[i];
    if (endsLine(c)) {
      // LF, CRLF and a lone CR each end one line.
      ++line;
      i += (c == '\r' && i + 1 < n && text[i + 1] == '\n') ? 2 : 1;
    } else if (c == ' ' || c == '\t') {
      ++i;
    } else if (c == '#' || (c == '/' && i + 1 < n && text[i + 1] == '/')) {
      while (i < n && !endsLine(text[i])) ++i;
    } else if (c == '{' || c == '}' || c == '=' || c == ';') {
      const TokenKind kind = c == '{'   ? TokenKind::OpenBrace
                             : c == '}' ? TokenKind::CloseBrace
                             : c == '=' ? TokenKind::Equals
                                        : TokenKind::Semicolon;
      tokens.push_back({kind, std::string(1, c), line});
      ++i;
    } else if (c == '"') {
      Token t{TokenKind::String, {}, line};
      ++i;
      for (;;) {
        if (i >= n || endsLine(text[i])) failAt(file, line, "unterminated string");
        if (text[i] == '"') break;
        // Only \" and \\ are escapes, so Windows paths can be written as they are.
        if (text[i] == '\\' && i + 1 < n && (text[i + 1] == '"' || text[i + 1] == '\\')) ++i;
        t.text += text[i++];
      }
      ++i;
      tokens.push_back(std::move(t));
    } else if (isWordChar(c)) {
      Token t{TokenKind::Word, {}, line};
      while (i < n && isWordChar(text[i])) t.text += text[i++];
      tokens.push_back(std::move(t));
    } else {
      const unsigned char u = static_cast<unsigned char>(c);
      char shown[16];
      if (u >= 0x20 && u < 0x7f)
        std::snprintf(shown, sizeof shown, "'%c'", c);
      else
        std::snprintf(shown, sizeof shown, "byte 0x%02x", u);
      failAt(file, line, std::string("unexpected character ") + shown);
    }
  }
  tokens.push_back({TokenKind::End, {}, line});
  return tokens;
}

// script := { name '{' { key '=' value [';'] } '}' }
std::vector<Block> parseBlocks(const std::vector<Token>& tokens, const std::string& file) {
  std::vector<Block> blocks;
  std::size_t i = 0;
  while (tokens[i].kind != TokenKind::End) {
    const Token& name = tokens[i];
    if (name.kind != TokenKind::Word || !isIdentifier(name.text))
      failAt(file, name.line, "expected a block name, found " + describe(name));
    ++i;
    if (tokens[i].kind != TokenKind::OpenBrace)
      failAt(file, tokens[i].line, "expected '{' after block name '" + name.text + "', found " + describe(tokens[i]));
    ++i;
    Block block{name.text, name.line, {}};
    while (tokens[i].kind != TokenKind::CloseBrace) {
      const Token& key = tokens[i];
      if (key.kind == TokenKind::End)
        failAt(file, key.line, "block '" + block.name + "' opened at line " + std::to_string(block.line) +
                                   " is not closed with '}'");
      if (key.kind != TokenKind::Word || !isIdentifier(key.text))
        failAt(file, key.line, "expected a key or '}', found " + describe(key));
      ++i;
      if (tokens[i].kind != TokenKind::Equals)
        failAt(file, tokens[i].line, "expected '=' after key '" + key.text + "', found " + describe(tokens[i]));
      ++i;
      const Token& value = tokens[i];
      if (value.kind != TokenKind::Word && value.kind != TokenKind::String)
        failAt(file, value.line, "expected a value for key '" + key.text + "', found " + describe(value));
      ++i;
      if (tokens[i].kind == TokenKind::Semicolon) ++i;
      block.entries.push_back({key.text, value.text, value.kind == TokenKind::String, key.line});
    }
    ++i;
    blocks.push_back(std::move(block));
  }
  return blocks;
}

// Parses `text` in `format`; empty `reason` on success.
Value parseValue(const std::string& text, bool quoted, T_Script::Format format, std::string& reason) {
  switch (format) {
    case T_Script::t_int: {
      std::int32_t v = 0;
      if (quoted || !parseInt32(text, v)) reason = "is not a 32-bit integer";
      return v;
    }
    case T_Script::t_float: {
      float v = 0.0f;
      if (quoted || !parseFiniteFloat(text, v)) reason = "is not a number";
      return v;
    }
    case T_Script::t_string:
      return text;
  }
  reason = "has an unknown format";
  return std::int32_t{0};
}

}  // namespace

T_Script::T_Script(const char* fileName) : fileName_(fileName) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(fileName_, ec)) throw T_Exception(fileName_ + ": cannot be read");
  std::ifstream in(fileName_, std::ios::binary);
  if (!in) throw T_Exception(fileName_ + ": cannot be read");
  text_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (in.bad()) throw T_Exception(fileName_ + ": cannot be read");
}

T_Script T_Script::fromText(const std::string& text, const std::string& fileName) {
  T_Script script;
  script.fileName_ = fileName;
  script.text_ = text;
  return script;
}

void T_Script::parse(const Variables* variables, const char* block, unsigned int occurrence, bool strict) const {
  const std::vector<Block> blocks = parseBlocks(tokenize(text_, fileName_), fileName_);

  const Block* found = nullptr;
  unsigned int seen = 0;
  for (const Block& b : blocks) {
    if (b.name != block) continue;
    if (seen++ == occurrence) {
      found = &b;
      break;
    }
  }
  if (!found) throw T_ScriptException_BlockNotFound(block);

  std::size_t count = 0;
  while (variables[count].name) ++count;

  // Index of the entry that gives each variable, or -1 for its default.
  std::vector<int> source(count, -1);
  for (std::size_t e = 0; e < found->entries.size(); ++e) {
    const Entry& entry = found->entries[e];
    std::size_t v = 0;
    while (v < count && entry.key != variables[v].name) ++v;
    if (v == count) {
      if (strict) failAt(fileName_, entry.line, "unknown key '" + entry.key + "' in block '" + found->name + "'");
      continue;
    }
    if (strict && source[v] >= 0)
      failAt(fileName_, entry.line, "key '" + entry.key + "' given twice in block '" + found->name +
                                        "' (first at line " + std::to_string(found->entries[source[v]].line) + ")");
    source[v] = static_cast<int>(e);
  }

  std::vector<Value> values;
  values.reserve(count);
  for (std::size_t v = 0; v < count; ++v) {
    const Variables& var = variables[v];
    std::string reason;
    if (source[v] >= 0) {
      const Entry& entry = found->entries[source[v]];
      values.push_back(parseValue(entry.value, entry.quoted, var.format, reason));
      if (!reason.empty())
        failAt(fileName_, entry.line,
               "value " + std::string(entry.quoted ? "\"" : "'") + entry.value + (entry.quoted ? "\"" : "'") +
                   " of key '" + entry.key + "' " + reason);
    } else {
      values.push_back(parseValue(var.defaultText ? var.defaultText : "", false, var.format, reason));
      if (!reason.empty())
        throw T_Exception(fileName_ + ": default text '" + std::string(var.defaultText ? var.defaultText : "") +
                          "' of key '" + var.name + "' " + reason);
    }
  }

  for (std::size_t v = 0; v < count; ++v) {
    switch (variables[v].format) {
      case t_int: *static_cast<std::int32_t*>(variables[v].address) = std::get<std::int32_t>(values[v]); break;
      case t_float: *static_cast<float*>(variables[v].address) = std::get<float>(values[v]); break;
      case t_string: *static_cast<std::string*>(variables[v].address) = std::get<std::string>(values[v]); break;
    }
  }
}
