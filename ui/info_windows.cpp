#include "ui/info_windows.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>

ExportInfoWindow::ExportInfoWindow(const std::string& text, QWidget* parent)
    : TemplateDialog(exportInfoTemplate(), parent) {
  QString shown = QString::fromStdString(text);
  shown.replace("\r\n", "\n");
  if (shown.endsWith('\n')) shown.chop(1);  // no empty last line to scroll to
  static_cast<QPlainTextEdit*>(control(control_id::kExportInfoText))->setPlainText(shown);
  connect(static_cast<QPushButton*>(control(control_id::kOk)), &QPushButton::clicked, this, &QDialog::accept);
}

AboutBox::AboutBox(const std::string& title, const std::string& copyright, const std::string& authors,
                   QWidget* parent)
    : TemplateDialog(aboutBoxTemplate(), parent) {
  const std::string lines[] = {title, copyright, authors};
  for (std::size_t i = 0; i < labels().size() && i < 3; ++i)
    static_cast<QLabel*>(labels()[i])->setText(QString::fromStdString(lines[i]));
  connect(static_cast<QPushButton*>(control(control_id::kOk)), &QPushButton::clicked, this, &QDialog::accept);
}
