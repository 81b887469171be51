#include "kestrel/qt/widgets.hpp"

#include <QAbstractButton>
#include <QEvent>
#include <QGroupBox>
#include <QHash>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionSizeGrip>
#include <QTextEdit>
#include <QWidget>
#include <cstdio>
#include <unordered_map>
#include <vector>

#include "conversions.hpp"
#include "kestrel/forms/events.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dispatch.hpp"
#include "kestrel/runtime/strings.hpp"

namespace kestrel::qt {

namespace {

using detail::FromBgr;
using detail::ToBgr;
using detail::ToQ;

Value FromQ(const QString& s) {
  return Value(std::u16string_view(reinterpret_cast<const char16_t*>(s.utf16()), size_t(s.size())));
}
QString TextArg(const Value& v) {
  return ToQ(runtime::ToText(v));
}

float ToPoints(const QWidget* w, int pixels) {
  return float(pixels * PointsPerPixel(w));
}
int ToPixels(const QWidget* w, const Value& points) {
  return qRound(runtime::ToDouble(points) / PointsPerPixel(w));
}

// Every live adapter, by widget: one adapter per widget keeps `Is` working.
std::unordered_map<const QWidget*, Object*>& Adapters() {
  // Never destroyed: widgets and adapters may go after static destruction.
  static auto* adapters = new std::unordered_map<const QWidget*, Object*>();
  return *adapters;
}

// What every adapter holds: the widget, watched so that a destroyed widget
// raises 424 instead of crashing.
class WidgetRef {
 public:
  explicit WidgetRef(QWidget* w) : key_(w), widget_(w) {}
  ~WidgetRef() {
    auto it = Adapters().find(key_);
    if (it != Adapters().end() && it->second == self_) Adapters().erase(it);
  }
  QWidget& Widget() const {
    if (widget_.isNull()) RaiseStandard(errors::kObjectRequired);
    return *widget_;
  }
  void Register(Object* self) {
    self_ = self;
    Adapters()[key_] = self;
  }
  bool Alive() const noexcept { return !widget_.isNull(); }

 private:
  const QWidget* key_;
  QPointer<QWidget> widget_;
  Object* self_ = nullptr;
};

// --- Font --------------------------------------------------------------------

// The symbol character set of the runtime's fonts. Qt has no character sets;
// the value is kept so that it reads back.
constexpr const char* kCharsetProperty = "kestrelCharset";
constexpr const char* kAutoSizeProperty = "kestrelAutoSize";
constexpr const char* kMousePointerProperty = "kestrelMousePointer";

void AfterContentChange(QWidget& w) {
  if (w.property(kAutoSizeProperty).toBool()) w.adjustSize();
}

class FontAdapter : public Dispatchable<FontAdapter> {
 public:
  explicit FontAdapter(QWidget* w) : widget_(w) {}

  static const DispatchTable<FontAdapter>& Dispatch() {
    using T = DispatchTable<FontAdapter>;
    static const T table =
        T::Builder(u"Font")
            .Property(
                u"Name", [](FontAdapter& f, Args&) { return FromQ(f.W().font().family()); },
                [](FontAdapter& f, Args&, const Value& v) {
                  f.Change([&](QFont& font) { font.setFamily(TextArg(v)); });
                })
            .Property(
                u"Size",
                [](FontAdapter& f, Args&) { return Value(float(f.W().font().pointSizeF())); },
                [](FontAdapter& f, Args&, const Value& v) {
                  double size = runtime::ToDouble(v);
                  if (size <= 0) RaiseStandard(errors::kInvalidPropertyValue);
                  f.Change([&](QFont& font) { font.setPointSizeF(size); });
                })
            .Property(
                u"Bold", [](FontAdapter& f, Args&) { return Value(f.W().font().bold()); },
                [](FontAdapter& f, Args&, const Value& v) {
                  f.Change([&](QFont& font) { font.setBold(runtime::ToBoolean(v)); });
                })
            .Property(
                u"Italic", [](FontAdapter& f, Args&) { return Value(f.W().font().italic()); },
                [](FontAdapter& f, Args&, const Value& v) {
                  f.Change([&](QFont& font) { font.setItalic(runtime::ToBoolean(v)); });
                })
            .Property(
                u"Charset",
                [](FontAdapter& f, Args&) {
                  return Value(int32_t(f.W().property(kCharsetProperty).toInt()));
                },
                [](FontAdapter& f, Args&, const Value& v) {
                  f.W().setProperty(kCharsetProperty, runtime::ToLong(v));
                })
            .Build();
    return table;
  }

