// Replacing a file's contents so that a failure at any point leaves either the
// old file or the whole new one, never a mixture and never a stray temporary.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>

struct ByteRange {
  const void* data;
  std::size_t size;
};

// Writes the ranges, in order, as the new contents of `target`.
//
// - The bytes go to a temporary of a unique name in the directory of the file
//   finally replaced, are flushed to the disk and then renamed over it, so two
//   writers of one file at once leave one of the two whole files.
// - A symbolic link is followed: the file it points to is replaced and the link stays.
// - An existing file keeps its permission bits and, where allowed, its group; a new
//   file gets the usual permissions under the process's umask.
// - A target that exists but is not a regular file (a directory, a device, a FIFO),
//   or a regular file with other hard links (which a rename would cut loose from
//   the new contents), is refused.
//
// Returns an empty string on success, otherwise the reason, such as
// "Permission denied" or "not a regular file".
std::string replaceFileContents(const std::string& target, std::initializer_list<ByteRange> ranges);

// Writes all `size` bytes to `fd`, going on after interruptions; false with
// errno set when a write fails.
bool writeAll(int fd, const void* data, std::size_t size);
