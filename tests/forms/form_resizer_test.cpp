#include "kestrel/forms/form_resizer.hpp"

#include <gtest/gtest.h>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/registry.hpp"
#include "late_bound_form.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::forms {
namespace {

using testing::FakeControl;
using testing::FakeForm;

struct Geometry {
  float left, top, width, height;
};

void ExpectGeometry(FakeControl& c, Geometry want) {
  EXPECT_FLOAT_EQ(c.Number(u"Left"), want.left);
  EXPECT_FLOAT_EQ(c.Number(u"Top"), want.top);
  EXPECT_FLOAT_EQ(c.Number(u"Width"), want.width);
  EXPECT_FLOAT_EQ(c.Number(u"Height"), want.height);
}

// A 300 x 200 form (inside 296 x 180) with one control "C" at (20, 30),
// 100 x 40: its bottom margin is 110 and its right margin 176.
class FormResizerTest : public ::testing::Test {
 protected:
  FormResizerTest() { Reset(); }
  void Reset() {
    form_ = MakeRef<FakeForm>(300, 200);
    form_->Add(u"C", 20, 30, 100, 40);
    resizer_ = MakeRef<FormResizer>();
    resizer_->Attach(Value(form_));
  }
  FakeControl& Control() { return *form_->controls->Find(u"C"); }
  FakeControl& Grip() { return *form_->controls->Find(FormResizer::kGripName); }
  // A left-button drag of the grip by (dx, dy), released when `release`.
  void Drag(float dx, float dy, bool release = true, int16_t button = 1) {
    Grip().Mouse(u"MouseDown", button, 5, 5);
    Grip().Mouse(u"MouseMove", button, 5 + dx, 5 + dy);
    if (release) Grip().Mouse(u"MouseUp", button, 5 + dx, 5 + dy);
  }

