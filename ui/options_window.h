// The "Export" options dialog: the template's widgets driven by the dialog
// logic, which edits the record.
#pragma once

#include <memory>

#include "options/options_dialog_logic.h"
#include "ui/template_dialog.h"

class OptionsWindow : public TemplateDialog, private DialogControls {
 public:
  // Opens on `record`, which must outlive the window.
  explicit OptionsWindow(OptionsDialog& record, QWidget* parent = nullptr);
  ~OptionsWindow() override;

  void accept() override;

 private:
  bool isChecked(int id) const override;
  void setChecked(int id, bool checked) override;
  void setEnabled(int id, bool enabled) override;
  std::string text(int id) const override;
  void setText(int id, const std::string& text) override;
  void setWindowTitle(const std::string& title) override;
  void addListItem(int id, const std::string& item) override;
  void selectListItem(int id, int index) override;
  void setupSpinner(const Spinner& spinner, double value) override;
  void setSpinnerValue(int spinnerId, double value) override;

  std::unique_ptr<OptionsDialogLogic> logic_;
};
