// What the benchmarks share: running another program quietly, and keeping
// the median of each benchmark's repetitions for the summary they print.
#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// Starts a program with its output discarded, with `extraEnv` ("NAME=value")
// added to this process's environment; its process id, or -1.
inline pid_t spawnQuietly(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv = {}) {
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  std::vector<char*> env;
  for (char** e = environ; *e; ++e) env.push_back(*e);
  for (const std::string& e : extraEnv) env.push_back(const_cast<char*>(e.c_str()));
  env.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid;
  const int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), env.data());
  posix_spawn_file_actions_destroy(&actions);
  return rc == 0 ? pid : -1;
}

// Runs a program as spawnQuietly starts it; its exit status, or -1.
inline int runQuietly(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv = {}) {
  const pid_t pid = spawnQuietly(argv, extraEnv);
  if (pid < 0) return -1;
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Keeps the median of every benchmark's repetitions, in nanoseconds per
// iteration, under "name" or "name/args" when the benchmark has arguments.
// Processor time where the machine is shared and wall time would mislead.
class MedianCollector : public benchmark::ConsoleReporter {
 public:
  enum class Time { Real, Cpu };
  explicit MedianCollector(Time time = Time::Real) : time_(time) {}

  std::map<std::string, double> medianNs;

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.run_type != Run::RT_Aggregate || r.aggregate_name != "median") continue;
      const std::string key = r.run_name.args.empty() ? r.run_name.function_name
                                                      : r.run_name.function_name + "/" + r.run_name.args;
      medianNs[key] = (time_ == Time::Cpu ? r.GetAdjustedCPUTime() : r.GetAdjustedRealTime()) * unitNs(r.time_unit);
    }
    ConsoleReporter::ReportRuns(runs);
  }

 private:
  static double unitNs(benchmark::TimeUnit u) {
    switch (u) {
      case benchmark::kNanosecond: return 1.0;
      case benchmark::kMicrosecond: return 1e3;
      case benchmark::kMillisecond: return 1e6;
      default: return 1e9;
    }
  }
  Time time_;
};

}  // namespace bench
