// The preview page's script: viewer.js bundled with three.js at build time.
#pragma once

extern const char* const kViewerScript;
