// FormResizer and Anchor: make a fixed-size dialog form resizable with a
// drag grip, moving and stretching its controls by per-control anchors.
//
// Attach puts a small grip label, "ResizeHandle", in the form's bottom-right
// corner. Dragging it with the left button resizes the form within
// MinimumWidth/Height and MaximumWidth/Height (0 or less: no bound), and a
// layout pass moves or stretches every anchored control: Top + Bottom
// stretches vertically, Bottom alone keeps the distance to the bottom edge,
// Left + Right stretches horizontally, Right alone keeps the distance to the
// right edge, CenterHorizontally centres (and wins over Left and Right).
// Margins always come from the geometry recorded when the form was set and
// each control was added, so repeated passes never drift; sizes never drop
// below an anchor's minimums, nor below 0.
//
// Forms and controls are any late-bound objects answering the members of a
// form of the runtime's forms package: Width, Height, InsideWidth,
// InsideHeight and Controls (enumerable, with Add(ProgID, Name, Visible) and
// Remove(Name)) on the form; Name, Left, Top, Width, Height, Move and ZOrder
// on each control; the label members the grip is set up with (Caption,
// AutoSize, BackStyle, BorderStyle, ForeColor, MousePointer and Font) and its
// MouseDown, MouseMove and MouseUp events (kestrel/forms/events.hpp). All
// geometry is in the form's units (points), held as 32-bit floats. The
// library itself has no toolkit: the kestrel_qt adapters provide all this
// over Qt 6 widgets (kestrel/qt/widgets.hpp), where the grip's symbol-font
// glyph is painted as the style's size grip.
//
// The resizer shares the form (it does not own it) and owns its anchors and
// the grip. Errors of the form and its controls reach the caller, except in
// RemoveControl, Anchor and Detach, which ignore them. Not thread-safe.
//
//   auto resizer = kestrel::MakeRef<kestrel::forms::FormResizer>();
//   resizer->Attach(kestrel::Value(form));
//   resizer->Anchor(kestrel::Value(u"OK"))->SetAnchorStyle(AnchorStyleBottom + AnchorStyleRight);
//
// Dispatchable with every member above; registered as Kestrel.FormResizer
// (creatable) and Kestrel.Anchor (not creatable).
#pragma once

#include <cstdint>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::forms {

// AnchorStyles, combined by addition.
enum AnchorStyles : int32_t {
  AnchorStyleNone = 0,
  AnchorStyleTop = 1,
  AnchorStyleBottom = 2,
  AnchorStyleLeft = 4,
  AnchorStyleRight = 8,
  AnchorStyleCenterHorizontally = 16,
};

// How one control follows the form. A bare record anchors nothing; Init
// anchors Top + Left and records the control's geometry, which also becomes
// its minimum size.
class KESTREL_API Anchor : public Dispatchable<Anchor> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Anchor";

  void Init(const Value& control);

  const Value& Control() const noexcept { return control_; }
  void SetControl(const Value& control) { control_ = control; }
  int32_t AnchorStyle() const noexcept { return anchor_style_; }
  void SetAnchorStyle(int32_t style) noexcept { anchor_style_ = style; }

  float MinimumLeft() const noexcept { return minimum_left_; }
  void SetMinimumLeft(float v) noexcept { minimum_left_ = v; }
  float MinimumTop() const noexcept { return minimum_top_; }
  void SetMinimumTop(float v) noexcept { minimum_top_ = v; }
  float MinimumWidth() const noexcept { return minimum_width_; }
  void SetMinimumWidth(float v) noexcept { minimum_width_ = v; }
  float MinimumHeight() const noexcept { return minimum_height_; }
  void SetMinimumHeight(float v) noexcept { minimum_height_ = v; }
  float Left() const noexcept { return left_; }
  void SetLeft(float v) noexcept { left_ = v; }
  float Top() const noexcept { return top_; }
  void SetTop(float v) noexcept { top_ = v; }
  float Width() const noexcept { return width_; }
  void SetWidth(float v) noexcept { width_ = v; }
  float Height() const noexcept { return height_; }
  void SetHeight(float v) noexcept { height_ = v; }

  static const DispatchTable<Anchor>& Dispatch();

 private:
  Value control_ = Value::Nothing();
  int32_t anchor_style_ = AnchorStyleNone;
  float minimum_left_ = 0, minimum_top_ = 0, minimum_width_ = 0, minimum_height_ = 0;
  float left_ = 0, top_ = 0, width_ = 0, height_ = 0;
};

class KESTREL_API FormResizer : public Dispatchable<FormResizer> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.FormResizer";
  // The grip's name among the form's controls.
  static constexpr std::u16string_view kGripName = u"ResizeHandle";

  FormResizer();
  ~FormResizer() override;
  FormResizer(const FormResizer&) = delete;
  FormResizer& operator=(const FormResizer&) = delete;

  // Puts the grip in the corner and lays the controls out, unless there is
  // no grip or form, or a drag is in progress.
  void Update();
  bool Attached() const noexcept { return !grip_.IsNothing(); }

  bool UpdateWhilstDragging() const noexcept { return update_whilst_dragging_; }
  void SetUpdateWhilstDragging(bool on) noexcept { update_whilst_dragging_ = on; }
  float MinimumWidth() const noexcept { return minimum_width_; }
  void SetMinimumWidth(float v) noexcept { minimum_width_ = v; }
  float MinimumHeight() const noexcept { return minimum_height_; }
  void SetMinimumHeight(float v) noexcept { minimum_height_ = v; }
  float MaximumWidth() const noexcept { return maximum_width_; }
  void SetMaximumWidth(float v) noexcept { maximum_width_ = v; }
  float MaximumHeight() const noexcept { return maximum_height_; }
  void SetMaximumHeight(float v) noexcept { maximum_height_ = v; }

  const Value& Form() const noexcept { return form_; }
  // Starts afresh: new anchors for every control of the form, bounds and
  // reference sizes from the form as it is now.
  void SetForm(const Value& form);

  void AddControl(const Value& control);
  // By 1-based position or control name; errors ignored.
  void RemoveControl(const Value& index) noexcept;
  // By 1-based position or control name; nullptr when there is none.
  Ref<forms::Anchor> Anchor(const Value& index) const noexcept;
  const Ref<Collection>& Anchors() const noexcept { return anchors_; }

  // Sets Form first when one is passed (not Missing, not Nothing).
  void Attach(const Value& form = Value::Missing());
  void Detach() noexcept;

  // The grip's events (what its handler forwards); public for toolkits that
  // deliver them directly.
  void GripMouseDown(int32_t button, int32_t shift, float x, float y);
  void GripMouseMove(int32_t button, int32_t shift, float x, float y);
  void GripMouseUp(int32_t button, int32_t shift, float x, float y);

  static const DispatchTable<FormResizer>& Dispatch();

 private:
  class GripHandler;

  void LayoutControls();
  void PlaceGrip();

  Ref<Collection> anchors_;
  Value form_ = Value::Nothing();
  Value grip_ = Value::Nothing();
  Ref<GripHandler> grip_handler_;
  float minimum_width_ = 0, minimum_height_ = 0;
  float maximum_width_ = 0, maximum_height_ = 0;
  float reference_inside_width_ = 0, reference_inside_height_ = 0;
  bool update_whilst_dragging_ = false;
  float drag_start_x_ = 0, drag_start_y_ = 0;
  bool dragging_ = false;
};

}  // namespace kestrel::forms
