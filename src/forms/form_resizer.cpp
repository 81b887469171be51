#include "kestrel/forms/form_resizer.hpp"

#include <vector>

#include "kestrel/forms/events.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel::forms {

namespace {

constexpr int32_t kLeftButton = 1;

Value Get(const Value& object, std::u16string_view name) {
  return CallByName(object, name, CallKind::kGet);
}
float GetSingle(const Value& object, std::u16string_view name) {
  return runtime::ToSingle(Get(object, name));
}
void Let(const Value& object, std::u16string_view name, Value value) {
  CallByName(object, name, CallKind::kLet, {std::move(value)});
}
Value Call(const Value& object, std::u16string_view name, std::initializer_list<Value> args) {
  return CallByName(object, name, CallKind::kMethod, args);
}

// Single arithmetic: a result outside the Single range overflows (6) as it
// does in the runtime.
float Single(double v) {
  return runtime::ToSingle(Value(v));
}

// A laid-out position or size: never below the anchor's minimum, nor below 0.
float AtLeast(double v, float minimum) {
  float r = Single(v);
  if (r < minimum) r = minimum;
  if (r < 0) r = 0;
  return r;
}

// The Single-valued properties of Anchor and FormResizer.
template <class C, float (C::*Read)() const noexcept, void (C::*Write)(float) noexcept>
void SingleProperty(typename DispatchTable<C>::Builder& b, std::u16string_view name) {
  b.Property(
      name, [](C& c, Args&) { return Value((c.*Read)()); },
      [](C& c, Args&, const Value& v) { (c.*Write)(runtime::ToSingle(v)); });
}

}  // namespace

// ---------------------------------------------------------------------------
// Anchor

void Anchor::Init(const Value& control) {
  control_ = control;
  anchor_style_ = AnchorStyleTop + AnchorStyleLeft;
  minimum_width_ = GetSingle(control, u"Width");
  minimum_height_ = GetSingle(control, u"Height");
  left_ = GetSingle(control, u"Left");
  top_ = GetSingle(control, u"Top");
  width_ = GetSingle(control, u"Width");
  height_ = GetSingle(control, u"Height");
}

const DispatchTable<Anchor>& Anchor::Dispatch() {
  using T = DispatchTable<Anchor>;
  static const T table = [] {
    T::Builder b(u"Anchor");
    b.Get(u"Control", [](Anchor& a, Args&) { return a.Control(); })
        .Set(u"Control", [](Anchor& a, Args&, const Value& v) { a.SetControl(v); })
        .Property(
            u"AnchorStyle", [](Anchor& a, Args&) { return Value(a.AnchorStyle()); },
            [](Anchor& a, Args&, const Value& v) { a.SetAnchorStyle(runtime::ToLong(v)); })
        .Method(u"Init", 1, 1, [](Anchor& a, Args& args) {
          a.Init(args[0]);
          return Value();
        });
    SingleProperty<Anchor, &Anchor::MinimumLeft, &Anchor::SetMinimumLeft>(b, u"MinimumLeft");
    SingleProperty<Anchor, &Anchor::MinimumTop, &Anchor::SetMinimumTop>(b, u"MinimumTop");
    SingleProperty<Anchor, &Anchor::MinimumWidth, &Anchor::SetMinimumWidth>(b, u"MinimumWidth");
    SingleProperty<Anchor, &Anchor::MinimumHeight, &Anchor::SetMinimumHeight>(b, u"MinimumHeight");
    SingleProperty<Anchor, &Anchor::Left, &Anchor::SetLeft>(b, u"Left");
    SingleProperty<Anchor, &Anchor::Top, &Anchor::SetTop>(b, u"Top");
    SingleProperty<Anchor, &Anchor::Width, &Anchor::SetWidth>(b, u"Width");
    SingleProperty<Anchor, &Anchor::Height, &Anchor::SetHeight>(b, u"Height");
    return b.Build();
  }();
  return table;
}

KESTREL_REGISTER_CLASS(Anchor, Anchor::kQualifiedName, Instancing::kNotCreatable);

