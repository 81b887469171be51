#include <gtest/gtest.h>

#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QWidget>
#include <memory>

#include "gui_support.hpp"
#include "kestrel/forms/form_resizer.hpp"
#include "kestrel/qt/widgets.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/utilities/utilities.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::qt {
namespace {

using forms::FormResizer;

// A shown 400 x 300 pixel form (300 x 225 points at 96 dpi) with one
// control per anchor style of interest.
class FormResizerGuiTest : public ::testing::Test {
 protected:
  struct Control {
    const char* name;
    int32_t style;
    QRect before, after;  // pixels, after a drag of (+40, +30) pixels
  };
  static constexpr Control kControls[] = {
      {"TopLeft", 5, {10, 10, 50, 20}, {10, 10, 50, 20}},
      {"Stretch", 15, {10, 40, 200, 100}, {10, 40, 240, 130}},
      {"Bottom", 6, {10, 200, 50, 20}, {10, 230, 50, 20}},
      {"Right", 9, {300, 10, 60, 20}, {340, 10, 60, 20}},
      {"BottomRight", 10, {300, 250, 80, 30}, {340, 280, 80, 30}},
      {"Centre", 24, {150, 160, 100, 20}, {170, 160, 100, 20}},
  };

  FormResizerGuiTest() {
    form_->setObjectName("Form");
    form_->resize(400, 300);
    for (const Control& c : kControls) {
      auto* w = new QLineEdit(form_.get());
      w->setObjectName(c.name);
      w->setGeometry(c.before);
    }
    form_->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(form_.get()));
  }

  void Attach() {
    resizer_->Attach(AdapterFor(form_.get()));
    for (const Control& c : kControls)
      resizer_->Anchor(Value(QString(c.name).toStdU16String()))->SetAnchorStyle(c.style);
  }
  QLabel* Grip() { return form_->findChild<QLabel*>("ResizeHandle"); }
  QWidget* Child(const char* name) { return form_->findChild<QWidget*>(name); }

  // A left-button drag of the grip by (dx, dy) pixels in `steps` moves.
  void Drag(int dx, int dy, bool release = true, int steps = 2) {
    QLabel* grip = Grip();
    const QPoint start(4, 4);
    QTest::mousePress(grip, Qt::LeftButton, {}, start);
    QPoint moved;
    for (int i = 1; i <= steps; ++i) {
      QPoint target(dx * i / steps, dy * i / steps);
      // The pointer is where it would be; the grip has followed it so far.
      QTest::mouseMove(grip, start + target - moved);
      moved = target;
    }
    if (release) QTest::mouseRelease(grip, Qt::LeftButton, {}, start);
  }

  std::unique_ptr<QWidget> form_ = std::make_unique<QWidget>();
  Ref<FormResizer> resizer_ = MakeRef<FormResizer>();
};

TEST_F(FormResizerGuiTest, GripDragMovesAndStretchesByAnchorStyle) {
  Attach();
  QLabel* grip = Grip();
  ASSERT_NE(grip, nullptr);
  EXPECT_EQ(grip->cursor().shape(), Qt::SizeFDiagCursor);
  EXPECT_EQ(grip->font().family(), "Marlett");
  EXPECT_EQ(grip->geometry().bottomRight(), QPoint(399, 299));
  testing::Screenshot(*form_, "form_resizer_before");

  Drag(40, 30);
  EXPECT_EQ(form_->size(), QSize(440, 330));
  EXPECT_EQ(grip->geometry().bottomRight(), QPoint(439, 329));
  for (const Control& c : kControls) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Child(c.name)->geometry(), c.after);
  }
  testing::Screenshot(*form_, "form_resizer_after");

  // Back again: the recorded margins bring every control home.
  Drag(-40, -30);
  for (const Control& c : kControls) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Child(c.name)->geometry(), c.before);
  }

  // Without updates whilst dragging, controls wait for the release.
  resizer_->SetUpdateWhilstDragging(false);
  Drag(40, 30, /*release=*/false);
  EXPECT_EQ(form_->size(), QSize(440, 330));
  EXPECT_EQ(Child("Right")->geometry(), QRect(300, 10, 60, 20));
  resizer_->Update();  // ignored during the drag
  EXPECT_EQ(Child("Right")->geometry(), QRect(300, 10, 60, 20));
  QTest::mouseRelease(Grip(), Qt::LeftButton, {}, QPoint(4, 4));
  EXPECT_EQ(Child("Right")->geometry(), QRect(340, 10, 60, 20));
}

TEST_F(FormResizerGuiTest, DragStaysWithinTheBounds) {
  // The bounds apply to the outer size, window frame included.
  auto outer = [&] { return form_->frameGeometry().size(); };
  const QSize initial = outer();
  Attach();
  Drag(-100, -100);  // the minimum is the size at Attach
  EXPECT_EQ(outer(), initial);
  resizer_->SetMaximumWidth(450 * 0.75f);
  resizer_->SetMaximumHeight(320 * 0.75f);
  Drag(200, 200);
  EXPECT_EQ(outer(), QSize(450, 320));
  resizer_->SetMaximumWidth(0);  // no limit
  Drag(200, 0);
  EXPECT_EQ(outer(), QSize(650, 320));
}

TEST_F(FormResizerGuiTest, NamesAndErrors) {
  Attach();
  // The grip's name is taken now.
  Value controls = CallByName(AdapterFor(form_.get()), u"Controls", CallKind::kGet);
  EXPECT_RAISES(CallByName(controls, u"Add", CallKind::kMethod,
                           {Value(u"Forms.Label.1"), Value(u"ResizeHandle"), Value(true)}),
                errors::kDuplicateKey);
  // Two widgets named alike: registering the form fails on the second.
  auto* twin = new QLabel(form_.get());
  twin->setObjectName("Stretch");
  EXPECT_RAISES(resizer_->SetForm(AdapterFor(form_.get())), errors::kDuplicateKey);

  resizer_->Detach();
  EXPECT_EQ(Grip(), nullptr);
}

TEST_F(FormResizerGuiTest, ControlStateHelpersWorkOnTheAdapters) {
  auto* frame = new QGroupBox(form_.get());
  auto* inner = new QPushButton(frame);
  frame->show();
  Value button = AdapterFor(inner), form = AdapterFor(form_.get());
  EXPECT_TRUE(runtime::IsSameObject(button, AdapterFor(inner)));
  EXPECT_TRUE(
      runtime::IsSameObject(CallByName(AdapterFor(frame), u"Parent", CallKind::kGet), form));
  const struct {
    const char* what;
    bool frame_visible, frame_enabled;
    bool want_visible, want_enabled;
  } cases[] = {
      {"all shown and enabled", true, true, true, true},
      {"frame hidden", false, true, false, true},
      {"frame disabled", true, false, true, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    frame->setVisible(c.frame_visible);
    frame->setEnabled(c.frame_enabled);
    EXPECT_EQ(utilities::IsControlVisible(button), c.want_visible);
    EXPECT_EQ(utilities::IsControlEnabled(button), c.want_enabled);
    // Stopping below the frame: only the button's own state counts.
    EXPECT_TRUE(utilities::IsControlVisible(button, AdapterFor(frame)));
  }
}

}  // namespace
}  // namespace kestrel::qt
