#include <gtest/gtest.h>

#include <QApplication>
#include <QEnterEvent>
#include <QPushButton>
#include <QTest>
#include <QToolTip>
#include <memory>

#include "gui_support.hpp"
#include "kestrel/forms/tool_tip.hpp"
#include "kestrel/qt/tip_window.hpp"
#include "kestrel/qt/widgets.hpp"

namespace kestrel::qt {
namespace {

using forms::ToolTip;
using testing::WaitFor;

// A shown window with one button, the tool the tips belong to.
class ToolTipGuiTest : public ::testing::Test {
 protected:
  ToolTipGuiTest() {
    window_->resize(300, 200);
    button_->setGeometry(50, 50, 120, 30);
    window_->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
  }

  TipWindow* Window(const ToolTip& tip) {
    return dynamic_cast<TipWindow*>(WidgetFromHandle(tip.Hwnd()));
  }
  void Enter() {
    QPoint inside(10, 10);
    QEnterEvent enter(inside, button_->mapTo(window_.get(), inside), button_->mapToGlobal(inside));
    QApplication::sendEvent(button_, &enter);
  }
  void Leave() {
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(button_, &leave);
  }

  std::unique_ptr<QWidget> window_ = std::make_unique<QWidget>();
  QPushButton* button_ = new QPushButton("Save", window_.get());
};

TEST_F(ToolTipGuiTest, BalloonAppearsAfterTheDelayAndHidesAfterTheVisibleTime) {
  auto tip = MakeRef<ToolTip>();
  tip->SetStyle(forms::TTBalloon);
  tip->SetCentered(true);
  tip->SetTitle(u"Save");
  tip->SetIcon(forms::TTIconWarning);
  tip->SetTipText(u"Writes the file to disk");
  tip->SetForeColor(0x0000C0);  // dark red, as 0x00BBGGRR
  tip->SetBackColor(0xE0FFFF);  // light yellow
  tip->SetDelayTime(30);
  tip->SetVisibleTime(1500);
  tip->Create(HandleOf(button_));

  TipWindow* w = Window(*tip);
  ASSERT_NE(w, nullptr);
  EXPECT_TRUE(w->balloon());
  EXPECT_EQ(w->tool(), button_);
  Enter();
  EXPECT_FALSE(w->isVisible());  // not before the delay has run
  ASSERT_TRUE(WaitFor([&] { return w->isVisible(); }));
  EXPECT_EQ(w->text(), "Writes the file to disk");
  EXPECT_EQ(w->title(), "Save");
  EXPECT_EQ(w->icon(), forms::TTIconWarning);
  // Centred under the tool.
  QRect tool(button_->mapToGlobal(QPoint(0, 0)), button_->size());
  EXPECT_NEAR(w->geometry().center().x(), tool.center().x(), 1);
  EXPECT_GE(w->geometry().top(), tool.bottom());

  QImage shot = testing::Screenshot(*w, "tooltip_balloon");
  // Background in the bottom padding, clear of text and of the rounding.
  EXPECT_EQ(shot.pixelColor(shot.width() / 2, shot.height() - 3), QColor(0xFF, 0xFF, 0xE0));
  EXPECT_TRUE(testing::HasPixelNear(shot, QColor(0xC0, 0, 0), 40));

  ASSERT_TRUE(WaitFor([&] { return !w->isVisible(); }));
}

TEST_F(ToolTipGuiTest, StandardTipKeepsThePlatformColoursAndHidesOnLeave) {
  auto tip = MakeRef<ToolTip>();
  tip->SetTipText(u"Plain");
  tip->SetDelayTime(10);
  tip->SetVisibleTime(60000);
  tip->Create(HandleOf(button_));
  TipWindow* w = Window(*tip);
  ASSERT_NE(w, nullptr);
  EXPECT_FALSE(w->balloon());

  Enter();
  ASSERT_TRUE(WaitFor([&] { return w->isVisible(); }));
  QImage shot = testing::Screenshot(*w, "tooltip_standard");
  EXPECT_EQ(shot.pixelColor(2, shot.height() - 3),
            QToolTip::palette().color(QPalette::ToolTipBase));
  Leave();
  EXPECT_FALSE(w->isVisible());

  // Live updates reach the window; after Destroy the stale handle is harmless.
  tip->SetTipText(u"Changed");
  EXPECT_EQ(w->text(), "Changed");
  tip->Destroy();
  EXPECT_EQ(WidgetFromHandle(tip->Hwnd()), nullptr);
  tip->SetTipText(u"After");
  tip->SetBackColor(0xFF);
}

}  // namespace
}  // namespace kestrel::qt
