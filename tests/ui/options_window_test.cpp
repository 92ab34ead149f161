// The "Export" dialog driven through its real widgets, as a user would: the
// enable rules, the spinner rules, OK and Cancel with the configuration file.
// (An export answered through the dialog: the driver's runner in
// export_driver_test.cpp, whose choices saved are read back by the next run in
// zt2export_tool_test.cpp.)
// Runs on Qt's offscreen platform, so no display is needed.
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest/QTest>
#include <filesystem>

#include "options/dialog_template.h"
#include "options/options_dialog.h"
#include "support/test_support.h"
#include "ui/info_windows.h"
#include "ui/options_window.h"

namespace id = control_id;
using ztx_test::TempDir;

namespace {

// A record as the driver hands it to the dialog: frames 0 to 100.
std::unique_ptr<OptionsDialog> recordIn(const TempDir& dir, int endFrame = 100) {
  auto record = std::make_unique<OptionsDialog>(dir.path().string(), 30);
  record->endFrame = endFrame;
  return record;
}

QCheckBox* box(const OptionsWindow& w, int which) { return static_cast<QCheckBox*>(w.control(which)); }
QDoubleSpinBox* number(const OptionsWindow& w, int which) { return static_cast<QDoubleSpinBox*>(w.control(which)); }

void click(const OptionsWindow& w, int which) {
  QTest::mouseClick(w.control(which), Qt::LeftButton, {}, QPoint(6, w.control(which)->height() / 2));
}

void typeInto(QDoubleSpinBox* spinner, const QString& text) {
  spinner->selectAll();
  QTest::keyClicks(spinner, text);
  QTest::keyClick(spinner, Qt::Key_Enter);
}

}  // namespace

TEST(OptionsWindow, EveryControlOfTheTemplateIsThereAndInsideTheWindow) {
  TempDir dir;
  auto record = recordIn(dir);
  OptionsWindow w(*record);
  w.show();
  for (const DialogControl& c : exportDialogTemplate().controls) {
    if (c.id == id::kNone) continue;
    ASSERT_NE(w.control(c.id), nullptr) << c.id;
    EXPECT_TRUE(w.rect().contains(w.control(c.id)->geometry())) << c.id;
    if (c.kind == ControlKind::CheckBox) {  // the label reads whole
      EXPECT_GE(w.control(c.id)->width(), w.control(c.id)->sizeHint().width()) << c.text;
    }
  }
  for (QWidget* label : w.labels())
    EXPECT_GE(label->width(), label->sizeHint().width()) << static_cast<QLabel*>(label)->text().toStdString();
  // Nothing overlaps but the group boxes' frames.
  std::vector<QWidget*> placed(w.labels());
  for (const DialogControl& c : exportDialogTemplate().controls)
    if (c.id != id::kNone && c.kind != ControlKind::Spinner) placed.push_back(w.control(c.id));
  for (std::size_t i = 0; i < placed.size(); ++i)
    for (std::size_t j = i + 1; j < placed.size(); ++j)
      EXPECT_FALSE(placed[i]->geometry().intersects(placed[j]->geometry()))
          << placed[i]->metaObject()->className() << " " << placed[i]->x() << "," << placed[i]->y() << " and "
          << placed[j]->metaObject()->className() << " " << placed[j]->x() << "," << placed[j]->y();
}

TEST(OptionsWindow, EnableRulesFollowTheirTriggers) {
  TempDir dir;
  auto record = recordIn(dir);  // defaults: loop on, re-scale off, interpolation none, geometry on
  OptionsWindow w(*record);
  w.show();
  struct Rule {
    int trigger;  // a check box, or the interpolation list
    std::vector<int> dependents;
    bool enabledAtFirst;
  };
  const std::vector<Rule> rules = {
      {id::kLoop, {id::kLoopInterpolation, id::kDecreaseEndFrameByOne}, true},
      {id::kRescale, {id::kRescaleSpinner}, false},
      {id::kInterpolation, {id::kMaintainMatrixScaling}, false},
      {id::kGeometry, {id::kSkinning}, true},
  };
  for (const Rule& r : rules) {
    for (int d : r.dependents) EXPECT_EQ(w.control(d)->isEnabled(), r.enabledAtFirst) << d;
    if (r.trigger == id::kInterpolation) {
      auto* list = static_cast<QComboBox*>(w.control(id::kInterpolation));
      QTest::keyClick(list, Qt::Key_Down);  // "Normalized"
      EXPECT_EQ(record->frameToFrameInterpolation, 1);
    } else {
      click(w, r.trigger);
    }
    for (int d : r.dependents) EXPECT_EQ(w.control(d)->isEnabled(), !r.enabledAtFirst) << d;
  }
  // A disabled check box keeps its mark, and OK still exchanges it.
  EXPECT_TRUE(box(w, id::kSkinning)->isChecked());
  click(w, id::kOk);
  EXPECT_EQ(w.result(), QDialog::Accepted);
  EXPECT_EQ(record->exportGeometry, 0);
  EXPECT_EQ(record->exportSkinning, 1);
  EXPECT_EQ(record->loop, 0);
  EXPECT_EQ(record->loopInterpolation, 1);
  EXPECT_EQ(record->rescale, 1);
}

