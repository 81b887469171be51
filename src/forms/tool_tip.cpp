#include "kestrel/forms/tool_tip.hpp"

#include <dlfcn.h>

#include <mutex>
#include <utility>

#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel::forms {

TooltipBackend::~TooltipBackend() = default;

namespace {

// Stands in until a toolkit installs a backend: no window is ever made, so
// a ToolTip keeps its fields and its handle stays 0.
class NoWindowBackend final : public TooltipBackend {
 public:
  WindowHandle CreateTooltipWindow(uint32_t) override { return 0; }
  void DestroyWindow(WindowHandle) override {}
  void AddTool(WindowHandle, const ToolInfo&) override {}
  void UpdateTipText(WindowHandle, const ToolInfo&) override {}
  void SetTitle(WindowHandle, int32_t, std::string_view) override {}
  void SetTipTextColor(WindowHandle, uint32_t) override {}
  void SetTipBkColor(WindowHandle, uint32_t) override {}
  void SetDelayTime(WindowHandle, int32_t, int32_t) override {}
};

std::mutex g_backend_mutex;
std::shared_ptr<TooltipBackend>& BackendSlot() {
  static std::shared_ptr<TooltipBackend> backend = std::make_shared<NoWindowBackend>();
  return backend;
}

// The library's own module, the owner of the tool's text resources.
intptr_t ModuleInstance() noexcept {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ModuleInstance), &info) == 0) return 0;
  return reinterpret_cast<intptr_t>(info.dli_fbase);
}

}  // namespace

std::shared_ptr<TooltipBackend> CurrentTooltipBackend() {
  std::lock_guard lock(g_backend_mutex);
  return BackendSlot();
}

std::shared_ptr<TooltipBackend> SetTooltipBackend(std::shared_ptr<TooltipBackend> backend) {
  if (!backend) backend = std::make_shared<NoWindowBackend>();
  std::lock_guard lock(g_backend_mutex);
  return std::exchange(BackendSlot(), std::move(backend));
}

ToolTip::ToolTip() : ToolTip(CurrentTooltipBackend()) {}

ToolTip::ToolTip(std::shared_ptr<TooltipBackend> backend) : backend_(std::move(backend)) {
  if (!backend_) backend_ = CurrentTooltipBackend();
  backend_->InitCommonControls();
}

ToolTip::~ToolTip() {
  // Teardown failures are swallowed: a destructor must not throw.
  try {
    Destroy();
  } catch (...) {
  }
}

bool ToolTip::Create(WindowHandle parent_hwnd) {
  if (window_ != 0) backend_->DestroyWindow(window_);
  parent_ = parent_hwnd;

  uint32_t style = tooltip::kAlwaysTip | tooltip::kNoPrefix;
  if (style_ == TTBalloon) style |= tooltip::kBalloon;
  // Failure (0) is not checked: the messages below then go to no window.
  window_ = backend_->CreateTooltipWindow(style);

  tool_.flags = tooltip::kIdIsWindow | tooltip::kSubclass;
  if (centered_) tool_.flags |= tooltip::kCenterTip;
  tool_.window = parent_hwnd;
  tool_.id = static_cast<uintptr_t>(parent_hwnd);
  tool_.instance = ModuleInstance();
  tool_.text = runtime::ToAnsi(tip_text_);
  tool_.size = tooltip::kToolInfoSize;
  backend_->AddTool(window_, tool_);

  // "Or" here, where the setters use "and": a title without an icon, or an
  // icon without a title, is sent at creation but not re-sent later.
  if (!title_.empty() || icon_ != TTNoIcon)
    backend_->SetTitle(window_, icon_, runtime::ToAnsi(title_));
  if (fore_color_ != 0) backend_->SetTipTextColor(window_, fore_color_);
  if (back_color_ != 0) backend_->SetTipBkColor(window_, back_color_);
  backend_->SetDelayTime(window_, tooltip::kAutoPop, visible_time_);
  backend_->SetDelayTime(window_, tooltip::kInitial, delay_time_);
  // The result was never set; clients must not rely on it.
  return false;
}

