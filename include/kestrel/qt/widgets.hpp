// Qt adapters: Qt 6 widgets seen as the late-bound forms and controls that
// the form helpers (FormResizer, ToolTip, Utilities.IsControlVisible) work on.
//
// AdapterFor gives a form adapter for a top-level widget and a control
// adapter for any child widget: the same adapter object for the same widget
// while someone holds it, so `Is` comparisons work. They answer by name:
//
//   form     Name, Caption, Left, Top, Width, Height (outer frame, writable),
//            InsideWidth, InsideHeight (the client area), Controls, Visible,
//            Enabled, Parent (Nothing), hWnd
//   control  Name, Left, Top, Width, Height, Move(Left, Top[, Width, Height]),
//            ZOrder([0 front | 1 back]), Visible, Enabled, Parent, hWnd,
//            Caption (labels, buttons, group boxes), Text (text boxes), and
//            for labels AutoSize, BackStyle (0 transparent, 1 opaque),
//            BorderStyle (0 none, 1 single), ForeColor (0x00BBGGRR),
//            MousePointer (0 default, 8 the diagonal resize cursor, ...) and
//            Font (Name, Charset, Size, Bold, Italic)
//   Controls Count, Item(position or name), Add(ProgID, Name, Visible),
//            Remove(Name), and enumeration; Add knows Forms.Label.1,
//            Forms.CommandButton.1, Forms.TextBox.1 and Forms.Frame.1
//            (case-insensitive), anything else raises 5; a name already in
//            use raises 457.
//
// Geometry is in points at the screen's logical resolution: a widget's
// pixel size times 72 / its logicalDpiX() (at 96 dpi, 1 pixel is 0.75
// points). Writes round to whole pixels, so a written size reads back to the
// nearest pixel. Controls raise MouseDown, MouseMove and MouseUp(Button,
// Shift, X, Y) to advised handlers (kestrel/forms/events.hpp): Button 1 left,
// 2 right, 4 middle; Shift 1 Shift, 2 Ctrl, 4 Alt; X and Y in points from the
// control's top-left corner. Calls on an adapter whose widget is gone raise
// 424. A label set to the "Marlett" symbol font with the caption "o" (the
// grip glyph of that font, which Linux does not have) paints the style's
// size grip instead. Use on the GUI thread only.
//
//   QDialog dialog;  ...
//   auto resizer = kestrel::MakeRef<kestrel::forms::FormResizer>();
//   resizer->Attach(kestrel::qt::AdapterFor(&dialog));
#pragma once

#include "kestrel/forms/tooltip_backend.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/qt/export.hpp"

class QWidget;

namespace kestrel::qt {

// The adapter for the widget (Nothing for nullptr).
KESTREL_QT_API Value AdapterFor(QWidget* widget);

// Points per pixel on the widget's screen (72 / logical dpi).
KESTREL_QT_API double PointsPerPixel(const QWidget* widget);

// The widget's window handle: a pointer-sized number, never reused, that
// the tooltip backend (and ToolTip.Create) accepts as a parent.
KESTREL_QT_API forms::WindowHandle HandleOf(QWidget* widget);
// The widget behind a handle; nullptr once the widget is gone, or for 0.
KESTREL_QT_API QWidget* WidgetFromHandle(forms::WindowHandle handle);

// Makes the Qt tooltip window the process's tooltip backend, and
// QCoreApplication::processEvents the forms' event pump. Loading kestrel_qt
// does this already; call it again after replacing either.
KESTREL_QT_API void InstallQtBackends();

}  // namespace kestrel::qt