TEST(OptionsWindow, SpinnersKeepTheirLimitsAndTheFramesConsistent) {
  TempDir dir;
  auto record = recordIn(dir, 40);
  record->loopToFrame = 20;
  OptionsWindow w(*record);
  w.show();
  // The frame spinners take 0..end as the driver set it; the fixed limits and
  // steps are the option field table's (OptionFields in options_apply_test.cpp).
  EXPECT_EQ(number(w, id::kStartFrameSpinner)->maximum(), 40);
  EXPECT_EQ(number(w, id::kLoopToFrameSpinner)->maximum(), 40);

  // End frame down to 10: the loop-to frame is pulled into [0, 10].
  typeInto(number(w, id::kEndFrameSpinner), "10");
  EXPECT_EQ(record->endFrame, 10);
  EXPECT_EQ(record->loopToFrame, 10);
  EXPECT_EQ(number(w, id::kLoopToFrameSpinner)->value(), 10);
  // Start frame dragged past the end frame: the end frame moves with it.
  typeInto(number(w, id::kStartFrameSpinner), "30");
  EXPECT_EQ(record->startFrame, 30);
  EXPECT_EQ(record->endFrame, 30);
  EXPECT_EQ(number(w, id::kEndFrameSpinner)->value(), 30);
  EXPECT_EQ(record->loopToFrame, 30);
  // End frame below the start frame: the start frame follows.
  typeInto(number(w, id::kEndFrameSpinner), "5");
  EXPECT_EQ(record->startFrame, 5);
  EXPECT_EQ(number(w, id::kStartFrameSpinner)->value(), 5);
  EXPECT_EQ(record->loopToFrame, 5);
  // The smallest sample rate is 1; an arrow steps by the step.
  typeInto(number(w, id::kSampleRateSpinner), "1");
  QTest::keyClick(number(w, id::kSampleRateSpinner), Qt::Key_Down);
  EXPECT_EQ(record->sampleRate, 1);
  QTest::keyClick(number(w, id::kRotationDeltaSpinner), Qt::Key_Up);
  EXPECT_FLOAT_EQ(record->rotationDelta, 0.0011f);
}

// The list shows the history with the current path in its edit; OK takes the
// typed path and asks for the save (which puts it at the head of the history).
TEST(OptionsWindow, OkTakesTheTypedTexturePathAndAsksForTheSave) {
  TempDir dir;
  auto record = recordIn(dir);
  record->texturePathHistory = {"X", "Y"};
  record->texturePath = "X";
  OptionsWindow w(*record);
  w.show();
  auto* paths = static_cast<QComboBox*>(w.control(id::kTexturePath));
  ASSERT_EQ(paths->count(), 2);
  EXPECT_EQ(paths->currentText(), "X");
  paths->lineEdit()->selectAll();
  QTest::keyClicks(paths->lineEdit(), "textures");
  click(w, id::kOk);
  EXPECT_EQ(w.result(), QDialog::Accepted);
  EXPECT_TRUE(record->saveOnClose);
  EXPECT_EQ(record->texturePath, "textures");
}

TEST(OptionsWindow, CancelSavesNothingAndLeavesTheExchangedFields) {
  TempDir dir;
  auto record = recordIn(dir);
  {
    OptionsWindow w(*record);
    w.show();
    click(w, id::kGeometry);
    static_cast<QComboBox*>(w.control(id::kTexturePath))->setEditText("elsewhere");
    click(w, id::kCancel);
    EXPECT_EQ(w.result(), QDialog::Rejected);
  }
  EXPECT_FALSE(record->saveOnClose);
  EXPECT_EQ(record->exportGeometry, 1);
  EXPECT_EQ(record->texturePath, ".");
  record.reset();
  EXPECT_FALSE(std::filesystem::exists(dir.file(kOptionsFileName)));
}

TEST(InfoWindows, ExportInfoShowsTheTextReadOnly) {
  ExportInfoWindow info("ERROR: one\r\nExport process canceled due to error(s) encountered.\r\n");
  auto* text = static_cast<QPlainTextEdit*>(info.control(id::kExportInfoText));
  EXPECT_TRUE(text->isReadOnly());
  EXPECT_EQ(text->toPlainText(), "ERROR: one\nExport process canceled due to error(s) encountered.");
  EXPECT_EQ(info.windowTitle(), "Export Info");
}

int main(int argc, char** argv) {
  // The offscreen platform: the tests need no display, in CI or anywhere.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
