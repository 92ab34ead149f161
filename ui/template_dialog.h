// A modal window laid out from a dialog template: dialog units turned into
// pixels by the font's metrics, one widget per control (a spinner and its
// edit become one number field with arrows), reached by identifier.
#pragma once

#include <QDialog>
#include <map>
#include <vector>

#include "options/dialog_template.h"

class QAbstractButton;

class TemplateDialog : public QDialog {
 public:
  explicit TemplateDialog(const DialogTemplate& dialogTemplate, QWidget* parent = nullptr);

  // The widget of control `id`; both halves of a spinner answer the same
  // number field. None for an unknown id.
  QWidget* control(int id) const;
  // The labels without identifier, in template order.
  const std::vector<QWidget*>& labels() const { return labels_; }
  // Pixels for dialog units across and down.
  int toPixelsX(int units) const;
  int toPixelsY(int units) const;

 private:
  QWidget* makeWidget(const DialogControl& c);

  double baseX_ = 1.0;  // pixels per 4 units across
  double baseY_ = 1.0;  // pixels per 8 units down
  std::map<int, QWidget*> controls_;
  std::vector<QWidget*> labels_;
};