 private:
  QWidget& W() const {
    if (widget_.isNull()) RaiseStandard(errors::kObjectRequired);
    return *widget_;
  }
  template <class F>
  void Change(F&& edit) {
    QWidget& w = W();
    QFont font = w.font();
    edit(font);
    w.setFont(font);
    AfterContentChange(w);
  }
  QPointer<QWidget> widget_;
};

// --- Controls ------------------------------------------------------------------

std::vector<QWidget*> ChildControls(QWidget& container) {
  std::vector<QWidget*> out;
  for (QObject* o : container.children()) {
    auto* w = qobject_cast<QWidget*>(o);
    if (w != nullptr && !w->isWindow()) out.push_back(w);
  }
  return out;
}

QWidget* FindChild(QWidget& container, const QString& name) {
  for (QWidget* w : ChildControls(container))
    if (w->objectName().compare(name, Qt::CaseInsensitive) == 0) return w;
  return nullptr;
}

class ControlsAdapter : public Dispatchable<ControlsAdapter> {
 public:
  explicit ControlsAdapter(QWidget* container) : container_(container) {}

  Ref<Object> NewEnum() override {
    std::vector<Value> items;
    for (QWidget* w : ChildControls(C())) items.push_back(AdapterFor(w));
    return MakeRef<ValueEnumerator>(std::move(items));
  }

  static const DispatchTable<ControlsAdapter>& Dispatch() {
    using T = DispatchTable<ControlsAdapter>;
    static const T table =
        T::Builder(u"Controls")
            .Get(u"Count", [](ControlsAdapter& c,
                              Args&) { return Value(int32_t(ChildControls(c.C()).size())); })
            .Get(
                u"Item", [](ControlsAdapter& c, Args& a) { return c.Item(a[0]); }, 1, 1)
            .DefaultMember(u"Item")
            .Method(u"Add", 1, 3,
                    [](ControlsAdapter& c, Args& a) {
                      return c.Add(a.Text(0), a.Has(1) ? a.Text(1) : u"",
                                   !a.Has(2) || a.Boolean(2));
                    })
            .Method(u"Remove", 1, 1,
                    [](ControlsAdapter& c, Args& a) {
                      c.Remove(a[0]);
                      return Value();
                    })
            .Build();
    return table;
  }

 private:
  QWidget& C() const {
    if (container_.isNull()) RaiseStandard(errors::kObjectRequired);
    return *container_;
  }
  QWidget* Find(const Value& index) const {
    if (index.IsString()) return FindChild(C(), ToQ(index.string()));
    std::vector<QWidget*> all = ChildControls(C());
    int32_t i = runtime::ToLong(index);  // 0-based, as the forms package counts
    return i >= 0 && size_t(i) < all.size() ? all[size_t(i)] : nullptr;
  }
  Value Item(const Value& index) const {
    QWidget* w = Find(index);
    if (w == nullptr) RaiseStandard(errors::kInvalidPropertyValue);
    return AdapterFor(w);
  }
  Value Add(const std::u16string& prog_id, const std::u16string& name, bool visible) {
    QWidget& parent = C();
    QString id = ToQ(prog_id).toLower();
    QString qname = ToQ(name);
    if (!qname.isEmpty() && FindChild(parent, qname) != nullptr)
      RaiseStandard(errors::kDuplicateKey);
    QWidget* w = nullptr;
    if (id == u"forms.label.1") {
      w = new QLabel(&parent);
    } else if (id == u"forms.commandbutton.1") {
      w = new QPushButton(&parent);
    } else if (id == u"forms.textbox.1") {
      w = new QLineEdit(&parent);
    } else if (id == u"forms.frame.1") {
      w = new QGroupBox(&parent);
    } else {
      RaiseStandard(errors::kInvalidProcedureCall);
    }
    w->setObjectName(qname);
    w->setVisible(visible);
    return AdapterFor(w);
  }
  void Remove(const Value& index) {
    QWidget* w = Find(index);
    if (w == nullptr) RaiseStandard(errors::kInvalidPropertyValue);
    delete w;
  }

