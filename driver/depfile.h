// The dependency file of one export (--depfile): the files written as
// targets, then every file the export read, in the syntax of make's rules as
// compilers write them, so that make, Ninja (deps = gcc) and CMake's
// DEPFILE can run zt2export as a build step.
#pragma once

#include <string>
#include <vector>

#include "host/inhouse/result.h"

namespace zt2export {

// `path` written as make reads one word of a rule: spaces, '#' and
// backslashes before them escaped, '$' doubled.
std::string makeWord(const std::string& path);

// "t1 t2: \\\n  p1 \\\n  p2\n"
std::string dependencyRule(const std::vector<std::string>& targets, const std::vector<std::string>& prerequisites);

// What an export of `output` wrote and read, from the host's record: the
// output first (build tools match it against their own name for the step),
// then the skin file when this run wrote it (changed at or after
// `startedAt`, in nanoseconds as nowNanoseconds() gives it), then files the import
// wrote; the options files of `configDir` that exist head the files read.
struct ExportFiles {
  std::vector<std::string> targets;
  std::vector<std::string> prerequisites;
};
// The host's record is the process's: a process that runs several exports
// passes how many files were noted written and read before this one began.
ExportFiles exportFiles(const std::string& output, const std::string& configDir, long long startedAt,
                        std::size_t writtenBefore = 0, std::size_t readBefore = 0);

// The rule dependencyRule() writes, read back: the batch learns from it what
// each export it ran wrote and read. Words as make reads them.
ExportFiles parseDependencyRule(const std::string& text);

// Writes the rule to `depfile` through a temporary and a rename (not flushed
// to the disk: a build tool reads it at once); fails with the reason.
Result<void> writeDepfile(const std::string& depfile, const ExportFiles& files);

// Why `depfile` cannot be written: it is one of the files the export wrote
// or read (by identity, through links and hard links), which the rule would
// replace; the message does not name `depfile`.
Result<void> depfileClash(const std::string& depfile, const ExportFiles& files);

// Now, as exportFiles() compares it with a file's change time.
long long nowNanoseconds();

}  // namespace zt2export
