// T_Script: the in-house parser for small configuration scripts made of named
// blocks of key/value pairs, such as ZTExportAdditional.cfg. The syntax is
// written down in docs/additional-config.md:
//
//   # a comment            // also a comment
//   animation {
//     positionDelta = 0.01;
//     frameToFrameInterpolation = "normalized";
//   }
//
// A caller describes the keys it wants with a table of Variables and asks for
// one block; every key of the table receives either the block's value or the
// table's default text, parsed in the key's format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class T_Script {
 public:
  // How a value's text is read and what the entry's address points to.
  enum Format {
    t_int,     // std::int32_t: decimal digits with an optional sign
    t_float,   // float: a finite decimal number, exponent allowed
    t_string,  // std::string: a quoted string or a bare word
  };

  // One entry per key; a table ends with an entry whose name is null.
  struct Variables {
    const char* name;
    void* address;  // std::int32_t*, float* or std::string*, as `format` says
    const char* defaultText;
    Format format;
  };

  // Reads the whole script. Throws T_Exception naming the file when it cannot
  // be read.
  explicit T_Script(const char* fileName);
  // A script held in memory; `fileName` only names it in messages.
  static T_Script fromText(const std::string& text, const std::string& fileName);

  // Fills every variable of the table from block `block`. `occurrence` picks
  // among blocks of the same name (0 is the first). With `strict`, a key that
  // the table does not name and a key given twice are errors; without it an
  // unknown key is skipped and the last of repeated keys wins.
  //
  // The whole script is checked for syntax first. Throws
  // T_ScriptException_BlockNotFound when the block is not there and
  // T_Exception, with a message "<file>:<line>: <reason>", for a syntax error,
  // a value that does not parse in its format, or a key refused by `strict`.
  // Nothing is written to the table's addresses unless every value parses.
  void parse(const Variables* variables, const char* block, unsigned int occurrence, bool strict) const;

  const std::string& fileName() const { return fileName_; }

 private:
  T_Script() = default;

  std::string fileName_;
  std::string text_;
};
