// The options dialog's behaviour, apart from any window toolkit: what it
// exchanges with the record and in which order, the four enable rules, the
// seven spinners with their limits and change rules, the two lists, OK and
// Cancel. A toolkit implements DialogControls and forwards its events here.
#pragma once

#include <string>
#include <vector>

class OptionsDialog;

// The window's controls, reached by identifier (control_id).
class DialogControls {
 public:
  virtual bool isChecked(int id) const = 0;
  virtual void setChecked(int id, bool checked) = 0;
  virtual void setEnabled(int id, bool enabled) = 0;
  virtual std::string text(int id) const = 0;
  virtual void setText(int id, const std::string& text) = 0;
  virtual void setWindowTitle(const std::string& title) = 0;
  virtual void addListItem(int id, const std::string& item) = 0;
  virtual void selectListItem(int id, int index) = 0;
  struct Spinner;
  // Creates the spinner (and its edit) with its limits and first value.
  virtual void setupSpinner(const Spinner& spinner, double value) = 0;
  // Shows `value` without a change notification coming back.
  virtual void setSpinnerValue(int spinnerId, double value) = 0;

 protected:
  ~DialogControls() = default;
};

struct DialogControls::Spinner {
  int spinnerId = 0;
  int editId = 0;
  bool isFloat = false;
  double minimum = 0.0;
  double maximum = 0.0;
  double step = 1.0;
  int decimals = 0;  // digits after the point that the step needs
};

class OptionsDialogLogic {
 public:
  // Both must outlive the logic.
  OptionsDialogLogic(OptionsDialog& record, DialogControls& controls);

  // Opening: record into the controls, title, spinners, lists, enable rules.
  void onInitDialog();
  // A click on a check box (only those with a rule do anything).
  void onClicked(int id);
  // A new selection in a list (the interpolation list).
  void onSelectionChanged(int id, int index);
  // A spinner's new value, from the spinner or its edit.
  void onSpinnerChange(int spinnerId, double value);
  // OK: controls back into the record, and the record is to be saved.
  void onOk();

  // The seven spinners in creation order, with the limits `record` gives them.
  static std::vector<DialogControls::Spinner> spinners(const OptionsDialog& record);
  // The check boxes' identifiers in exchange order; kTexturePath marks where
  // the texture path is exchanged.
  static const std::vector<int>& exchangeOrder();
  // The interpolation list's entries, in order.
  static const std::vector<std::string>& interpolationNames();

 private:
  void exchange(bool toControls);
  void loopRule();
  void rescaleRule();
  void interpolationRule(int index);
  void geometryRule();

  OptionsDialog& record_;
  DialogControls& controls_;
};