  QPointer<QWidget> container_;
};

// --- Members shared by forms and controls --------------------------------------

template <class T>
void CommonMembers(typename DispatchTable<T>::Builder& b) {
  b.Property(
       u"Name", [](T& s, Args&) { return FromQ(s.W().objectName()); },
       [](T& s, Args&, const Value& v) { s.W().setObjectName(TextArg(v)); })
      .Property(
          u"Visible", [](T& s, Args&) { return Value(!s.W().isHidden()); },
          [](T& s, Args&, const Value& v) { s.W().setVisible(runtime::ToBoolean(v)); })
      // The control's own flag, as the forms package keeps it: a control in
      // a disabled frame is still Enabled (IsControlEnabled walks the parents).
      .Property(
          u"Enabled", [](T& s, Args&) { return Value(!s.W().testAttribute(Qt::WA_ForceDisabled)); },
          [](T& s, Args&, const Value& v) { s.W().setEnabled(runtime::ToBoolean(v)); })
      .Get(u"hWnd", [](T& s, Args&) { return Value(int64_t(HandleOf(&s.W()))); })
      .Get(u"Controls", [](T& s, Args&) { return Value(MakeRef<ControlsAdapter>(&s.W())); })
      .Get(u"Font", [](T& s, Args&) { return Value(MakeRef<FontAdapter>(&s.W())); })
      .Property(
          u"ForeColor",
          [](T& s, Args&) {
            return Value(int32_t(ToBgr(s.W().palette().color(QPalette::WindowText))));
          },
          [](T& s, Args&, const Value& v) {
            QWidget& w = s.W();
            QPalette p = w.palette();
            QColor c = FromBgr(uint32_t(runtime::ToLong(v)));
            p.setColor(QPalette::WindowText, c);
            p.setColor(QPalette::ButtonText, c);
            p.setColor(QPalette::Text, c);
            w.setPalette(p);
          })
      .Property(
          u"MousePointer",
          [](T& s, Args&) { return Value(int32_t(s.W().property(kMousePointerProperty).toInt())); },
          [](T& s, Args&, const Value& v) {
            QWidget& w = s.W();
            int32_t pointer = runtime::ToLong(v);
            // The forms package's pointer numbers.
            static const QHash<int32_t, Qt::CursorShape> kShapes = {
                {1, Qt::ArrowCursor},      {2, Qt::CrossCursor},    {3, Qt::IBeamCursor},
                {6, Qt::SizeBDiagCursor},  {7, Qt::SizeVerCursor},  {8, Qt::SizeFDiagCursor},
                {9, Qt::SizeHorCursor},    {10, Qt::UpArrowCursor}, {11, Qt::WaitCursor},
                {12, Qt::ForbiddenCursor}, {13, Qt::BusyCursor},    {14, Qt::WhatsThisCursor},
                {15, Qt::SizeAllCursor}};
            if (pointer == 0) {
              w.unsetCursor();
            } else if (kShapes.contains(pointer)) {
              w.setCursor(kShapes.value(pointer));
            } else {
              RaiseStandard(errors::kInvalidPropertyValue);
            }
            w.setProperty(kMousePointerProperty, pointer);
          });
}

// --- Form ----------------------------------------------------------------------

class FormAdapter : public Dispatchable<FormAdapter> {
 public:
  explicit FormAdapter(QWidget* w) : ref_(w) {}
  QWidget& W() const { return ref_.Widget(); }
  WidgetRef& ref() { return ref_; }

