// Put before every source of the page's WebAssembly build (-include): the
// JSON library's faults go the way of the libraries' own (raiseError) rather
// than to a bare abort.
#pragma once

#include "host/inhouse/exceptions.h"

#define JSON_THROW_USER(exception) raiseError(exception)
