// Plain late-bound stand-ins for a form, its controls and their fonts: the
// only doubles the resizer's logic needs. Every property is a stored Value;
// reading one never set raises 438, as a real control does for a member it
// lacks. The form's inside size is its outer size less a fixed frame.
#pragma once

#include <algorithm>
#include <cctype>
#include <map>
#include <string>
#include <vector>

#include "kestrel/forms/events.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::forms::testing {

class PropertyObject : public Object {
 public:
  std::u16string_view TypeName() const noexcept override { return u"PropertyObject"; }
  Value Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) override {
    const std::u16string key = Fold(name);
    if (kind == CallKind::kLet || kind == CallKind::kSet) {
      Put(key, args.back());
      return Value();
    }
    return Call(key, args);
  }
  Value& operator[](std::u16string_view name) { return props_[Fold(name)]; }
  float Number(std::u16string_view name) { return runtime::ToSingle((*this)[name]); }

 protected:
  virtual Value Call(const std::u16string& key, std::span<Value>) {
    auto it = props_.find(key);
    if (it == props_.end()) RaiseStandard(errors::kMemberNotSupported);
    return it->second;
  }
  virtual void Put(const std::u16string& key, const Value& v) { props_[key] = v; }
  static std::u16string Fold(std::u16string_view name) {
    std::u16string k(name);
    for (char16_t& c : k)
      if (c < 128) c = static_cast<char16_t>(std::tolower(static_cast<int>(c)));
    return k;
  }

 private:
  std::map<std::u16string, Value> props_;
};

class FakeControl : public PropertyObject, public EventSource {
 public:
  FakeControl(std::u16string_view name, float left, float top, float width, float height) {
    (*this)[u"Name"] = Value(name);
    (*this)[u"Left"] = Value(left);
    (*this)[u"Top"] = Value(top);
    (*this)[u"Width"] = Value(width);
    (*this)[u"Height"] = Value(height);
    (*this)[u"Font"] = Value(font);
  }
  void Advise(const Ref<Object>& handler) override { events.Add(handler); }
  void Unadvise(const Object* handler) override { events.Remove(handler); }
  // Fires a mouse event as the toolkit would: (Button, Shift, X, Y).
  void Mouse(std::u16string_view event, int16_t button, float x, float y) {
    events.Raise(event, {Value(button), Value(int16_t{0}), Value(x), Value(y)});
  }

  Ref<PropertyObject> font = MakeRef<PropertyObject>();
  EventHandlers events;
  int z_order_calls = 0;

 protected:
  Value Call(const std::u16string& key, std::span<Value> args) override {
    if (key == u"move") {
      (*this)[u"Left"] = Value(runtime::ToSingle(args[0]));
      (*this)[u"Top"] = Value(runtime::ToSingle(args[1]));
      return Value();
    }
    if (key == u"zorder") {
      ++z_order_calls;
      return Value();
    }
    return PropertyObject::Call(key, args);
  }
};

class FakeControls : public PropertyObject {
 public:
  std::vector<Ref<FakeControl>> items;
  // What Add creates: an auto-sized label of this size.
  float new_width = 12, new_height = 14;

  Ref<Object> NewEnum() override {
    std::vector<Value> v(items.begin(), items.end());
    return MakeRef<ValueEnumerator>(std::move(v));
  }
  FakeControl* Find(std::u16string_view name) {
    for (auto& c : items)
      if ((*c)[u"Name"].string() == name) return c.get();
    return nullptr;
  }

 protected:
  Value Call(const std::u16string& key, std::span<Value> args) override {
    if (key == u"add") {
      auto c = MakeRef<FakeControl>(runtime::ToText(args[1]), 0, 0, new_width, new_height);
      (*c)[u"ProgID"] = args[0];
      (*c)[u"Visible"] = args[2];
      items.push_back(c);
      return Value(c);
    }
    if (key == u"remove") {
      auto it = std::find_if(items.begin(), items.end(), [&](const Ref<FakeControl>& c) {
        return (*c)[u"Name"].string() == args[0].string();
      });
      if (it == items.end()) RaiseStandard(errors::kInvalidProcedureCall);
      items.erase(it);
      return Value();
    }
    return PropertyObject::Call(key, args);
  }
};

class FakeForm : public PropertyObject {
 public:
  static constexpr float kFrameWidth = 4, kFrameHeight = 20;

  FakeForm(float width, float height) {
    (*this)[u"Width"] = Value(width);
    (*this)[u"Height"] = Value(height);
    (*this)[u"Controls"] = Value(controls);
  }
  FakeControl& Add(std::u16string_view name, float left, float top, float width, float height) {
    controls->items.push_back(MakeRef<FakeControl>(name, left, top, width, height));
    return *controls->items.back();
  }

  Ref<FakeControls> controls = MakeRef<FakeControls>();

 protected:
  Value Call(const std::u16string& key, std::span<Value> args) override {
    if (key == u"insidewidth") return Value(Number(u"Width") - kFrameWidth);
    if (key == u"insideheight") return Value(Number(u"Height") - kFrameHeight);
    return PropertyObject::Call(key, args);
  }
};

}  // namespace kestrel::forms::testing
