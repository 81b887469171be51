#include "kestrel/qt/tip_window.hpp"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QStyle>
#include <QToolTip>
#include <memory>

#include "conversions.hpp"
#include "kestrel/forms/events.hpp"
#include "kestrel/qt/widgets.hpp"

namespace kestrel::qt {

namespace {

using detail::FromAnsi;
using detail::FromBgr;

constexpr int kPadding = 6;
constexpr int kIconSize = 16;
constexpr int kRadius = 8;
constexpr int kPointerHeight = 10;  // the balloon's pointer towards the tool

QIcon IconFor(int32_t icon, const QStyle* style) {
  switch (icon) {
    case 1:
      return style->standardIcon(QStyle::SP_MessageBoxInformation);
    case 2:
      return style->standardIcon(QStyle::SP_MessageBoxWarning);
    case 3:
      return style->standardIcon(QStyle::SP_MessageBoxCritical);
    default:
      return {};
  }
}

}  // namespace

TipWindow::TipWindow(uint32_t style)
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint),
      balloon_((style & forms::tooltip::kBalloon) != 0) {
  setAttribute(Qt::WA_ShowWithoutActivating);
  if (balloon_) setAttribute(Qt::WA_TranslucentBackground);
  show_timer_.setSingleShot(true);
  hide_timer_.setSingleShot(true);
  QObject::connect(&show_timer_, &QTimer::timeout, this, [this] { Popup(); });
  QObject::connect(&hide_timer_, &QTimer::timeout, this, [this] { hide(); });
  Relayout();
}

TipWindow::~TipWindow() {
  if (!tool_.isNull()) tool_->removeEventFilter(this);
}

void TipWindow::AddTool(const forms::ToolInfo& tool) {
  if (!tool_.isNull()) tool_->removeEventFilter(this);
  tool_ = WidgetFromHandle(tool.window);
  centered_ = (tool.flags & forms::tooltip::kCenterTip) != 0;
  text_ = FromAnsi(tool.text);
  // Without the subclass flag the client would relay the tool's mouse
  // messages itself; with it, the window watches the tool on its own.
  if (!tool_.isNull() && (tool.flags & forms::tooltip::kSubclass) != 0)
    tool_->installEventFilter(this);
  Relayout();
}

void TipWindow::SetToolText(const QString& text) {
  text_ = text;
  Relayout();
}

void TipWindow::SetTitle(int32_t icon, const QString& title) {
  icon_ = icon;
  title_ = title;
  Relayout();
}

void TipWindow::SetTextColor(uint32_t bgr) {
  fore_ = bgr;
  update();
}

void TipWindow::SetBackColor(uint32_t bgr) {
  back_ = bgr;
  update();
}

void TipWindow::SetDelay(int32_t which, int32_t ms) {
  if (which == forms::tooltip::kAutoPop) autopop_ms_ = ms;
  if (which == forms::tooltip::kInitial) initial_ms_ = ms;
}

QColor TipWindow::Foreground() const {
  return fore_ != 0 ? FromBgr(fore_) : QToolTip::palette().color(QPalette::ToolTipText);
}

QColor TipWindow::Background() const {
  return back_ != 0 ? FromBgr(back_) : QToolTip::palette().color(QPalette::ToolTipBase);
}

void TipWindow::Relayout() {
  QFont bold = font();
  bold.setBold(true);
  QFontMetrics plain(font()), heavy(bold);
  int width = plain.horizontalAdvance(text_);
  int height = plain.height();
  if (!title_.isEmpty() || icon_ != 0) {
    int title_width = heavy.horizontalAdvance(title_) + (icon_ != 0 ? kIconSize + kPadding : 0);
    width = std::max(width, title_width);
    height += std::max(heavy.height(), icon_ != 0 ? kIconSize : 0) + kPadding / 2;
  }
  QSize size(width + 2 * kPadding, height + 2 * kPadding);
  if (balloon_) size += QSize(2 * kPadding, kPointerHeight);
  resize(size);
  // Where the platform can shape windows, the balloon is cut to its outline;
  // elsewhere the corners stay transparent (or the platform's background).
  if (balloon_ && QGuiApplication::platformName() != u"offscreen") {
    setMask(QRegion(BalloonPath().toFillPolygon().toPolygon()));
  }
  update();
}

QPainterPath TipWindow::BalloonPath() const {
  // A rounded body with a pointer on its top edge, up towards the tool.
  QPainterPath path;
  QRectF body(0.5, kPointerHeight + 0.5, width() - 1, height() - kPointerHeight - 1);
  path.addRoundedRect(body, kRadius, kRadius);
  // Centred tips point up from their middle, the others from near the left,
  // where Popup puts the pointer's tip on the mouse position.
  qreal x = centered_ ? width() / 2.0 - 1 : std::min<qreal>(width() / 3.0, 24);
  QPainterPath pointer;
  pointer.moveTo(x, kPointerHeight + 1);
  pointer.lineTo(x + 2, 0.5);
  pointer.lineTo(x + kPointerHeight + 2, kPointerHeight + 1);
  pointer.closeSubpath();
  return path.united(pointer);
}