void ToolTip::Destroy() {
  // The handle is kept: later setters talk to a window that is gone, which
  // the backend ignores.
  if (window_ != 0) backend_->DestroyWindow(window_);
}

void ToolTip::SendTitle() {
  if (window_ != 0 && !title_.empty() && icon_ != TTNoIcon)
    backend_->SetTitle(window_, icon_, runtime::ToAnsi(title_));
}

void ToolTip::SetIcon(int32_t icon) {
  icon_ = icon;
  SendTitle();
}

void ToolTip::SetTitle(std::u16string_view title) {
  title_ = title;
  SendTitle();
}

void ToolTip::SetForeColor(uint32_t bgr) {
  fore_color_ = bgr;
  if (window_ != 0) backend_->SetTipTextColor(window_, bgr);
}

void ToolTip::SetBackColor(uint32_t bgr) {
  back_color_ = bgr;
  if (window_ != 0) backend_->SetTipBkColor(window_, bgr);
}

void ToolTip::SetTipText(std::u16string_view text) {
  tip_text_ = text;
  tool_.text = runtime::ToAnsi(tip_text_);
  if (window_ != 0) backend_->UpdateTipText(window_, tool_);
}

namespace {
// Colours travel as Longs: 0x00BBGGRR fits, and a negative Long keeps its bits.
uint32_t ColourArg(const Value& v) {
  return static_cast<uint32_t>(runtime::ToLong(v));
}
Value ColourValue(uint32_t bgr) {
  return Value(static_cast<int32_t>(bgr));
}
}  // namespace

const DispatchTable<ToolTip>& ToolTip::Dispatch() {
  using T = DispatchTable<ToolTip>;
  static const T table =
      T::Builder(u"ToolTip")
          .Property(
              u"Style", [](ToolTip& t, Args&) { return Value(t.Style()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetStyle(runtime::ToLong(v)); })
          .Property(
              u"Centered", [](ToolTip& t, Args&) { return Value(t.Centered()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetCentered(runtime::ToBoolean(v)); })
          .Method(u"Create", 1, 1,
                  [](ToolTip& t, Args& a) {
                    return Value(t.Create(static_cast<WindowHandle>(runtime::ToLongLong(a[0]))));
                  })
          .Property(
              u"Icon", [](ToolTip& t, Args&) { return Value(t.Icon()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetIcon(runtime::ToLong(v)); })
          .Property(
              u"ForeColor", [](ToolTip& t, Args&) { return ColourValue(t.ForeColor()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetForeColor(ColourArg(v)); })
          .Property(
              u"Title", [](ToolTip& t, Args&) { return Value(t.Title()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetTitle(runtime::ToText(v)); })
          .Property(
              u"BackColor", [](ToolTip& t, Args&) { return ColourValue(t.BackColor()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetBackColor(ColourArg(v)); })
          .Property(
              u"TipText", [](ToolTip& t, Args&) { return Value(t.TipText()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetTipText(runtime::ToText(v)); })
          .Method(u"Destroy", 0, 0,
                  [](ToolTip& t, Args&) {
                    t.Destroy();
                    return Value();
                  })
          .Property(
              u"VisibleTime", [](ToolTip& t, Args&) { return Value(t.VisibleTime()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetVisibleTime(runtime::ToLong(v)); })
          .Property(
              u"DelayTime", [](ToolTip& t, Args&) { return Value(t.DelayTime()); },
              [](ToolTip& t, Args&, const Value& v) { t.SetDelayTime(runtime::ToLong(v)); })
          .Build();
  return table;
}

KESTREL_REGISTER_CLASS(ToolTip, ToolTip::kQualifiedName, Instancing::kCreatable);

}  // namespace kestrel::forms
