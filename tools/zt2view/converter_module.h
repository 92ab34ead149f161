// The page's glTF converter, WebAssembly compressed with gzip, in base64;
// empty when zt2view was built without it (tools/zt2view/wasm/).
#pragma once

extern const char* const kConverterModule;
