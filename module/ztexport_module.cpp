// The exporter module, ZTExport.dle. Its four entry points live with the rest
// of the exporter in the core library; naming them here makes the linker keep
// them, and everything they reach, in the module. Nothing else is exported:
// the core is built with hidden symbols, so the module's globals (the verbose
// trace, the mesh scratch) stay its own whatever the host links.
#include "plugin/plugin_entry.h"

namespace {
[[gnu::used]] const void* const kEntryPoints[] = {
    reinterpret_cast<const void*>(&LibDescription),
    reinterpret_cast<const void*>(&LibNumberClasses),
    reinterpret_cast<const void*>(&LibClassDesc),
    reinterpret_cast<const void*>(&LibVersion),
};
}  // namespace
