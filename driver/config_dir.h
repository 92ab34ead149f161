// Where ZTExport.cfg and ZTExportAdditional.cfg live when no folder is named:
// zt2export and the Python package look in the same place.
#pragma once

#include <string>

namespace zt2export {

// $XDG_CONFIG_HOME/ztexport, ~/.config/ztexport, or .config/ztexport in the
// account's home directory; empty when there is no home to put it in, since a
// configuration that quietly lands in whatever directory the run started from
// is never found again.
std::string defaultConfigDir();

// Why the saved options in `configDir` cannot be read, when ZTExport.cfg is
// there but is not a regular file (a folder, a FIFO, a device): a run would
// otherwise go on with the defaults as if there were none. Empty when the
// file is a regular file or missing.
std::string optionsFileProblem(const std::string& configDir);

}  // namespace zt2export
