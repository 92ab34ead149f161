// Whether windows can open here, asked without the toolkit: a toolkit that
// cannot reach its display ends the process, so the tools ask first.
#pragma once

#include <string>

// Empty when a display is there to open windows on (or a platform is named
// outright, such as Qt's offscreen one); otherwise why not, in a few words:
// "DISPLAY is not set", "cannot connect to the display :1".
std::string displayUnavailableReason();
