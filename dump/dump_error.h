// A fault the validator or the glTF conversion finds in a file that decoded
// (reading faults are the reader's FormatError), worded for the user with the
// chunk it lies in. The tool prints it as one line and exits 1.
#pragma once

#include <stdexcept>
#include <string>

namespace zt2dump {

class DumpError : public std::runtime_error {
 public:
  explicit DumpError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace zt2dump
