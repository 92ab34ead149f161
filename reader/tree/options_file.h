// ZTExport.cfg: typed values without chunks, whose presence depends on the
// version written first.
#pragma once

#include "decoded_file.h"
#include "format/memory_file.h"

namespace ztexport {

// Decodes the options values from the read position to the end of `file`
// into `out.optionsVersion` and `out.optionsFields`.
void decodeOptionsValues(T_MemoryFile& file, DecodedFile& out);

}  // namespace ztexport
