// TipWindow: the tooltip window behind ToolTip when the Qt adapters are the
// backend.
//
// A frameless tooltip window: a title line with the standard information,
// warning or error icon, then the text, in the given colours (0x00BBGGRR; 0
// keeps the palette's tooltip colours). The balloon style is a rounded
// window with a pointer towards the tool; the standard style a plain
// rectangle. The tool is one parent widget: with the subclass flag the window
// watches the parent's events itself, appears once the pointer has rested
// on it for the initial delay (centred under the parent with the centre
// flag, else under the pointer) and hides after the display time, when the
// pointer leaves or on a click.
//
//   auto* tip = dynamic_cast<kestrel::qt::TipWindow*>(
//       kestrel::qt::WidgetFromHandle(toolTip->Hwnd()));
#pragma once

#include <QPainterPath>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QWidget>
#include <cstdint>

#include "kestrel/forms/tooltip_backend.hpp"
#include "kestrel/qt/export.hpp"

namespace kestrel::qt {

class KESTREL_QT_API TipWindow : public QWidget {
 public:
  explicit TipWindow(uint32_t style);
  ~TipWindow() override;

  void AddTool(const forms::ToolInfo& tool);
  void SetToolText(const QString& text);
  void SetTitle(int32_t icon, const QString& title);
  void SetTextColor(uint32_t bgr);
  void SetBackColor(uint32_t bgr);
  void SetDelay(int32_t which, int32_t ms);

  bool balloon() const noexcept { return balloon_; }
  bool centered() const noexcept { return centered_; }
  const QString& text() const noexcept { return text_; }
  const QString& title() const noexcept { return title_; }
  int32_t icon() const noexcept { return icon_; }
  QWidget* tool() const noexcept { return tool_; }
  int initial_delay() const noexcept { return initial_ms_; }
  int visible_time() const noexcept { return autopop_ms_; }

  // Shows the tip at once, as when the initial delay has run out.
  void Popup();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  QColor Foreground() const;
  QColor Background() const;
  void Relayout();
  QPainterPath BalloonPath() const;

  bool balloon_;
  bool centered_ = false;
  QString text_, title_;
  int32_t icon_ = 0;
  uint32_t fore_ = 0, back_ = 0;
  int initial_ms_ = 500, autopop_ms_ = 5000;
  QPointer<QWidget> tool_;
  QTimer show_timer_, hide_timer_;
};

}  // namespace kestrel::qt