  static const DispatchTable<FormAdapter>& Dispatch() {
    using T = DispatchTable<FormAdapter>;
    static const T table = [] {
      T::Builder b(u"Form");
      CommonMembers<FormAdapter>(b);
      // Outer size: the frame the window manager adds counts, as on the
      // forms package's forms; the offscreen platform adds none.
      b.Property(
           u"Width",
           [](FormAdapter& f, Args&) {
             return Value(ToPoints(&f.W(), f.W().frameGeometry().width()));
           },
           [](FormAdapter& f, Args&, const Value& v) {
             QWidget& w = f.W();
             int frame = w.frameGeometry().width() - w.width();
             w.resize(std::max(0, ToPixels(&w, v) - frame), w.height());
           })
          .Property(
              u"Height",
              [](FormAdapter& f, Args&) {
                return Value(ToPoints(&f.W(), f.W().frameGeometry().height()));
              },
              [](FormAdapter& f, Args&, const Value& v) {
                QWidget& w = f.W();
                int frame = w.frameGeometry().height() - w.height();
                w.resize(w.width(), std::max(0, ToPixels(&w, v) - frame));
              })
          .Property(
              u"Left",
              [](FormAdapter& f, Args&) {
                return Value(ToPoints(&f.W(), f.W().frameGeometry().x()));
              },
              [](FormAdapter& f, Args&, const Value& v) {
                f.W().move(ToPixels(&f.W(), v), f.W().y());
              })
          .Property(
              u"Top",
              [](FormAdapter& f, Args&) {
                return Value(ToPoints(&f.W(), f.W().frameGeometry().y()));
              },
              [](FormAdapter& f, Args&, const Value& v) {
                f.W().move(f.W().x(), ToPixels(&f.W(), v));
              })
          .Get(u"InsideWidth",
               [](FormAdapter& f, Args&) { return Value(ToPoints(&f.W(), f.W().width())); })
          .Get(u"InsideHeight",
               [](FormAdapter& f, Args&) { return Value(ToPoints(&f.W(), f.W().height())); })
          .Property(
              u"Caption", [](FormAdapter& f, Args&) { return FromQ(f.W().windowTitle()); },
              [](FormAdapter& f, Args&, const Value& v) { f.W().setWindowTitle(TextArg(v)); })
          .Get(u"Parent", [](FormAdapter&, Args&) { return Value::Nothing(); });
      return b.Build();
    }();
    return table;
  }

 private:
  WidgetRef ref_;
};

// --- Control -------------------------------------------------------------------

int16_t ButtonCode(Qt::MouseButtons buttons) {
  int16_t code = 0;
  if (buttons & Qt::LeftButton) code |= 1;
  if (buttons & Qt::RightButton) code |= 2;
  if (buttons & Qt::MiddleButton) code |= 4;
  return code;
}
int16_t ShiftCode(Qt::KeyboardModifiers m) {
  int16_t code = 0;
  if (m & Qt::ShiftModifier) code |= 1;
  if (m & Qt::ControlModifier) code |= 2;
  if (m & Qt::AltModifier) code |= 4;
  return code;
}

bool AsksForGrip(const QWidget* w) {
  auto* label = qobject_cast<const QLabel*>(w);
  return label != nullptr && label->text() == u"o" &&
         label->font().family().compare(u"Marlett", Qt::CaseInsensitive) == 0;
}

class ControlAdapter;

// Watches the control for the adapter: mouse events become the control's
// events, and the grip glyph is painted as the style's size grip.
class Relay : public QObject {
 public:
  Relay(QWidget* w, ControlAdapter* adapter) : QObject(w), adapter_(adapter) {
    w->installEventFilter(this);
  }
  void Disconnect() noexcept { adapter_ = nullptr; }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  ControlAdapter* adapter_;
};

class ControlAdapter : public Dispatchable<ControlAdapter>, public forms::EventSource {
 public:
  explicit ControlAdapter(QWidget* w) : ref_(w), relay_(new Relay(w, this)) {}
  ~ControlAdapter() override {
    if (!relay_.isNull()) {
      relay_->Disconnect();
      delete relay_.data();
    }
  }
  QWidget& W() const { return ref_.Widget(); }
  WidgetRef& ref() { return ref_; }

  void Advise(const Ref<Object>& handler) override { handlers_.Add(handler); }
  void Unadvise(const Object* handler) override { handlers_.Remove(handler); }

  void Fire(std::u16string_view name, QMouseEvent* e, Qt::MouseButtons buttons) {
    if (handlers_.empty()) return;
    Ref<ControlAdapter> hold(this);  // a handler may drop the last reference
    const QWidget& w = W();
    QPointF at = e->position();
    try {
      handlers_.Raise(name, {Value(ButtonCode(buttons)), Value(ShiftCode(e->modifiers())),
                             Value(float(at.x() * PointsPerPixel(&w))),
                             Value(float(at.y() * PointsPerPixel(&w)))});
    } catch (const std::exception& ex) {
      // An error cannot travel back through Qt's event dispatch: report it.
      std::fprintf(stderr, "kestrel_qt: %s handler failed: %s\n", ToUtf8(name).c_str(), ex.what());
    }
  }

  static const DispatchTable<ControlAdapter>& Dispatch();

