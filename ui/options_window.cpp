#include "ui/options_window.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QPushButton>
#include <QSignalBlocker>

#include "options/dialog_template.h"

namespace id = control_id;

OptionsWindow::OptionsWindow(OptionsDialog& record, QWidget* parent)
    : TemplateDialog(exportDialogTemplate(), parent), logic_(std::make_unique<OptionsDialogLogic>(record, static_cast<DialogControls&>(*this))) {
  logic_->onInitDialog();

  // Events reach the logic only once the window holds the record's values.
  for (const DialogControl& c : exportDialogTemplate().controls) {
    QWidget* widget = control(c.id);
    if (auto* box = qobject_cast<QCheckBox*>(widget))
      connect(box, &QCheckBox::clicked, this, [this, which = c.id] { logic_->onClicked(which); });
    if (c.kind == ControlKind::Spinner)
      connect(static_cast<QDoubleSpinBox*>(widget), &QDoubleSpinBox::valueChanged, this,
              [this, which = c.id](double value) { logic_->onSpinnerChange(which, value); });
  }
  connect(static_cast<QComboBox*>(control(id::kInterpolation)), &QComboBox::currentIndexChanged, this,
          [this](int index) { logic_->onSelectionChanged(id::kInterpolation, index); });
  connect(static_cast<QPushButton*>(control(id::kOk)), &QPushButton::clicked, this, &QDialog::accept);
  connect(static_cast<QPushButton*>(control(id::kCancel)), &QPushButton::clicked, this, &QDialog::reject);
}

OptionsWindow::~OptionsWindow() = default;

void OptionsWindow::accept() {
  logic_->onOk();
  QDialog::accept();
}

bool OptionsWindow::isChecked(int which) const {
  const auto* box = qobject_cast<QCheckBox*>(control(which));
  return box && box->checkState() == Qt::Checked;
}

void OptionsWindow::setChecked(int which, bool checked) {
  if (auto* box = qobject_cast<QCheckBox*>(control(which))) box->setChecked(checked);
}

void OptionsWindow::setEnabled(int which, bool enabled) {
  if (QWidget* widget = control(which)) widget->setEnabled(enabled);
}

std::string OptionsWindow::text(int which) const {
  if (const auto* combo = qobject_cast<QComboBox*>(control(which))) return combo->currentText().toStdString();
  return {};
}

void OptionsWindow::setText(int which, const std::string& text) {
  if (auto* combo = qobject_cast<QComboBox*>(control(which)); combo && combo->isEditable())
    combo->setEditText(QString::fromStdString(text));
}

void OptionsWindow::setWindowTitle(const std::string& title) { QWidget::setWindowTitle(QString::fromStdString(title)); }

void OptionsWindow::addListItem(int which, const std::string& item) {
  auto* combo = qobject_cast<QComboBox*>(control(which));
  if (!combo) return;
  // Adding to an editable list must not replace the text already shown.
  const QString shown = combo->currentText();
  combo->addItem(QString::fromStdString(item));
  if (combo->isEditable()) combo->setEditText(shown);
}

void OptionsWindow::selectListItem(int which, int index) {
  if (auto* combo = qobject_cast<QComboBox*>(control(which))) combo->setCurrentIndex(index);
}

void OptionsWindow::setupSpinner(const Spinner& spinner, double value) {
  auto* number = static_cast<QDoubleSpinBox*>(control(spinner.spinnerId));
  const QSignalBlocker quiet(number);
  number->setDecimals(spinner.decimals);
  number->setRange(spinner.minimum, spinner.maximum);
  number->setSingleStep(spinner.step);
  number->setValue(value);
}

void OptionsWindow::setSpinnerValue(int spinnerId, double value) {
  auto* number = static_cast<QDoubleSpinBox*>(control(spinnerId));
  const QSignalBlocker quiet(number);
  number->setValue(value);
}
