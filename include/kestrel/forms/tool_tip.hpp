// ToolTip: a standard or balloon tooltip, with optional title, icon and
// colours, attached to one window of the client.
//
// The properties are plain fields until Create builds the tooltip window
// for a parent window handle; after that the colour, title, icon and text
// setters update the live window, while Style, Centered, DelayTime and
// VisibleTime wait for the next Create, which replaces the window. Colours
// are 0x00BBGGRR; 0 keeps the toolkit's own colour. The window itself comes
// from the current TooltipBackend (kestrel/forms/tooltip_backend.hpp); with
// the Qt adapters, kestrel::qt::HandleOf(widget) gives the parent handle.
//
// Quirks kept on purpose, since clients written against the runtime rely on
// them or work around them:
//   - Create always returns False, whether or not the window was made.
//   - The Title getter returns the tip text, not the title.
//   - Create sends the title when the title is set OR the icon is; the Icon
//     and Title setters re-send it only when the title is set AND the icon is.
//   - Destroy keeps the stale handle; later setters send to a dead window,
//     which the backend ignores.
//
// Port decisions: window handles (Create's parent, Hwnd, ParentHwnd) are
// pointer-sized (LongLong through late binding); the texts go to the
// backend in the ANSI code page, as the classic messages carry them; the
// tool's module instance is the load address of libkestrel itself
// (dladdr). Not thread-safe.
//
//   auto tip = kestrel::MakeRef<kestrel::forms::ToolTip>();
//   tip->SetTipText(u"Saves the file");  tip->SetStyle(kestrel::forms::TTBalloon);
//   tip->Create(kestrel::qt::HandleOf(button));
//
// Dispatchable with every member above; registered as Kestrel.ToolTip.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kestrel/forms/tooltip_backend.hpp"
#include "kestrel/frame/export.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::forms {

// ttIconType
enum ttIconType : int32_t { TTNoIcon = 0, TTIconInfo = 1, TTIconWarning = 2, TTIconError = 3 };
// ttStyleEnum
enum ttStyleEnum : int32_t { TTStandard = 0, TTBalloon = 1 };

class KESTREL_API ToolTip : public Dispatchable<ToolTip> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.ToolTip";

  // With the process's current backend.
  ToolTip();
  explicit ToolTip(std::shared_ptr<TooltipBackend> backend);
  ~ToolTip() override;
  ToolTip(const ToolTip&) = delete;
  ToolTip& operator=(const ToolTip&) = delete;

  bool Create(WindowHandle parent_hwnd);
  void Destroy();

  int32_t Style() const noexcept { return style_; }
  void SetStyle(int32_t style) noexcept { style_ = style; }
  bool Centered() const noexcept { return centered_; }
  void SetCentered(bool centered) noexcept { centered_ = centered; }
  int32_t Icon() const noexcept { return icon_; }
  void SetIcon(int32_t icon);
  uint32_t ForeColor() const noexcept { return fore_color_; }
  void SetForeColor(uint32_t bgr);
  uint32_t BackColor() const noexcept { return back_color_; }
  void SetBackColor(uint32_t bgr);
  // Returns the tip text (see the banner).
  const std::u16string& Title() const noexcept { return tip_text_; }
  void SetTitle(std::u16string_view title);
  const std::u16string& TipText() const noexcept { return tip_text_; }
  void SetTipText(std::u16string_view text);
  int32_t VisibleTime() const noexcept { return visible_time_; }
  void SetVisibleTime(int32_t ms) noexcept { visible_time_ = ms; }
  int32_t DelayTime() const noexcept { return delay_time_; }
  void SetDelayTime(int32_t ms) noexcept { delay_time_ = ms; }

  // The tooltip window (0 before Create; stale after Destroy) and its parent.
  WindowHandle Hwnd() const noexcept { return window_; }
  WindowHandle ParentHwnd() const noexcept { return parent_; }
  // The tool record as last sent.
  const ToolInfo& Tool() const noexcept { return tool_; }

  static const DispatchTable<ToolTip>& Dispatch();

 private:
  void SendTitle();

  std::shared_ptr<TooltipBackend> backend_;
  uint32_t back_color_ = 0;
  std::u16string title_;
  uint32_t fore_color_ = 0;
  int32_t icon_ = TTNoIcon;
  bool centered_ = false;
  int32_t style_ = TTStandard;
  std::u16string tip_text_;
  int32_t visible_time_ = 5000;
  int32_t delay_time_ = 500;
  WindowHandle window_ = 0;
  WindowHandle parent_ = 0;
  ToolInfo tool_;
};

}  // namespace kestrel::forms