  Ref<FakeForm> form_;
  Ref<FormResizer> resizer_;
};

TEST_F(FormResizerTest, AttachRegistersControlsAndSetsUpTheGrip) {
  Ref<Anchor> a = resizer_->Anchor(Value(u"c"));
  ASSERT_TRUE(a);
  EXPECT_EQ(a->AnchorStyle(), AnchorStyleTop + AnchorStyleLeft);
  EXPECT_EQ(a->MinimumWidth(), 100);
  EXPECT_EQ(a->MinimumHeight(), 40);
  EXPECT_EQ(a->MinimumLeft(), 0);
  EXPECT_TRUE(runtime::IsSameObject(a->Control(), Value(&Control())));
  EXPECT_TRUE(resizer_->Attached());
  EXPECT_EQ(resizer_->MinimumWidth(), 300);
  EXPECT_EQ(resizer_->MinimumHeight(), 200);
  // The grip was added after the form's controls were registered.
  EXPECT_EQ(resizer_->Anchors()->Count(), 1);

  FakeControl& grip = Grip();
  const struct {
    testing::PropertyObject* object;
    std::u16string_view name;
    Value want;
  } props[] = {
      // clang-format off
      {&grip, u"ProgID", Value(u"Forms.label.1")},    {&grip, u"Visible", Value(true)},
      {grip.font.get(), u"Name", Value(u"Marlett")},  {grip.font.get(), u"Charset", Value(2)},
      {grip.font.get(), u"Size", Value(14)},          {grip.font.get(), u"Bold", Value(true)},
      {&grip, u"BackStyle", Value(0)},                {&grip, u"AutoSize", Value(true)},
      {&grip, u"BorderStyle", Value(0)},              {&grip, u"Caption", Value(u"o")},
      {&grip, u"MousePointer", Value(8)},             {&grip, u"ForeColor", Value(0x646464)},
      // In the inside corner: 296 - 12, 180 - 14.
      {&grip, u"Left", Value(284.0f)},                {&grip, u"Top", Value(166.0f)},
      // clang-format on
  };
  for (const auto& p : props) {
    SCOPED_TRACE(ToUtf8(p.name));
    EXPECT_TRUE(runtime::IsEqual((*p.object)[p.name], p.want));
  }
  EXPECT_EQ(grip.z_order_calls, 1);

  resizer_->Detach();
  EXPECT_FALSE(resizer_->Attached());
  EXPECT_EQ(form_->controls->Find(FormResizer::kGripName), nullptr);
  EXPECT_TRUE(resizer_->Anchor(Value(u"C")));
  resizer_->Detach();  // a second time: the missing grip is ignored
}

// Each anchor style after a drag, then after a further Update (which must not
// drift, since margins come from the recorded geometry).
TEST_F(FormResizerTest, LayoutFollowsTheAnchorStyle) {
  constexpr float kUnset = -1;
  const struct {
    const char* what;
    int32_t style;
    float dx, dy;
    float minimum_left, minimum_top, minimum_height;  // kUnset: as Init left them
    Geometry want;
  } cases[] = {
      {"top left never moves", 5, 50, 50, kUnset, kUnset, kUnset, {20, 30, 100, 40}},
      {"none never moves", 0, 50, 50, kUnset, kUnset, kUnset, {20, 30, 100, 40}},
      {"top+bottom grows with the form", 7, 0, 50, kUnset, kUnset, kUnset, {20, 30, 100, 90}},
      {"top+bottom shrinks to MinimumHeight", 7, 0, -30, kUnset, kUnset, 25, {20, 30, 100, 25}},
      {"top+bottom shrinks freely", 7, 0, -30, kUnset, kUnset, 0, {20, 30, 100, 10}},
      {"bottom keeps its margin", 6, 0, 50, kUnset, kUnset, kUnset, {20, 80, 100, 40}},
      {"bottom stops at MinimumTop", 6, 0, -60, kUnset, 5, kUnset, {20, 5, 100, 40}},
      {"bottom stops at 0", 6, 0, -60, kUnset, kUnset, kUnset, {20, 0, 100, 40}},
      {"left+right stretches", 13, 50, 0, kUnset, kUnset, kUnset, {20, 30, 150, 40}},
      {"left+right stays at its width", 13, -50, 0, kUnset, kUnset, kUnset, {20, 30, 100, 40}},
      {"right keeps its margin", 9, 50, 0, kUnset, kUnset, kUnset, {70, 30, 100, 40}},
      {"right stops at MinimumLeft", 9, -100, 0, 10, kUnset, kUnset, {10, 30, 100, 40}},
      {"centre wins over right", 25, 50, 0, kUnset, kUnset, kUnset, {123, 30, 100, 40}},
      {"all four edges", 15, 50, 50, kUnset, kUnset, kUnset, {20, 30, 150, 90}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    // No lower bound on the form, so that the shrinking rows can shrink.
    resizer_->SetMinimumWidth(0);
    resizer_->SetMinimumHeight(0);
    Ref<Anchor> a = resizer_->Anchor(Value(u"C"));
    a->SetAnchorStyle(c.style);
    if (c.minimum_left != kUnset) a->SetMinimumLeft(c.minimum_left);
    if (c.minimum_top != kUnset) a->SetMinimumTop(c.minimum_top);
    if (c.minimum_height != kUnset) a->SetMinimumHeight(c.minimum_height);

    Drag(c.dx, c.dy);
    ExpectGeometry(Control(), c.want);
    resizer_->Update();
    resizer_->Update();
    ExpectGeometry(Control(), c.want);
  }
}

TEST_F(FormResizerTest, DragStaysWithinTheBounds) {
  const struct {
    const char* what;
    float minimum_width, minimum_height, maximum_width, maximum_height;
    float dx, dy;
    float want_width, want_height;
    int16_t button = 1;
  } cases[] = {
      {"maximum 0 is no limit", 300, 200, 0, 0, 500, 400, 800, 600},
      {"minimum from Form stops shrinking", 300, 200, 0, 0, -50, -50, 300, 200},
      {"maximum stops growing", 300, 200, 350, 220, 100, 100, 350, 220},
      {"minimum 0 is no limit", 0, 0, 0, 0, -50, -50, 250, 150},
      {"a lower minimum", 280, 190, 0, 0, -50, -50, 280, 190},
      {"only the left button drags", 0, 0, 0, 0, 50, 50, 300, 200, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    resizer_->SetMinimumWidth(c.minimum_width);
    resizer_->SetMinimumHeight(c.minimum_height);
    resizer_->SetMaximumWidth(c.maximum_width);
    resizer_->SetMaximumHeight(c.maximum_height);
    Drag(c.dx, c.dy, true, c.button);
    EXPECT_EQ(form_->Number(u"Width"), c.want_width);
    EXPECT_EQ(form_->Number(u"Height"), c.want_height);
    // The grip moved by the bounded amount: still in the inside corner.
    EXPECT_EQ(Grip().Number(u"Left"), c.want_width - FakeForm::kFrameWidth - 12);
    EXPECT_EQ(Grip().Number(u"Top"), c.want_height - FakeForm::kFrameHeight - 14);
  }
}

TEST_F(FormResizerTest, WithoutUpdateWhilstDraggingControlsMoveOnRelease) {
  resizer_->Anchor(Value(u"C"))->SetAnchorStyle(AnchorStyleTop + AnchorStyleRight);
  resizer_->SetUpdateWhilstDragging(false);
  Drag(50, 0, /*release=*/false);
  EXPECT_EQ(form_->Number(u"Width"), 350);
  EXPECT_EQ(Control().Number(u"Left"), 20);
  resizer_->Update();  // ignored while dragging
  EXPECT_EQ(Control().Number(u"Left"), 20);
  Grip().Mouse(u"MouseUp", 1, 55, 5);
  EXPECT_EQ(Control().Number(u"Left"), 70);

  // Once released, Update runs again: the grip goes back to the corner.
  Grip()[u"Left"] = Value(0.0f);
  resizer_->Update();
  EXPECT_EQ(Grip().Number(u"Left"), 346 - 12);
}

TEST_F(FormResizerTest, ErrorsReachTheCallerExceptWhereIgnored) {
  // A second control with the same name: the collection's duplicate key.
  auto twin = MakeRef<FakeControl>(u"C", 0, 0, 10, 10);
  EXPECT_RAISES(resizer_->AddControl(Value(twin)), errors::kDuplicateKey);
  // Looking up or removing what is not there raises nothing.
  EXPECT_FALSE(resizer_->Anchor(Value(u"Nope")));
  EXPECT_FALSE(resizer_->Anchor(Value(7)));
  resizer_->RemoveControl(Value(u"Nope"));
  resizer_->RemoveControl(Value(7));
  resizer_->RemoveControl(Value(u"C"));
  EXPECT_FALSE(resizer_->Anchor(Value(u"C")));
  // Attach with neither a form passed nor one set.
  EXPECT_RAISES(MakeRef<FormResizer>()->Attach(), errors::kObjectVariableNotSet);
}

TEST(FormResizerLateBound, CreatableResizerNotCreatableAnchor) {
  Ref<Object> resizer = CreateObject(u"Kestrel.FormResizer");
  EXPECT_RAISES(CreateObject(u"Kestrel.Anchor"), errors::kCannotCreateObject);
  auto form = MakeRef<FakeForm>(300, 200);
  form->Add(u"C", 20, 30, 100, 40);
  CallByName(resizer, u"Attach", CallKind::kMethod, {Value(form)});
  EXPECT_TRUE(CallByName(resizer, u"Anchor", CallKind::kMethod, {Value(u"x")}).IsNothing());
  Value anchor = CallByName(resizer, u"Anchor", CallKind::kMethod, {Value(1)});
  EXPECT_EQ(runtime::ToLong(CallByName(anchor, u"AnchorStyle", CallKind::kGet)), 5);
}

}  // namespace
}  // namespace kestrel::forms
