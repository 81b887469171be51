// The C ABI's object side: enumeration, introspection of classes and
// members, and client objects that answer calls through C callbacks.
#include <optional>
#include <string>
#include <vector>

#include "guard.hpp"
#include "kestrel/c_api.h"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/dispatch.hpp"
#include "kestrel/runtime/registry.hpp"

using kestrel::CallKind;
using kestrel::Object;
using kestrel::Ref;
using kestrel::Value;
using kestrel::c_api::C;
using kestrel::c_api::Guard;
using kestrel::c_api::O;
using kestrel::c_api::V;

namespace {

// The error a client callback recorded before returning its number.
thread_local std::optional<kestrel::RuntimeError> client_error;

// An object of the caller's own: every call goes to its class's invoke
// callback, and the last reference gone, to its release callback.
class ClientObject final : public Object {
 public:
  ClientObject(const kestrel_client_class* klass, void* context)
      : klass_(klass), context_(context) {
    const char* name = klass->type_name ? klass->type_name(context) : nullptr;
    type_name_ = kestrel::FromUtf8(name ? name : "Object");
  }
  ~ClientObject() override {
    if (klass_->release) klass_->release(context_);
  }

  std::u16string_view TypeName() const noexcept override { return type_name_; }

  Value Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) override {
    std::string utf8 = kestrel::ToUtf8(name);
    Value result;
    client_error.reset();
    int32_t number = klass_->invoke(context_, utf8.c_str(), static_cast<int>(kind),
                                    reinterpret_cast<kestrel_value*>(args.data()), args.size(),
                                    reinterpret_cast<kestrel_value*>(&result));
    if (number == 0) return result;
    std::optional<kestrel::RuntimeError> recorded = std::move(client_error);
    client_error.reset();
    if (recorded && recorded->number() == number) throw *recorded;
    kestrel::RaiseStandard(number);
  }

  // For Each over a client object asks it for its enumerator by name.
  Ref<Object> NewEnum() override {
    Value e = Invoke(u"_NewEnum", CallKind::kGet, {});
    if (!e.IsObject() || e.object() == nullptr)
      kestrel::RaiseStandard(kestrel::errors::kMemberNotSupported);
    return Ref<Object>(e.object());
  }

  const kestrel_client_class* klass() const noexcept { return klass_; }
  void* context() const noexcept { return context_; }

 private:
  const kestrel_client_class* klass_;
  void* context_;
  std::u16string type_name_;
};

thread_local std::vector<std::string> class_names;
thread_local std::vector<std::string> member_names;

int InstancingCode(kestrel::Instancing instancing) {
  switch (instancing) {
    case kestrel::Instancing::kGlobal:
      return KESTREL_INSTANCING_GLOBAL;
    case kestrel::Instancing::kCreatable:
      return KESTREL_INSTANCING_CREATABLE;
    case kestrel::Instancing::kNotCreatable:
      break;
  }
  return KESTREL_INSTANCING_NOT_CREATABLE;
}

Object& ObjectArg(kestrel_object* object) {
  if (object == nullptr) kestrel::RaiseStandard(kestrel::errors::kObjectVariableNotSet);
  return *O(object);
}

}  // namespace

extern "C" {

int32_t kestrel_enumerate(kestrel_object* object, kestrel_object** enumerator) {
  *enumerator = nullptr;
  return Guard([&] { *enumerator = C(ObjectArg(object).NewEnum().Detach()); });
}

int32_t kestrel_next(kestrel_object* enumerator, kestrel_value* item, int* more) {
  *more = 0;
  return Guard([&] {
    Object& e = ObjectArg(enumerator);
    if (auto* direct = dynamic_cast<kestrel::Enumerator*>(&e)) {
      *more = direct->Next(V(item));
      return;
    }
    // Any other enumerator (a client's own) is driven by name.
    Value step = kestrel::CallByName(&e, u"Next", CallKind::kMethod, std::span<Value>(&V(item), 1));
    *more = step.IsNumeric() && step.integer() != 0;
  });
}

int32_t kestrel_classes(kestrel_class_info* out, size_t capacity, size_t* count) {
  return Guard([&] {
    const kestrel::Registry& registry = kestrel::Registry::Instance();
    std::vector<std::u16string> names = registry.Names();
    class_names.clear();
    for (const std::u16string& name : names) class_names.push_back(kestrel::ToUtf8(name));
    *count = names.size();
    for (size_t i = 0; i < names.size() && i < capacity; ++i) {
      std::optional<kestrel::Instancing> instancing = registry.Find(names[i]);
      out[i].qualified_name = class_names[i].c_str();
      out[i].instancing = InstancingCode(instancing.value_or(kestrel::Instancing::kNotCreatable));
    }
  });
}

int32_t kestrel_type_name(kestrel_object* object, char* buffer, size_t size, size_t* needed) {
  return Guard([&] {
    kestrel::c_api::CopyText(kestrel::ToUtf8(ObjectArg(object).TypeName()), buffer, size, needed);
  });
}

int32_t kestrel_members(kestrel_object* object, kestrel_member_info* out, size_t capacity,
                        size_t* count) {
  return Guard([&] {
    Object& o = ObjectArg(object);
    // A client object's type name is its own business and may well match a
    // library class; it never describes the library's members.
    std::span<const kestrel::MemberInfo> members;
    if (dynamic_cast<ClientObject*>(&o) == nullptr) members = kestrel::DescribeMembers(o);
    member_names.clear();
    for (const kestrel::MemberInfo& m : members) member_names.push_back(kestrel::ToUtf8(m.name));
    *count = members.size();
    for (size_t i = 0; i < members.size() && i < capacity; ++i) {
      const kestrel::MemberInfo& m = members[i];
      out[i].name = member_names[i].c_str();
      out[i].call_kinds = (m.method ? KESTREL_CALL_METHOD : 0) | (m.get ? KESTREL_CALL_GET : 0) |
                          (m.let ? KESTREL_CALL_LET : 0) | (m.set ? KESTREL_CALL_SET : 0);
      out[i].method_min_args = m.method_min;
      out[i].method_max_args = m.method_max;
      out[i].property_min_args = m.prop_min;
      out[i].property_max_args = m.prop_max;
    }
  });
}

kestrel_object* kestrel_client_new(const kestrel_client_class* klass, void* context) {
  Object* created = nullptr;
  Guard([&] {
    if (klass == nullptr || klass->invoke == nullptr)
      kestrel::RaiseStandard(kestrel::errors::kInvalidProcedureCall);
    created = Ref<Object>(new ClientObject(klass, context)).Detach();
  });
  return C(created);
}

void* kestrel_client_context(kestrel_object* object, const kestrel_client_class* klass) {
  auto* client = dynamic_cast<ClientObject*>(O(object));
  return client && client->klass() == klass ? client->context() : nullptr;
}

void kestrel_set_error(int32_t number, const char* source, const char* description) {
  Guard([&] {
    std::u16string text = kestrel::FromUtf8(description ? description : "");
    if (text.empty()) text = kestrel::StandardErrorText(number);
    client_error.emplace(number, kestrel::FromUtf8(source ? source : ""), std::move(text));
  });
}

}  // extern "C"
