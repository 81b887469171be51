// A resizable dialog built with the form helpers: a centred title, a text
// box that stretches with the window, OK and Cancel buttons anchored to the
// bottom-right corner, balloon tooltips on both buttons, and the resize grip
// in the corner.
//
//   forms_demo                      opens the window (needs a desktop)
//   forms_demo --screenshots DIR    renders it before and after a simulated
//                                   drag of the grip into DIR/forms_demo_before.png
//                                   and DIR/forms_demo_after.png, then exits
//                                   (works on QT_QPA_PLATFORM=offscreen)
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QWidget>
#include <cstdio>
#include <cstring>

#include "kestrel/forms/form_resizer.hpp"
#include "kestrel/forms/tool_tip.hpp"
#include "kestrel/qt/tip_window.hpp"
#include "kestrel/qt/widgets.hpp"

using namespace kestrel;
using namespace kestrel::forms;

namespace {

Ref<ToolTip> BalloonTip(QWidget* tool, std::u16string_view title, std::u16string_view text) {
  auto tip = MakeRef<ToolTip>();
  tip->SetStyle(TTBalloon);
  tip->SetCentered(true);
  tip->SetIcon(TTIconInfo);
  tip->SetTitle(title);
  tip->SetTipText(text);
  tip->Create(qt::HandleOf(tool));
  return tip;
}

// What a user's drag does: press on the grip, move, release.
void DragGrip(QWidget* grip, QPoint by) {
  const QPointF start(4, 4);
  auto send = [&](QEvent::Type type, QPointF at, Qt::MouseButton button, Qt::MouseButtons held) {
    QMouseEvent e(type, at, grip->mapToGlobal(at), button, held, Qt::NoModifier);
    QApplication::sendEvent(grip, &e);
  };
  send(QEvent::MouseButtonPress, start, Qt::LeftButton, Qt::LeftButton);
  send(QEvent::MouseMove, start + by, Qt::NoButton, Qt::LeftButton);
  // The grip has followed the pointer: the release is where the press was.
  send(QEvent::MouseButtonRelease, start, Qt::LeftButton, Qt::NoButton);
}

// The window with a tip drawn over it where it stands on the screen, on a
// canvas large enough for both (the tip may hang below the window).
QImage WithTip(QWidget& window, qt::TipWindow* tip) {
  QImage form = window.grab().toImage();
  if (tip == nullptr || !tip->isVisible()) return form;
  const QPoint at = window.mapFromGlobal(tip->pos());
  QRect canvas = QRect(QPoint(0, 0), form.size()).united(QRect(at, tip->size()));
  QImage image(canvas.size(), QImage::Format_ARGB32);
  image.fill(Qt::white);
  QPainter p(&image);
  p.drawImage(-canvas.topLeft(), form);
  p.drawPixmap(at - canvas.topLeft(), tip->grab());
  return image;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  const char* shots = nullptr;
  for (int i = 1; i + 1 < argc; ++i)
    if (std::strcmp(argv[i], "--screenshots") == 0) shots = argv[i + 1];

  QWidget dialog;
  dialog.setObjectName("ReportDialog");
  dialog.setWindowTitle("Save report");
  dialog.resize(360, 220);
  auto* title = new QLabel("Notes for the report", &dialog);
  title->setObjectName("Title");
  title->adjustSize();
  title->move((360 - title->width()) / 2, 12);
  auto* notes = new QPlainTextEdit(&dialog);
  notes->setObjectName("Notes");
  notes->setPlainText("Quarterly figures attached.\nDrag the grip in the corner to resize.");
  notes->setGeometry(12, 40, 336, 120);
  auto* ok = new QPushButton("OK", &dialog);
  ok->setObjectName("OK");
  ok->setGeometry(188, 176, 76, 30);
  auto* cancel = new QPushButton("Cancel", &dialog);
  cancel->setObjectName("Cancel");
  cancel->setGeometry(272, 176, 76, 30);
  QObject::connect(ok, &QPushButton::clicked, &dialog, &QWidget::close);
  QObject::connect(cancel, &QPushButton::clicked, &dialog, &QWidget::close);

  dialog.show();
  auto resizer = MakeRef<FormResizer>();
  resizer->Attach(qt::AdapterFor(&dialog));
  resizer->Anchor(Value(u"Title"))->SetAnchorStyle(AnchorStyleTop + AnchorStyleCenterHorizontally);
  resizer->Anchor(Value(u"Notes"))
      ->SetAnchorStyle(AnchorStyleTop + AnchorStyleBottom + AnchorStyleLeft + AnchorStyleRight);
  resizer->Anchor(Value(u"OK"))->SetAnchorStyle(AnchorStyleBottom + AnchorStyleRight);
  resizer->Anchor(Value(u"Cancel"))->SetAnchorStyle(AnchorStyleBottom + AnchorStyleRight);
  resizer->SetMaximumWidth(600);
  resizer->SetMaximumHeight(400);
  Ref<ToolTip> ok_tip = BalloonTip(ok, u"OK", u"Saves the report and closes");
  Ref<ToolTip> cancel_tip = BalloonTip(cancel, u"Cancel", u"Closes without saving");

  if (shots == nullptr) return app.exec();

  QApplication::processEvents();
  QDir().mkpath(shots);
  const QString dir = QString::fromLocal8Bit(shots);
  bool saved = dialog.grab().save(dir + "/forms_demo_before.png");
  DragGrip(dialog.findChild<QWidget*>("ResizeHandle"), QPoint(160, 90));
  auto* tip = dynamic_cast<qt::TipWindow*>(qt::WidgetFromHandle(ok_tip->Hwnd()));
  if (tip != nullptr) tip->Popup();
  QApplication::processEvents();
  saved = WithTip(dialog, tip).save(dir + "/forms_demo_after.png") && saved;
  std::printf("forms_demo: %dx%d after the drag; screenshots in %s\n", dialog.width(),
              dialog.height(), shots);
  return saved ? 0 : 1;
}
