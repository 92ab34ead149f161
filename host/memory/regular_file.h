// Whole-file reads for the scene loader: only regular files are read (a
// directory or a FIFO is refused, never waited on), and no more is asked of
// memory than the file holds.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <new>
#include <string>

#include "host/memory/file_reads.h"

namespace hostmodel {

class RegularFile {
 public:
  // Opens `path`; on failure reason() tells why ("No such file or directory",
  // "a directory, not a regular file").
  explicit RegularFile(const std::string& path);
  ~RegularFile();
  RegularFile(const RegularFile&) = delete;
  RegularFile& operator=(const RegularFile&) = delete;

  bool ok() const { return reason_.empty(); }
  const std::string& reason() const { return reason_; }
  std::size_t size() const { return size_; }
  // What the system says of the open file (device, inode, size, times), for
  // telling whether a file read before is still the same one.
  const struct stat& status() const { return status_; }
  // The open descriptor, owned by this object; -1 when the open failed.
  int descriptor() const { return fd_; }
  // Reads the size() bytes the file held when opened; false (with reason()) on failure.
  bool readAll(void* data);

 private:
  int fd_ = -1;
  std::size_t size_ = 0;
  struct stat status_ {};
  std::string reason_;
};

// Whether `path` names a regular file, without opening it: empty when it
// does (with `status` filled), otherwise the reason, in RegularFile's words.
std::string regularFileStatus(const std::string& path, struct stat& status);

// The whole content of the regular file `path` in a container of bytes or
// chars. Every failure calls `fail` with a message such as "cannot read the
// scene file: a directory, not a regular file"; `fail` must not return.
template <typename Container, typename Fail>
Container readRegularFile(const std::string& path, const char* what, Fail fail) {
  RegularFile file(path);
  if (!file.ok()) fail(std::string("cannot read the ") + what + ": " + file.reason());
  Container bytes;
  try {
    bytes.resize(file.size());
  } catch (const std::bad_alloc&) {
    fail("out of memory for the " + std::to_string(file.size()) + " bytes of the " + what);
  }
  if (!bytes.empty() && !file.readAll(bytes.data())) fail(std::string("cannot read the ") + what + ": " + file.reason());
  noteFileRead(path);
  return bytes;
}

}  // namespace hostmodel