// ---------------------------------------------------------------------------
// The grip's event handler: forwards to the resizer while it is attached.

class FormResizer::GripHandler : public Dispatchable<GripHandler> {
 public:
  explicit GripHandler(FormResizer* owner) : owner_(owner) {}
  void Disconnect() noexcept { owner_ = nullptr; }

  static const DispatchTable<GripHandler>& Dispatch() {
    using T = DispatchTable<GripHandler>;
    static const T table = T::Builder(u"FormResizerGripEvents")
                               .Method(u"MouseDown", 4, 4, &Forward<&FormResizer::GripMouseDown>)
                               .Method(u"MouseMove", 4, 4, &Forward<&FormResizer::GripMouseMove>)
                               .Method(u"MouseUp", 4, 4, &Forward<&FormResizer::GripMouseUp>)
                               .Build();
    return table;
  }

 private:
  template <void (FormResizer::*Event)(int32_t, int32_t, float, float)>
  static Value Forward(GripHandler& h, Args& a) {
    if (h.owner_ != nullptr) {
      (h.owner_->*Event)(a.Integer(0), a.Integer(1), runtime::ToSingle(a[2]),
                         runtime::ToSingle(a[3]));
    }
    return Value();
  }

  FormResizer* owner_;
};

// ---------------------------------------------------------------------------
// FormResizer

FormResizer::FormResizer() : anchors_(MakeRef<Collection>()) {}

FormResizer::~FormResizer() {
  Detach();
  // The anchors are emptied explicitly: a client may still hold the
  // collection, and must not see it keep controls alive.
  try {
    while (anchors_->Count() > 0) anchors_->Remove(Value(int32_t{1}));
  } catch (...) {
  }
}

void FormResizer::SetForm(const Value& form) {
  anchors_ = MakeRef<Collection>();
  update_whilst_dragging_ = true;
  form_ = form;
  minimum_width_ = GetSingle(form_, u"Width");
  minimum_height_ = GetSingle(form_, u"Height");
  reference_inside_width_ = GetSingle(form_, u"InsideWidth");
  reference_inside_height_ = GetSingle(form_, u"InsideHeight");
  // Snapshot first: adding may fail half-way on a duplicate name, and the
  // enumeration must not be re-entered by the error.
  std::vector<Value> controls;
  Value all = Get(form_, u"Controls");
  if (!all.IsObject() || all.IsNothing()) RaiseStandard(errors::kObjectRequired);
  ForEach(all.object(), [&](const Value& c) { controls.push_back(c); });
  for (const Value& c : controls) AddControl(c);
}

void FormResizer::AddControl(const Value& control) {
  auto anchor = MakeRef<forms::Anchor>();
  anchor->Init(control);
  anchors_->Add(Value(anchor), Get(control, u"Name"));
}

void FormResizer::RemoveControl(const Value& index) noexcept {
  try {
    anchors_->Remove(index);
  } catch (...) {
    // Unknown names and bad positions are ignored on purpose.
  }
}

Ref<forms::Anchor> FormResizer::Anchor(const Value& index) const noexcept {
  try {
    Value item = anchors_->Item(index);
    if (item.IsObject()) return Ref<forms::Anchor>(dynamic_cast<forms::Anchor*>(item.object()));
  } catch (...) {
    // Not there: Nothing, without an error.
  }
  return nullptr;
}

void FormResizer::Attach(const Value& form) {
  if (!form.IsMissing() && !form.IsNothing()) SetForm(form);

  Value controls = Get(form_, u"Controls");
  Value grip = Call(controls, u"Add", {Value(u"Forms.label.1"), Value(kGripName), Value(true)});
  EventSource* source = AsEventSource(grip);
  if (source == nullptr) RaiseNoEvents();
  if (grip_handler_) grip_handler_->Disconnect();
  grip_handler_ = MakeRef<GripHandler>(this);
  source->Advise(grip_handler_);
  grip_ = grip;

  Value font = Get(grip_, u"Font");
  Let(font, u"Name", Value(u"Marlett"));
  Let(font, u"Charset", Value(int32_t{2}));  // symbol character set
  Let(font, u"Size", Value(int32_t{14}));
  Let(font, u"Bold", Value(true));
  Let(grip_, u"BackStyle", Value(int32_t{0}));  // transparent
  Let(grip_, u"AutoSize", Value(true));
  Let(grip_, u"BorderStyle", Value(int32_t{0}));   // none
  Let(grip_, u"Caption", Value(u"o"));             // the size-grip glyph of that font
  Let(grip_, u"MousePointer", Value(int32_t{8}));  // diagonal north-west/south-east sizing
  Let(grip_, u"ForeColor", Value(int32_t{100 + 100 * 256 + 100 * 65536}));
  Call(grip_, u"ZOrder", {});
  PlaceGrip();
}

