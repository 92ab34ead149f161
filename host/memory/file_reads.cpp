#include "host/memory/file_reads.h"

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <set>

namespace hostmodel {
namespace {

struct Record {
  std::mutex lock;
  std::vector<std::string> read, written;
  std::set<std::string> seenRead, seenWritten;
};

Record& record() {
  static Record r;
  return r;
}

// "dir/./a/../b.png" and "dir/b.png" are one file to a build tool.
std::string normal(const std::string& path) { return std::filesystem::path(path).lexically_normal().string(); }

}  // namespace

void noteFileRead(const std::string& path) {
  if (path.empty()) return;
  Record& r = record();
  const std::lock_guard<std::mutex> hold(r.lock);
  if (std::string p = normal(path); r.seenRead.insert(p).second) r.read.push_back(std::move(p));
}

void noteFileWritten(const std::string& path) {
  if (path.empty()) return;
  Record& r = record();
  const std::lock_guard<std::mutex> hold(r.lock);
  if (std::string p = normal(path); r.seenWritten.insert(p).second) r.written.push_back(std::move(p));
}

std::vector<std::string> filesRead() {
  Record& r = record();
  const std::lock_guard<std::mutex> hold(r.lock);
  std::vector<std::string> out;
  std::copy_if(r.read.begin(), r.read.end(), std::back_inserter(out),
               [&](const std::string& p) { return !r.seenWritten.count(p); });
  return out;
}

std::vector<std::string> filesWritten() {
  Record& r = record();
  const std::lock_guard<std::mutex> hold(r.lock);
  return r.written;
}

}  // namespace hostmodel
