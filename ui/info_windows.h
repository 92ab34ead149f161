// The "Export Info" window and the about box, laid out from their templates.
#pragma once

#include <string>

#include "ui/template_dialog.h"

class ExportInfoWindow : public TemplateDialog {
 public:
  // `text` has "\r\n" line ends; it goes into the text field in one piece.
  explicit ExportInfoWindow(const std::string& text, QWidget* parent = nullptr);
};

class AboutBox : public TemplateDialog {
 public:
  AboutBox(const std::string& title, const std::string& copyright, const std::string& authors,
           QWidget* parent = nullptr);
};