void FormResizer::Detach() noexcept {
  if (grip_handler_) grip_handler_->Disconnect();
  if (EventSource* source = AsEventSource(grip_)) source->Unadvise(grip_handler_.get());
  grip_handler_ = nullptr;
  try {
    Call(Get(form_, u"Controls"), u"Remove", {Value(kGripName)});
  } catch (...) {
    // No form, or no grip on it any more: nothing to remove.
  }
  grip_ = Value::Nothing();
  dragging_ = false;
}

void FormResizer::PlaceGrip() {
  Let(grip_, u"Top",
      Value(Single(double(GetSingle(form_, u"InsideHeight")) - GetSingle(grip_, u"Height"))));
  Let(grip_, u"Left",
      Value(Single(double(GetSingle(form_, u"InsideWidth")) - GetSingle(grip_, u"Width"))));
}

void FormResizer::Update() {
  if (!Attached() || form_.IsNothing() || dragging_) return;
  PlaceGrip();
  LayoutControls();
}

void FormResizer::GripMouseDown(int32_t button, int32_t, float x, float y) {
  if (button != kLeftButton) return;
  drag_start_x_ = x;
  drag_start_y_ = y;
  dragging_ = true;
}

void FormResizer::GripMouseMove(int32_t button, int32_t, float x, float y) {
  // The dragging flag is deliberately not consulted: a left-button move that
  // began elsewhere still resizes, relative to the last start point.
  if (button != kLeftButton) return;
  float dx = Single(double(x) - drag_start_x_);
  float dy = Single(double(y) - drag_start_y_);

  const float width = GetSingle(form_, u"Width");
  if (maximum_width_ > 0 && width + dx > maximum_width_) dx = maximum_width_ - width;
  if (minimum_width_ > 0 && width + dx < minimum_width_) dx = minimum_width_ - width;
  const float height = GetSingle(form_, u"Height");
  if (maximum_height_ > 0 && height + dy > maximum_height_) dy = maximum_height_ - height;
  if (minimum_height_ > 0 && height + dy < minimum_height_) dy = minimum_height_ - height;

  // The grip moves with the pointer, so the start point stays valid in grip
  // coordinates and is never updated.
  Call(grip_, u"Move",
       {Value(Single(double(GetSingle(grip_, u"Left")) + dx)),
        Value(Single(double(GetSingle(grip_, u"Top")) + dy))});
  Let(form_, u"Width", Value(Single(double(GetSingle(form_, u"Width")) + dx)));
  Let(form_, u"Height", Value(Single(double(GetSingle(form_, u"Height")) + dy)));
  if (update_whilst_dragging_) LayoutControls();
}

void FormResizer::GripMouseUp(int32_t button, int32_t, float, float) {
  if (button != kLeftButton) return;
  if (!update_whilst_dragging_) LayoutControls();
  dragging_ = false;
}