 private:
  WidgetRef ref_;
  QPointer<Relay> relay_;
  forms::EventHandlers handlers_;
};

bool Relay::eventFilter(QObject* watched, QEvent* event) {
  if (adapter_ == nullptr) return false;
  switch (event->type()) {
    case QEvent::MouseButtonPress: {
      auto* e = static_cast<QMouseEvent*>(event);
      adapter_->Fire(u"MouseDown", e, e->button());
      break;
    }
    case QEvent::MouseMove: {
      auto* e = static_cast<QMouseEvent*>(event);
      adapter_->Fire(u"MouseMove", e, e->buttons());
      break;
    }
    case QEvent::MouseButtonRelease: {
      auto* e = static_cast<QMouseEvent*>(event);
      adapter_->Fire(u"MouseUp", e, e->button());
      break;
    }
    case QEvent::Paint: {
      auto* w = static_cast<QWidget*>(watched);
      if (!AsksForGrip(w)) break;
      // The symbol font's grip glyph does not exist here: paint the real thing.
      QPainter painter(w);
      QStyleOptionSizeGrip option;
      option.initFrom(w);
      option.rect = w->rect();
      option.corner = Qt::BottomRightCorner;
      w->style()->drawControl(QStyle::CE_SizeGrip, &option, &painter, w);
      return true;
    }
    default:
      break;
  }
  return false;
}

void SetCaption(QWidget& w, const QString& text) {
  if (auto* label = qobject_cast<QLabel*>(&w)) {
    label->setText(text);
  } else if (auto* button = qobject_cast<QAbstractButton*>(&w)) {
    button->setText(text);
  } else if (auto* box = qobject_cast<QGroupBox*>(&w)) {
    box->setTitle(text);
  } else {
    RaiseStandard(errors::kMemberNotSupported);
  }
  AfterContentChange(w);
}

QString Caption(QWidget& w) {
  if (auto* label = qobject_cast<QLabel*>(&w)) return label->text();
  if (auto* button = qobject_cast<QAbstractButton*>(&w)) return button->text();
  if (auto* box = qobject_cast<QGroupBox*>(&w)) return box->title();
  RaiseStandard(errors::kMemberNotSupported);
}

QFrame& Frame(QWidget& w) {
  auto* frame = qobject_cast<QFrame*>(&w);
  if (frame == nullptr) RaiseStandard(errors::kMemberNotSupported);
  return *frame;
}

const DispatchTable<ControlAdapter>& ControlAdapter::Dispatch() {
  using T = DispatchTable<ControlAdapter>;
  using C = ControlAdapter;
  static const T table = [] {
    T::Builder b(u"Control");
    CommonMembers<C>(b);
    b.Property(
         u"Left", [](C& c, Args&) { return Value(ToPoints(&c.W(), c.W().x())); },
         [](C& c, Args&, const Value& v) { c.W().move(ToPixels(&c.W(), v), c.W().y()); })
        .Property(
            u"Top", [](C& c, Args&) { return Value(ToPoints(&c.W(), c.W().y())); },
            [](C& c, Args&, const Value& v) { c.W().move(c.W().x(), ToPixels(&c.W(), v)); })
        .Property(
            u"Width", [](C& c, Args&) { return Value(ToPoints(&c.W(), c.W().width())); },
            [](C& c, Args&, const Value& v) {
              c.W().resize(std::max(0, ToPixels(&c.W(), v)), c.W().height());
            })
        .Property(
            u"Height", [](C& c, Args&) { return Value(ToPoints(&c.W(), c.W().height())); },
            [](C& c, Args&, const Value& v) {
              c.W().resize(c.W().width(), std::max(0, ToPixels(&c.W(), v)));
            })
        .Method(u"Move", 0, 4,
                [](C& c, Args& a) {
                  QWidget& w = c.W();
                  QRect r = w.geometry();
                  if (a.Has(0)) r.moveLeft(ToPixels(&w, a[0]));
                  if (a.Has(1)) r.moveTop(ToPixels(&w, a[1]));
                  if (a.Has(2)) r.setWidth(std::max(0, ToPixels(&w, a[2])));
                  if (a.Has(3)) r.setHeight(std::max(0, ToPixels(&w, a[3])));
                  w.setGeometry(r);
                  return Value();
                })
        .Method(u"ZOrder", 0, 1,
                [](C& c, Args& a) {
                  if (a.Has(0) && a.Long(0) == 1) {
                    c.W().lower();
                  } else {
                    c.W().raise();
                  }
                  return Value();
                })
        .Get(u"Parent", [](C& c, Args&) { return AdapterFor(c.W().parentWidget()); })
        .Property(
            u"Caption", [](C& c, Args&) { return FromQ(Caption(c.W())); },
            [](C& c, Args&, const Value& v) { SetCaption(c.W(), TextArg(v)); })
        .Property(
            u"Text",
            [](C& c, Args&) {
              QWidget& w = c.W();
              if (auto* line = qobject_cast<QLineEdit*>(&w)) return FromQ(line->text());
              if (auto* edit = qobject_cast<QTextEdit*>(&w)) return FromQ(edit->toPlainText());
              return FromQ(Caption(w));
            },
            [](C& c, Args&, const Value& v) {
              QWidget& w = c.W();
              if (auto* line = qobject_cast<QLineEdit*>(&w)) {
                line->setText(TextArg(v));
              } else if (auto* edit = qobject_cast<QTextEdit*>(&w)) {
                edit->setPlainText(TextArg(v));
              } else {
                SetCaption(w, TextArg(v));
              }
            })
        .Property(
            u"AutoSize",
            [](C& c, Args&) { return Value(c.W().property(kAutoSizeProperty).toBool()); },
            [](C& c, Args&, const Value& v) {
              c.W().setProperty(kAutoSizeProperty, runtime::ToBoolean(v));
              AfterContentChange(c.W());
            })
        .Property(
            u"BackStyle",
            [](C& c, Args&) { return Value(int32_t(c.W().autoFillBackground() ? 1 : 0)); },
            [](C& c, Args&, const Value& v) {
              c.W().setAutoFillBackground(runtime::ToLong(v) != 0);
            })
        .Property(
            u"BorderStyle",
            [](C& c, Args&) {
              return Value(int32_t(Frame(c.W()).frameShape() == QFrame::NoFrame ? 0 : 1));
            },
            [](C& c, Args&, const Value& v) {
              QFrame& f = Frame(c.W());
              if (runtime::ToLong(v) == 0) {
                f.setFrameStyle(QFrame::NoFrame);
              } else {
                f.setFrameStyle(QFrame::Box | QFrame::Plain);
                f.setLineWidth(1);
              }
              AfterContentChange(f);
            });
    return b.Build();
  }();
  return table;
}

// --- Handles -------------------------------------------------------------------

constexpr const char* kHandleProperty = "kestrelHandle";

QHash<forms::WindowHandle, QPointer<QWidget>>& Handles() {
  static auto* handles = new QHash<forms::WindowHandle, QPointer<QWidget>>();
  return *handles;
}

}  // namespace

double PointsPerPixel(const QWidget* widget) {
  int dpi = widget != nullptr ? widget->logicalDpiX() : 0;
  return 72.0 / (dpi > 0 ? dpi : 96);
}

Value AdapterFor(QWidget* widget) {
  if (widget == nullptr) return Value::Nothing();
  auto it = Adapters().find(widget);
  if (it != Adapters().end()) {
    // An adapter outliving its widget stays registered until released; a new
    // widget at the same address gets a new adapter.
    auto* control = dynamic_cast<ControlAdapter*>(it->second);
    auto* form = dynamic_cast<FormAdapter*>(it->second);
    if ((control != nullptr && control->ref().Alive()) || (form != nullptr && form->ref().Alive()))
      return Value(it->second);
  }
  if (widget->isWindow()) {
    auto form = MakeRef<FormAdapter>(widget);
    form->ref().Register(form.get());
    return Value(form);
  }
  auto control = MakeRef<ControlAdapter>(widget);
  control->ref().Register(control.get());
  return Value(control);
}

forms::WindowHandle HandleOf(QWidget* widget) {
  if (widget == nullptr) return 0;
  QVariant known = widget->property(kHandleProperty);
  if (known.isValid()) return forms::WindowHandle(known.toLongLong());
  // Numbers are never reused, so a stale handle can only miss.
  static forms::WindowHandle next = 0x10000;
  forms::WindowHandle h = next;
  next += 4;
  widget->setProperty(kHandleProperty, qlonglong(h));
  Handles().insert(h, widget);
  QObject::connect(widget, &QObject::destroyed, [h] { Handles().remove(h); });
  return h;
}

QWidget* WidgetFromHandle(forms::WindowHandle handle) {
  auto it = Handles().constFind(handle);
  return it == Handles().constEnd() ? nullptr : it.value().data();
}

}  // namespace kestrel::qt
