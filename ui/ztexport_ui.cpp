// ZTExportUI.so: the exporter's windows with Qt Widgets, loaded by the module
// the first time a window is needed. Its one exported symbol answers them.
#include <QApplication>

#include "plugin/exporter_windows.h"
#include "ui/display_probe.h"
#include "ui/info_windows.h"
#include "ui/options_window.h"

namespace {

class QtExporterWindows final : public ExporterWindows {
 public:
  std::string unavailableReason() override {
    if (QApplication::instance()) return {};
    // Without a display Qt would end the process; say so instead.
    const std::string why = displayUnavailableReason();
    return why.empty() ? why : "no display (" + why + ")";
  }

  bool runOptionsDialog(OptionsDialog& record) override {
    ensureApplication();
    OptionsWindow window(record);
    return window.exec() == QDialog::Accepted;
  }

  void showExportInfo(const std::string& text) override {
    ensureApplication();
    ExportInfoWindow window(text);
    window.exec();
  }

  void showAbout(const char* title, const char* copyright, const char* authors) override {
    ensureApplication();
    AboutBox box(title, copyright, authors);
    box.exec();
  }

 private:
  // The host may have an application of its own; otherwise one is made for
  // good (the library is never unloaded).
  static void ensureApplication() {
    if (QApplication::instance()) return;
    static int argc = 1;
    static char name[] = "ZTExport";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);
  }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) ExporterWindows* ZTExportWindows() {
  static QtExporterWindows windows;
  return &windows;
}
