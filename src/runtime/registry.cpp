#include "kestrel/runtime/registry.hpp"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "kestrel/frame/errors.hpp"

namespace kestrel {
namespace {

struct Entry {
  std::u16string name;  // as registered
  Instancing instancing;
  Registry::Factory factory;
};

// Qualified names are ASCII ("Kestrel.Tracer") and match without regard to
// case, as automation class names do.
std::u16string Fold(std::u16string_view name) {
  std::u16string key(name);
  for (char16_t& c : key)
    if (c >= u'A' && c <= u'Z') c += 32;
  return key;
}

struct State {
  mutable std::shared_mutex mutex;
  std::map<std::u16string, Entry> entries;  // folded name -> entry

  const Entry* Find(std::u16string_view name) const {
    auto it = entries.find(Fold(name));
    return it == entries.end() ? nullptr : &it->second;
  }
};

State& GetState() {
  static State* state = new State();  // never destroyed: used by static registrars
  return *state;
}

}  // namespace

Registry& Registry::Instance() {
  static Registry registry;
  return registry;
}

bool Registry::Register(std::u16string_view qualified_name, Instancing instancing,
                        Factory factory) {
  State& s = GetState();
  std::unique_lock lock(s.mutex);
  s.entries[Fold(qualified_name)] = Entry{std::u16string(qualified_name), instancing, factory};
  return true;
}

Ref<Object> Registry::Create(std::u16string_view qualified_name) const {
  Factory factory = nullptr;
  {
    State& s = GetState();
    std::shared_lock lock(s.mutex);
    const Entry* e = s.Find(qualified_name);
    if (e == nullptr || e->instancing == Instancing::kNotCreatable)
      RaiseStandard(errors::kCannotCreateObject);
    factory = e->factory;
  }
  return factory();
}

Ref<Object> Registry::Global(std::u16string_view qualified_name) const {
  // One instance per thread and class, released when the thread ends.
  thread_local std::unordered_map<std::u16string, Ref<Object>> instances;
  std::u16string key = Fold(qualified_name);
  auto it = instances.find(key);
  if (it != instances.end()) return it->second;
  Factory factory = nullptr;
  {
    State& s = GetState();
    std::shared_lock lock(s.mutex);
    const Entry* e = s.Find(qualified_name);
    if (e == nullptr || e->instancing != Instancing::kGlobal)
      RaiseStandard(errors::kCannotCreateObject);
    factory = e->factory;
  }
  Ref<Object> instance = factory();
  instances.emplace(std::move(key), instance);
  return instance;
}

std::optional<Instancing> Registry::Find(std::u16string_view qualified_name) const {
  State& s = GetState();
  std::shared_lock lock(s.mutex);
  const Entry* e = s.Find(qualified_name);
  if (e == nullptr) return std::nullopt;
  return e->instancing;
}

std::vector<std::u16string> Registry::Names() const {
  State& s = GetState();
  std::shared_lock lock(s.mutex);
  std::vector<std::u16string> names;
  for (const auto& [key, entry] : s.entries) names.push_back(entry.name);
  return names;
}

Ref<Object> CreateObject(std::u16string_view qualified_name) {
  return Registry::Instance().Create(qualified_name);
}

}  // namespace kestrel
