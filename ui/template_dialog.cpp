#include "ui/template_dialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFontMetrics>
#include <QFontMetricsF>
#include <QGroupBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>

namespace {

// The font the template names where the system has it; otherwise the
// system's own sans serif at the template's size. The layout follows
// whatever font is chosen, since dialog units come from its metrics.
QFont templateFont(const DialogTemplate& t) {
  QFont font(QString::fromStdString(t.fontName), t.fontPoints);
  font.setStyleHint(QFont::SansSerif);
  return font;
}

}  // namespace

TemplateDialog::TemplateDialog(const DialogTemplate& t, QWidget* parent) : QDialog(parent) {
  setFont(templateFont(t));
  setWindowTitle(QString::fromStdString(t.title));
  setWindowFlags(Qt::Dialog | Qt::MSWindowsFixedSizeDialogHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                 Qt::WindowCloseButtonHint);

  std::vector<QGroupBox*> groups;
  std::vector<QWidget*> byIndex(t.controls.size(), nullptr);
  for (std::size_t i = 0; i < t.controls.size(); ++i) {
    const DialogControl& c = t.controls[i];
    if (c.kind == ControlKind::Spinner) continue;  // made with its edit
    const DialogControl* next = i + 1 < t.controls.size() ? &t.controls[i + 1] : nullptr;
    QWidget* widget = makeWidget(c);
    byIndex[i] = widget;
    if (auto* group = qobject_cast<QGroupBox*>(widget)) groups.push_back(group);
    if (c.id != control_id::kNone) controls_[c.id] = widget;
    if (c.kind == ControlKind::NumberEdit && next && next->kind == ControlKind::Spinner) controls_[next->id] = widget;
    if (c.kind == ControlKind::Label) labels_.push_back(widget);
  }
  // Group boxes only frame their controls: below them, so that every click
  // reaches the control.
  for (QGroupBox* group : groups) group->lower();

  // Dialog base units: the average width of the 52 letters and the font's
  // height. A template is fitted to its own font; where another font stands
  // in, whose texts run wider against its average, or whose check marks and
  // number fields are taller, the units grow just enough that every text and
  // field shows whole. The layout keeps the template's proportions.
  const QFontMetricsF metrics(font());
  baseX_ = metrics.horizontalAdvance("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz") / 52.0;
  baseY_ = QFontMetrics(font()).height();
  for (std::size_t i = 0; i < t.controls.size(); ++i) {
    const DialogControl& c = t.controls[i];
    const bool measured = c.kind == ControlKind::CheckBox || c.kind == ControlKind::Label ||
                          c.kind == ControlKind::NumberEdit;
    if (!measured || !byIndex[i] || c.width <= 0 || c.height <= 0) continue;
    const QSize needed = c.kind == ControlKind::NumberEdit ? byIndex[i]->minimumSizeHint() : byIndex[i]->sizeHint();
    if (c.kind != ControlKind::NumberEdit && !(c.kind == ControlKind::Label && c.text.empty()))
      baseX_ = std::max(baseX_, needed.width() * 4.0 / c.width);
    baseY_ = std::max(baseY_, needed.height() * 8.0 / c.height);
  }

  for (std::size_t i = 0; i < t.controls.size(); ++i) {
    const DialogControl& c = t.controls[i];
    if (!byIndex[i]) continue;
    QRect rect(toPixelsX(c.x), toPixelsY(c.y), toPixelsX(c.width), toPixelsY(c.height));
    const DialogControl* next = i + 1 < t.controls.size() ? &t.controls[i + 1] : nullptr;
    if (c.kind == ControlKind::NumberEdit && next && next->kind == ControlKind::Spinner)
      rect.setRight(toPixelsX(next->x + next->width) - 1);
    // A list's template height includes its dropped-down part; the field is
    // as high as the toolkit draws it.
    if (c.kind == ControlKind::DropDownList || c.kind == ControlKind::EditableCombo)
      rect.setHeight(byIndex[i]->sizeHint().height());
    // A check box draws its mark and text centred in its place; taking no
    // more height than that keeps neighbours whose places touch apart.
    if (c.kind == ControlKind::CheckBox && byIndex[i]->sizeHint().height() < rect.height()) {
      const int height = byIndex[i]->sizeHint().height();
      rect = QRect(rect.x(), rect.y() + (rect.height() - height) / 2, rect.width(), height);
    }
    byIndex[i]->setGeometry(rect);
  }
  setFixedSize(toPixelsX(t.width), toPixelsY(t.height));

  // A label's mnemonic moves to the control it names: the number field on
  // its row, or else the next control in the template.
  for (std::size_t i = 0; i < t.controls.size(); ++i) {
    const DialogControl& c = t.controls[i];
    if (c.kind != ControlKind::Label || c.text.find('&') == std::string::npos) continue;
    QWidget* buddy = nullptr;
    for (const DialogControl& other : t.controls)
      if (other.kind == ControlKind::NumberEdit && other.y == c.y) buddy = control(other.id);
    for (std::size_t j = i + 1; !buddy && j < t.controls.size(); ++j)
      if (t.controls[j].id != control_id::kNone) buddy = control(t.controls[j].id);
    static_cast<QLabel*>(byIndex[i])->setBuddy(buddy);
  }
}

QWidget* TemplateDialog::makeWidget(const DialogControl& c) {
  const QString text = QString::fromStdString(c.text);
  QWidget* widget = nullptr;
  switch (c.kind) {
    case ControlKind::DefaultButton:
    case ControlKind::Button: {
      auto* button = new QPushButton(text, this);
      button->setDefault(c.kind == ControlKind::DefaultButton);
      button->setAutoDefault(false);
      widget = button;
      break;
    }
    case ControlKind::Label: {
      auto* label = new QLabel(text, this);
      label->setWordWrap(c.height >= 16);  // room for two lines
      label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
      widget = label;
      break;
    }
    case ControlKind::NumberEdit: {
      auto* number = new QDoubleSpinBox(this);
      number->setKeyboardTracking(false);  // a typed value counts once it is entered
      number->setButtonSymbols(QAbstractSpinBox::UpDownArrows);
      widget = number;
      break;
    }
    case ControlKind::CheckBox: widget = new QCheckBox(text, this); break;
    case ControlKind::DropDownList:
    case ControlKind::EditableCombo: {
      auto* combo = new QComboBox(this);
      combo->setEditable(c.kind == ControlKind::EditableCombo);
      combo->setInsertPolicy(QComboBox::NoInsert);
      combo->setMaxVisibleItems(std::max(1, (c.height - 12) / 8));
      widget = combo;
      break;
    }
    case ControlKind::GroupBox: widget = new QGroupBox(text, this); break;
    case ControlKind::ReadOnlyText: {
      auto* edit = new QPlainTextEdit(this);
      edit->setReadOnly(true);
      edit->setLineWrapMode(QPlainTextEdit::NoWrap);
      edit->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
      edit->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
      widget = edit;
      break;
    }
    case ControlKind::Spinner: break;
  }
  return widget;
}

QWidget* TemplateDialog::control(int id) const {
  const auto found = controls_.find(id);
  return found == controls_.end() ? nullptr : found->second;
}

int TemplateDialog::toPixelsX(int units) const { return static_cast<int>(units * baseX_ / 4.0 + 0.5); }
int TemplateDialog::toPixelsY(int units) const { return static_cast<int>(units * baseY_ / 8.0 + 0.5); }
