#include "ui/display_probe.h"

#include <dlfcn.h>

#include <cstdlib>
#include <string_view>

namespace {

std::string_view env(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

// Connects to the X display once and lets go. The X client library is
// loaded at run time, so that the tools link no X library of their own.
bool canConnectToX() {
  void* xcb = dlopen("libxcb.so.1", RTLD_NOW | RTLD_LOCAL);
  if (!xcb) return false;
  using Connect = void* (*)(const char*, int*);
  using HasError = int (*)(void*);
  using Disconnect = void (*)(void*);
  const auto connect = reinterpret_cast<Connect>(dlsym(xcb, "xcb_connect"));
  const auto hasError = reinterpret_cast<HasError>(dlsym(xcb, "xcb_connection_has_error"));
  const auto disconnect = reinterpret_cast<Disconnect>(dlsym(xcb, "xcb_disconnect"));
  bool connected = false;
  if (connect && hasError && disconnect) {
    void* connection = connect(nullptr, nullptr);
    connected = connection && hasError(connection) == 0;
    if (connection) disconnect(connection);
  }
  dlclose(xcb);
  return connected;
}

}  // namespace

std::string displayUnavailableReason() {
  const std::string_view platform = env("QT_QPA_PLATFORM");
  // A platform named outright (offscreen, wayland, vnc) is taken at its word.
  if (!platform.empty() && !platform.starts_with("xcb")) return {};
  if (env("DISPLAY").empty()) {
    if (platform.empty() && !env("WAYLAND_DISPLAY").empty()) return {};
    return "DISPLAY is not set";
  }
  if (!canConnectToX()) return "cannot connect to the display " + std::string(env("DISPLAY"));
  return {};
}