void TipWindow::Popup() {
  if (tool_.isNull()) return;
  QPoint at;
  if (centered_) {
    QRect r = tool_->rect();
    at = tool_->mapToGlobal(QPoint(r.center().x(), r.bottom() + 1)) - QPoint(width() / 2, 0);
  } else {
    at = QCursor::pos() + QPoint(0, 20);
  }
  if (balloon_ && !centered_) at -= QPoint(std::min(width() / 3, 24), 0);
  move(at);
  show();
  hide_timer_.start(std::max(0, autopop_ms_));
}

bool TipWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == tool_.data()) {
    switch (event->type()) {
      case QEvent::Enter:
        show_timer_.start(std::max(0, initial_ms_));
        break;
      case QEvent::MouseMove:
        // The pointer must rest for the whole delay before the tip appears.
        if (!isVisible()) show_timer_.start(std::max(0, initial_ms_));
        break;
      case QEvent::Leave:
      case QEvent::MouseButtonPress:
      case QEvent::Hide:
        show_timer_.stop();
        hide_timer_.stop();
        hide();
        break;
      default:
        break;
    }
  }
  return QWidget::eventFilter(watched, event);
}

void TipWindow::paintEvent(QPaintEvent*) {
  QPainter p(this);
  QRect body = rect();
  const QColor border = palette().color(QPalette::Shadow);
  if (balloon_) {
    body.setTop(kPointerHeight);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath outline = BalloonPath();
    p.fillPath(outline, Background());
    p.strokePath(outline, QPen(border, 1));
  } else {
    p.fillRect(rect(), Background());
    p.setPen(border);
    p.drawRect(body.adjusted(0, 0, -1, -1));
  }
  p.setPen(Foreground());
  QRect content = body.adjusted(kPadding, kPadding, -kPadding, -kPadding);
  if (balloon_) content.adjust(kPadding, 0, -kPadding, 0);
  int y = content.top();
  if (!title_.isEmpty() || icon_ != 0) {
    int x = content.left();
    QFont bold = font();
    bold.setBold(true);
    QFontMetrics heavy(bold);
    int line = std::max(heavy.height(), icon_ != 0 ? kIconSize : 0);
    if (icon_ != 0) {
      IconFor(icon_, style()).paint(&p, QRect(x, y + (line - kIconSize) / 2, kIconSize, kIconSize));
      x += kIconSize + kPadding;
    }
    p.setFont(bold);
    p.drawText(QRect(x, y, content.right() - x + 1, line), Qt::AlignVCenter | Qt::AlignLeft,
               title_);
    p.setFont(font());
    y += line + kPadding / 2;
  }
  p.drawText(QRect(content.left(), y, content.width(), content.bottom() - y + 1),
             Qt::AlignLeft | Qt::AlignTop, text_);
}

// --- The backend ToolTip talks to ---------------------------------------------------

namespace {

TipWindow* Tip(forms::WindowHandle h) {
  return dynamic_cast<TipWindow*>(WidgetFromHandle(h));
}

class QtTooltipBackend final : public forms::TooltipBackend {
 public:
  forms::WindowHandle CreateTooltipWindow(uint32_t style) override {
    // Without an application object there is no window to make.
    if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) return 0;
    return HandleOf(new TipWindow(style));
  }
  void DestroyWindow(forms::WindowHandle h) override { delete Tip(h); }
  void AddTool(forms::WindowHandle h, const forms::ToolInfo& tool) override {
    if (TipWindow* t = Tip(h)) t->AddTool(tool);
  }
  void UpdateTipText(forms::WindowHandle h, const forms::ToolInfo& tool) override {
    if (TipWindow* t = Tip(h)) t->SetToolText(FromAnsi(tool.text));
  }
  void SetTitle(forms::WindowHandle h, int32_t icon, std::string_view title) override {
    if (TipWindow* t = Tip(h)) t->SetTitle(icon, FromAnsi(title));
  }
  void SetTipTextColor(forms::WindowHandle h, uint32_t bgr) override {
    if (TipWindow* t = Tip(h)) t->SetTextColor(bgr);
  }
  void SetTipBkColor(forms::WindowHandle h, uint32_t bgr) override {
    if (TipWindow* t = Tip(h)) t->SetBackColor(bgr);
  }
  void SetDelayTime(forms::WindowHandle h, int32_t which, int32_t ms) override {
    if (TipWindow* t = Tip(h)) t->SetDelay(which, ms);
  }
};

void PumpEvents() {
  if (QCoreApplication::instance() != nullptr) QCoreApplication::processEvents();
}

// Loading the library makes Qt the toolkit behind the form helpers.
[[maybe_unused]] const bool kInstalled = [] {
  InstallQtBackends();
  return true;
}();

}  // namespace

void InstallQtBackends() {
  forms::SetTooltipBackend(std::make_shared<QtTooltipBackend>());
  forms::SetEventPump(&PumpEvents);
}

}  // namespace kestrel::qt
