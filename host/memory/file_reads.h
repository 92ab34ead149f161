// Which files a run read and which it wrote besides its scene file, kept in
// one place so that zt2export can name an export's dependencies (--depfile)
// without every reader handing lists back up by hand.
#pragma once

#include <string>
#include <vector>

namespace hostmodel {

// Notes that the file at `path` was read whole (or used as an image); each
// path is kept once, in the order first seen.
void noteFileRead(const std::string& path);
// Notes a file the run created as a by-product (a texture taken out of a
// model); it is an output, never a dependency.
void noteFileWritten(const std::string& path);

// What was noted so far, in the order first seen; files noted as written are
// left out of filesRead().
std::vector<std::string> filesRead();
std::vector<std::string> filesWritten();

}  // namespace hostmodel
