// The class registry: classes created by qualified name ("Kestrel.Tracer"),
// and the per-thread instances of global classes.
//
// Every public class registers itself once, from its own source file, with
// KESTREL_REGISTER_CLASS. Names match without regard to case. Creating a
// class that is unknown or not creatable raises 429, the runtime's "can't
// create object". A global class has one shared instance per thread,
// created on first use and released when the thread ends; library code that
// calls another global class goes through that instance.
//
//   kestrel::Ref<kestrel::Object> e = kestrel::CreateObject(u"Kestrel.Error");
//   auto& util = kestrel::GlobalInstance<kestrel::Utilities>();
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/object.hpp"

namespace kestrel {

enum class Instancing { kGlobal, kCreatable, kNotCreatable };

class KESTREL_API Registry {
 public:
  using Factory = Ref<Object> (*)();

  static Registry& Instance();

  // Registers or replaces a class. Returns true so it can initialise a static.
  bool Register(std::u16string_view qualified_name, Instancing instancing, Factory factory);
  template <class T>
  bool Register(std::u16string_view qualified_name, Instancing instancing) {
    return Register(qualified_name, instancing, [] { return Ref<Object>(new T()); });
  }

  // A new instance of a global or creatable class; 429 otherwise.
  Ref<Object> Create(std::u16string_view qualified_name) const;
  // This thread's shared instance of a global class; 429 for other classes.
  Ref<Object> Global(std::u16string_view qualified_name) const;
  std::optional<Instancing> Find(std::u16string_view qualified_name) const;
  std::vector<std::u16string> Names() const;

 private:
  Registry() = default;
};

// CreateObject(name): Registry::Instance().Create(name).
KESTREL_API Ref<Object> CreateObject(std::u16string_view qualified_name);

// This thread's instance of a global class T (T::kQualifiedName names it).
template <class T>
T& GlobalInstance() {
  return static_cast<T&>(*Registry::Instance().Global(T::kQualifiedName));
}

}  // namespace kestrel

#define KESTREL_REGISTRY_CONCAT2(a, b) a##b
#define KESTREL_REGISTRY_CONCAT(a, b) KESTREL_REGISTRY_CONCAT2(a, b)
// At namespace scope in the class's .cpp:
//   KESTREL_REGISTER_CLASS(Error, u"Kestrel.Error", kestrel::Instancing::kCreatable);
#define KESTREL_REGISTER_CLASS(Type, qualified_name, instancing)                      \
  [[maybe_unused]] static const bool KESTREL_REGISTRY_CONCAT(kestrel_registered_, \
                                                             __LINE__) =          \
      ::kestrel::Registry::Instance().Register<Type>(qualified_name, instancing)
