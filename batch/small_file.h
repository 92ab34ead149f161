// Small files that only save work (stamps, dependency files): written to a
// temporary beside the target and renamed over it, so a reader sees the old
// file or the new one whole, but not flushed to the disk first. A file lost
// to a crash costs one export again, and a flush per exported file costs
// more than the export of a small scene on a busy disk.
#pragma once

#include <string>

namespace ztbatch {

// An empty string on success, otherwise the reason.
std::string writeSmallFile(const std::string& path, const std::string& text);

}  // namespace ztbatch
