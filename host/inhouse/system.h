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
  // Non-zero stops tracing until the sink is set again.
  void ceaseVerbose(int cease) { ceased_ = cease != 0; }
  void setVerboseSink(Sink sink) {
    sink_ = std::move(sink);
    ceased_ = false;
  }
  bool verboseActive() const { return sink_ && !ceased_; }

 private:
  Sink sink_;
  bool ceased_ = false;
};

class T_File {
 public:
  bool exists(const std::string& path) const;
  bool isDirectory(const std::string& path) const;
  // Archive look-ups are not supported here; the call is kept for the driver's sake.
  void setArchiveHandling(int /*enabled*/) {}
};

extern T_System* Sys;
extern T_File* File;
