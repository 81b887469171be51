// TooltipBackend: the window operations a ToolTip is made of.
//
// ToolTip drives its tooltip window one message at a time through this
// interface, so that what it sends, in which order and with which values
// stays visible in its own code; a toolkit supplies the window. Each
// operation is named after the message it stands for, and the constants
// below are the message and flag numbers the runtime's clients know.
// Handles are pointer-sized integers handed out by the backend; 0 is none.
// Operations on a handle the backend does not know (0, or a destroyed
// window) do nothing. Text arrives as the 8-bit code page bytes the
// classic messages carry.
//
// The process has one current backend. Until a toolkit installs one (the
// Qt adapters do when kestrel_qt is loaded) it is a backend whose windows
// are never created: CreateTooltipWindow returns 0 and the rest is ignored.
//
//   auto previous = kestrel::forms::SetTooltipBackend(std::make_shared<MyBackend>());
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"

namespace kestrel::forms {

using WindowHandle = intptr_t;

namespace tooltip {
// Window style bits.
inline constexpr uint32_t kAlwaysTip = 0x01;  // TTS_ALWAYSTIP
inline constexpr uint32_t kNoPrefix = 0x02;   // TTS_NOPREFIX
inline constexpr uint32_t kBalloon = 0x40;    // TTS_BALLOON
// Tool flags.
inline constexpr uint32_t kIdIsWindow = 0x01;  // TTF_IDISHWND: the tool is a whole window
inline constexpr uint32_t kCenterTip = 0x02;   // TTF_CENTERTIP: centred below the tool
inline constexpr uint32_t kSubclass = 0x10;    // TTF_SUBCLASS: watch the tool's mouse itself
// Delay kinds of SetDelayTime.
inline constexpr int32_t kAutoPop = 2;  // TTDT_AUTOPOP: how long the tip stays up
inline constexpr int32_t kInitial = 3;  // TTDT_INITIAL: rest time before it appears
// The messages, by number.
inline constexpr uint32_t kSetDelayTime = 1027;
inline constexpr uint32_t kAddTool = 1028;
inline constexpr uint32_t kUpdateTipText = 1036;
inline constexpr uint32_t kSetTipBkColor = 1043;
inline constexpr uint32_t kSetTipTextColor = 1044;
inline constexpr uint32_t kSetTitle = 1056;
// Size of the tool record in its first published layout.
inline constexpr uint32_t kToolInfoSize = 44;
}  // namespace tooltip

// The tool record: one tool, here always a whole parent window.
struct ToolInfo {
  uint32_t size = tooltip::kToolInfoSize;
  uint32_t flags = 0;
  WindowHandle window = 0;  // the window the tool lives in
  uintptr_t id = 0;         // with kIdIsWindow: the tool's own window handle
  struct {
    int32_t left = 0, top = 0, right = 0, bottom = 0;
  } rect;                 // unused with kIdIsWindow
  intptr_t instance = 0;  // the module that owns the text resources
  std::string text;       // 8-bit code page bytes
};

class KESTREL_API TooltipBackend {
 public:
  virtual ~TooltipBackend();

  // The control library's one-time initialisation, called by every new ToolTip.
  virtual void InitCommonControls() {}
  // A new tooltip window with the given style bits, at the default place
  // and size, with no owner; 0 when it cannot be created.
  virtual WindowHandle CreateTooltipWindow(uint32_t style) = 0;
  virtual void DestroyWindow(WindowHandle window) = 0;

  // One per message.
  virtual void AddTool(WindowHandle tip, const ToolInfo& tool) = 0;                   // 1028
  virtual void UpdateTipText(WindowHandle tip, const ToolInfo& tool) = 0;             // 1036
  virtual void SetTitle(WindowHandle tip, int32_t icon, std::string_view title) = 0;  // 1056
  virtual void SetTipTextColor(WindowHandle tip, uint32_t bgr) = 0;                   // 1044
  virtual void SetTipBkColor(WindowHandle tip, uint32_t bgr) = 0;                     // 1043
  virtual void SetDelayTime(WindowHandle tip, int32_t which, int32_t ms) = 0;         // 1027
};

// The current backend (never null).
KESTREL_API std::shared_ptr<TooltipBackend> CurrentTooltipBackend();
// Replaces the current backend (null restores the one that creates nothing)
// and returns the previous one. ToolTips keep the backend they were made with.
KESTREL_API std::shared_ptr<TooltipBackend> SetTooltipBackend(
    std::shared_ptr<TooltipBackend> backend);

}  // namespace kestrel::forms
