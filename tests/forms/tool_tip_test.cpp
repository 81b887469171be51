#include "kestrel/forms/tool_tip.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel::forms {
namespace {

// Writes down every window operation, one line each, in the order sent.
class RecordingBackend : public TooltipBackend {
 public:
  std::vector<std::string> log;
  WindowHandle next = 100;

  WindowHandle CreateTooltipWindow(uint32_t style) override {
    log.push_back("create style=" + std::to_string(style) + " -> " + std::to_string(next));
    return next++;
  }
  void DestroyWindow(WindowHandle w) override { Add("destroy", w); }
  void AddTool(WindowHandle w, const ToolInfo& t) override {
    Add("addtool", w, t.size, t.flags, t.window, "text=" + t.text);
    EXPECT_EQ(t.id, static_cast<uintptr_t>(t.window));
    EXPECT_NE(t.instance, 0);
  }
  void UpdateTipText(WindowHandle w, const ToolInfo& t) override {
    Add("updatetext", w, "text=" + t.text);
  }
  void SetTitle(WindowHandle w, int32_t icon, std::string_view title) override {
    Add("title", w, icon, "text=" + std::string(title));
  }
  void SetTipTextColor(WindowHandle w, uint32_t bgr) override { Add("textcolor", w, bgr); }
  void SetTipBkColor(WindowHandle w, uint32_t bgr) override { Add("bkcolor", w, bgr); }
  void SetDelayTime(WindowHandle w, int32_t which, int32_t ms) override {
    Add("delay", w, which, ms);
  }

 private:
  static std::string Str(const std::string& s) { return s; }
  template <class N>
  static std::string Str(N n) {
    return std::to_string(n);
  }
  template <class... A>
  void Add(const char* op, A... a) {
    std::string line = op;
    ((line += " " + Str(a)), ...);
    log.push_back(line);
  }
};

class ToolTipTest : public ::testing::Test {
 protected:
  std::shared_ptr<RecordingBackend> backend_ = std::make_shared<RecordingBackend>();
  Ref<ToolTip> tip_ = MakeRef<ToolTip>(backend_);
  using Log = std::vector<std::string>;
};

TEST_F(ToolTipTest, CreateSendsTheMessagesInOrder) {
  const struct {
    const char* what;
    int32_t style;
    bool centered;
    std::u16string title;
    int32_t icon;
    uint32_t fore, back;
    Log want;
  } cases[] = {
      // clang-format off
      {"plain: no title, platform colours", TTStandard, false, u"", TTNoIcon, 0, 0,
       {"create style=3 -> 100", "addtool 100 44 17 7 text=Tip", "delay 100 2 5000",
        "delay 100 3 500"}},
      {"balloon, centred, title without icon, both colours", TTBalloon, true, u"Title",
       TTNoIcon, 0x0000FF, 0xFFEEDD,
       {"create style=67 -> 100", "addtool 100 44 19 7 text=Tip", "title 100 0 text=Title",
        "textcolor 100 255", "bkcolor 100 16772829", "delay 100 2 5000", "delay 100 3 500"}},
      {"icon without title still sends the title", TTStandard, false, u"", TTIconError, 0, 0x10,
       {"create style=3 -> 100", "addtool 100 44 17 7 text=Tip", "title 100 3 text=",
        "bkcolor 100 16", "delay 100 2 5000", "delay 100 3 500"}},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto backend = std::make_shared<RecordingBackend>();
    auto tip = MakeRef<ToolTip>(backend);
    tip->SetStyle(c.style);
    tip->SetCentered(c.centered);
    tip->SetTitle(c.title);
    tip->SetIcon(c.icon);
    tip->SetForeColor(c.fore);
    tip->SetBackColor(c.back);
    tip->SetTipText(u"Tip");
    EXPECT_FALSE(tip->Create(7));
    EXPECT_EQ(backend->log, c.want);
  }
}

TEST_F(ToolTipTest, SettersUpdateTheLiveWindow) {
  tip_->SetTitle(u"a");
  tip_->SetForeColor(0);
  EXPECT_TRUE(backend_->log.empty());  // no window yet: nothing is sent
  tip_->Create(7);
  backend_->log.clear();

  tip_->SetTitle(u"b");  // icon 0: the setters' "and" sends nothing
  tip_->SetIcon(TTIconWarning);
  tip_->SetTitle(u"c");
  tip_->SetForeColor(0);  // 0 is still sent once the window exists
  tip_->SetBackColor(0x123456);
  tip_->SetTipText(u"caf\u00e9 \u03a9");  // as 8-bit code page bytes: Omega is lost
  tip_->SetStyle(TTBalloon);              // waits for the next Create
  tip_->SetDelayTime(10);
  EXPECT_EQ(backend_->log, (Log{"title 100 2 text=b", "title 100 2 text=c", "textcolor 100 0",
                                "bkcolor 100 1193046", "updatetext 100 text=caf\xe9 ?"}));
  EXPECT_EQ(tip_->Title(), u"caf\u00e9 \u03a9");  // the getter returns the tip text

  // A second Create replaces the window with the new style and delay.
  backend_->log.clear();
  tip_->Create(8);
  EXPECT_EQ(backend_->log.front(), "destroy 100");
  EXPECT_EQ(backend_->log[1], "create style=67 -> 101");
  EXPECT_EQ(backend_->log.back(), "delay 101 3 10");
}

TEST_F(ToolTipTest, DestroyKeepsTheStaleHandle) {
  tip_->Create(7);
  backend_->log.clear();
  tip_->Destroy();
  EXPECT_EQ(tip_->Hwnd(), 100);
  tip_->SetForeColor(5);
  tip_->Destroy();
  EXPECT_EQ(backend_->log, (Log{"destroy 100", "textcolor 100 5", "destroy 100"}));
  tip_ = nullptr;  // teardown destroys once more
  EXPECT_EQ(backend_->log.back(), "destroy 100");
  EXPECT_EQ(backend_->log.size(), 4u);
}

TEST(ToolTipLateBound, MembersByName) {
  auto backend = std::make_shared<RecordingBackend>();
  auto previous = SetTooltipBackend(backend);
  Ref<Object> tip = CreateObject(u"Kestrel.ToolTip");
  SetTooltipBackend(previous);
  CallByName(tip, u"Title", CallKind::kLet, {Value(u"a")});
  CallByName(tip, u"TipText", CallKind::kLet, {Value(u"b")});
  EXPECT_EQ(CallByName(tip, u"Title", CallKind::kGet).string(), u"b");
  Value created = CallByName(tip, u"Create", CallKind::kMethod, {Value(int64_t{1} << 40)});
  EXPECT_FALSE(runtime::ToBoolean(created));
  ASSERT_EQ(backend->log.size(), 5u);
  // A 64-bit parent handle survives.
  EXPECT_EQ(backend->log[1], "addtool 100 44 17 " + std::to_string(int64_t{1} << 40) + " text=b");
}

}  // namespace
}  // namespace kestrel::forms
