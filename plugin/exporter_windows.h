// The exporter's three windows (the "Export" options dialog, the "Export
// Info" window and the about box) behind one interface. They live in a
// separate library, ZTExportUI.so beside the module, loaded the first time a
// window is needed: an export that shows no window never loads the toolkit.
#pragma once

#include <string>

class OptionsDialog;

class ExporterWindows {
 public:
  // Empty when windows can open here; otherwise one line saying why not
  // (no display, say). Nothing else may be called then.
  virtual std::string unavailableReason() = 0;
  // Shows the "Export" dialog modally on `record`; true when it closed with
  // OK, which also sets record.saveOnClose.
  virtual bool runOptionsDialog(OptionsDialog& record) = 0;
  // Shows the "Export Info" window modally with `text` ("\r\n" line ends).
  virtual void showExportInfo(const std::string& text) = 0;
  // Shows the about box modally with its three lines.
  virtual void showAbout(const char* title, const char* copyright, const char* authors) = 0;

 protected:
  ~ExporterWindows() = default;
};

// The library and its one entry point, which answers the library's windows.
inline constexpr const char* kExporterWindowsLibrary = "ZTExportUI.so";
inline constexpr const char* kExporterWindowsEntry = "ZTExportWindows";
using ExporterWindowsEntryFn = ExporterWindows* (*)();

// The windows, loaded on first use from beside this module; null when they
// cannot be shown, with `why` saying so in one line.
ExporterWindows* loadExporterWindows(std::string& why);
// Says on standard error that `what` cannot be shown: the last resort when
// there is no host to show a message box.
void reportWindowsUnavailable(const char* what, const std::string& why);
