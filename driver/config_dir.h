// Where ZTExport.cfg and ZTExportAdditional.cfg live when no folder is named:
// zt2export and the Python package look in the same place.
#pragma once

#include <string>

#include "host/inhouse/result.h"

namespace zt2export {

// $XDG_CONFIG_HOME/ztexport, ~/.config/ztexport, or .config/ztexport in the
// account's home directory; empty when there is no home to put it in, since a
// configuration that quietly lands in whatever directory the run started from
// is never found again.
std::string defaultConfigDir();

// Refuses the saved options in `configDir` when ZTExport.cfg is there but is
// not a regular file (a folder, a FIFO, a device), saying why they cannot be
// read: a run would otherwise go on with the defaults as if there were none.
// A regular file or a missing one passes.
Result<void> checkOptionsFile(const std::string& configDir);

}  // namespace zt2export
