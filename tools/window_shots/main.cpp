// window_shots: pictures of the exporter's three windows for the
// documentation, each window as the user first sees it. Run it on a display
// (tools/screenshots.sh uses a virtual one): window_shots OUTPUT_DIR
#include <QApplication>
#include <QPixmap>
#include <QTimer>
#include <cstdio>
#include <string>

#include "options/options_dialog.h"
#include "plugin/plugin_entry.h"
#include "plugin/scene_exporter.h"
#include "ui/info_windows.h"
#include "ui/options_window.h"

namespace {

bool shoot(QWidget& window, const std::string& file) {
  window.show();
  QApplication::processEvents();
  const bool saved = window.grab().save(QString::fromStdString(file), "PNG");
  if (!saved) std::fprintf(stderr, "window_shots: cannot write %s\n", file.c_str());
  window.hide();
  return saved;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "Usage: window_shots OUTPUT_DIR\n");
    return 2;
  }
  const std::string dir = argv[1];

  // A first export of a 100-frame scene after two earlier texture paths.
  OptionsDialog record;
  record.endFrame = 100;
  record.texturePathHistory = {".", "textures"};
  OptionsWindow options(record);

  ExportInfoWindow info(
      "WARNING: Object \"Tube01\" cannot be converted to a triangle mesh and is not exported\r\n"
      "ERROR: Two objects have a same name: Box01\r\n"
      "Export process canceled due to error(s) encountered.\r\n");

  SceneExporter exporter;
  AboutBox about(kAboutLine, exporter.CopyrightMessage(), exporter.AuthorName());

  const bool ok = shoot(options, dir + "/options-dialog.png") && shoot(info, dir + "/export-info.png") &&
                  shoot(about, dir + "/about-box.png");
  return ok ? 0 : 2;
}
