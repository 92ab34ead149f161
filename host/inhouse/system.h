// The in-house verbose trace and file queries. Verbose lines are developer
// traces: they never reach the export's info log. They go to a sink that the
// tools may set (for instance standard error under --verbose); by default
// they are dropped.
#pragma once

#include <functional>
#include <string>

class T_System {
 public:
  using Sink = std::function<void(const std::string&)>;

  void verbose(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Called at the start of every export. The trace has no buffered section of
  // an earlier run to close here, so tracing simply goes on to the sink.
  void ceaseVerbose(int /*cease*/) {}
  void setVerboseSink(Sink sink) { sink_ = std::move(sink); }
  bool verboseActive() const { return static_cast<bool>(sink_); }

 private:
  Sink sink_;
};

class T_File {
 public:
  bool exists(const std::string& path) const;
  bool isDirectory(const std::string& path) const;
  // Archive look-ups are not supported here; the call is kept for the driver's sake.
  void setArchiveHandling(int /*enabled*/) {}
  // A run that checks a scene without leaving anything behind. Every write of
  // the exporter asks this first: T_MemoryFile::save (the scene file, the
  // .skd files, ZTExport.cfg) then answers success without touching the disk,
  // and a texture copy is skipped the same way.
  void suppressWrites(bool suppress) { writesSuppressed_ = suppress; }
  bool writesSuppressed() const { return writesSuppressed_; }

 private:
  bool writesSuppressed_ = false;
};

extern T_System* Sys;
extern T_File* File;