void FormResizer::LayoutControls() {
  // Hold the collection: a control's property write may re-enter and
  // replace it (a new Form), and the walk must finish on what it started.
  const Ref<Collection> anchors = anchors_;
  for (const Value& item : *anchors) {
    auto* anchor = item.IsObject() ? dynamic_cast<forms::Anchor*>(item.object()) : nullptr;
    if (anchor == nullptr) RaiseStandard(errors::kTypeMismatch);
    const int32_t style = anchor->AnchorStyle();
    if (style == AnchorStyleNone) continue;
    const Value& control = anchor->Control();

    const bool top = style & AnchorStyleTop, bottom = style & AnchorStyleBottom;
    if (bottom) {
      const float bottom_margin =
          Single(double(reference_inside_height_) - anchor->Top() - anchor->Height());
      const double inside = GetSingle(form_, u"InsideHeight");
      if (top) {
        Let(control, u"Height",
            Value(AtLeast(inside - bottom_margin - anchor->Top(), anchor->MinimumHeight())));
      } else {
        Let(control, u"Top",
            Value(AtLeast(inside - bottom_margin - anchor->Height(), anchor->MinimumTop())));
      }
    }

    const bool left = style & AnchorStyleLeft, right = style & AnchorStyleRight;
    if (style & AnchorStyleCenterHorizontally) {
      Let(control, u"Left",
          Value(Single((double(GetSingle(form_, u"InsideWidth")) - GetSingle(control, u"Width")) /
                       2)));
    } else if (right) {
      const float right_margin =
          Single(double(reference_inside_width_) - anchor->Left() - anchor->Width());
      const double inside = GetSingle(form_, u"InsideWidth");
      if (left) {
        Let(control, u"Width",
            Value(AtLeast(inside - right_margin - anchor->Left(), anchor->MinimumWidth())));
      } else {
        Let(control, u"Left",
            Value(AtLeast(inside - right_margin - anchor->Width(), anchor->MinimumLeft())));
      }
    }
  }
  DoEvents();
}

const DispatchTable<FormResizer>& FormResizer::Dispatch() {
  using T = DispatchTable<FormResizer>;
  static const T table = [] {
    T::Builder b(u"FormResizer");
    b.Method(u"Update", 0, 0,
             [](FormResizer& r, Args&) {
               r.Update();
               return Value();
             })
        .Get(u"Attached", [](FormResizer& r, Args&) { return Value(r.Attached()); })
        .Property(
            u"UpdateWhilstDragging",
            [](FormResizer& r, Args&) { return Value(r.UpdateWhilstDragging()); },
            [](FormResizer& r, Args&, const Value& v) {
              r.SetUpdateWhilstDragging(runtime::ToBoolean(v));
            })
        .Get(u"Form", [](FormResizer& r, Args&) { return r.Form(); })
        .Set(u"Form", [](FormResizer& r, Args&, const Value& v) { r.SetForm(v); })
        .Method(u"AddControl", 1, 1,
                [](FormResizer& r, Args& a) {
                  r.AddControl(a[0]);
                  return Value();
                })
        .Method(u"RemoveControl", 1, 1,
                [](FormResizer& r, Args& a) {
                  r.RemoveControl(a[0]);
                  return Value();
                })
        .Method(u"Anchor", 1, 1, [](FormResizer& r, Args& a) { return Value(r.Anchor(a[0])); })
        .Method(u"Anchors", 0, 0, [](FormResizer& r, Args&) { return Value(r.Anchors()); })
        .Method(u"Attach", 0, 1,
                [](FormResizer& r, Args& a) {
                  r.Attach(a[0]);
                  return Value();
                })
        .Method(u"Detach", 0, 0, [](FormResizer& r, Args&) {
          r.Detach();
          return Value();
        });
    SingleProperty<FormResizer, &FormResizer::MinimumWidth, &FormResizer::SetMinimumWidth>(
        b, u"MinimumWidth");
    SingleProperty<FormResizer, &FormResizer::MinimumHeight, &FormResizer::SetMinimumHeight>(
        b, u"MinimumHeight");
    SingleProperty<FormResizer, &FormResizer::MaximumWidth, &FormResizer::SetMaximumWidth>(
        b, u"MaximumWidth");
    SingleProperty<FormResizer, &FormResizer::MaximumHeight, &FormResizer::SetMaximumHeight>(
        b, u"MaximumHeight");
    return b.Build();
  }();
  return table;
}

KESTREL_REGISTER_CLASS(FormResizer, FormResizer::kQualifiedName, Instancing::kCreatable);

}  // namespace kestrel::forms
