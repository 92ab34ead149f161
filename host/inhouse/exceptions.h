// Exceptions of the in-house base library. Only this layer throws: a missing
// input file, a script failure and exhausted memory. Scene problems never
// throw; they go to the export's info log.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

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
