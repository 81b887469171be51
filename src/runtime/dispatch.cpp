#include "kestrel/runtime/dispatch.hpp"

#include <map>
#include <mutex>
#include <string>

#include "kestrel/frame/errors.hpp"

namespace kestrel {
namespace detail {

namespace {
char16_t AsciiLower(char16_t c) noexcept {
  return (c >= u'A' && c <= u'Z') ? c + 32 : c;
}
}  // namespace

// Member names are ASCII identifiers, so ASCII folding is exact for every
// name that can match; anything else simply never matches.
int CompareMemberNames(std::u16string_view a, std::u16string_view b) noexcept {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char16_t x = AsciiLower(a[i]), y = AsciiLower(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

namespace {
// Member descriptions by folded class name. Tables are built once, on first
// use, from any thread; the descriptions are never dropped, so the spans
// handed out stay valid.
struct MemberCatalogue {
  std::mutex mutex;
  std::map<std::u16string, std::vector<MemberInfo>> by_class;
};
MemberCatalogue& Catalogue() {
  static MemberCatalogue* catalogue = new MemberCatalogue();  // used by static tables
  return *catalogue;
}
std::u16string FoldName(std::u16string_view name) {
  std::u16string folded(name);
  for (char16_t& c : folded) c = AsciiLower(c);
  return folded;
}
}  // namespace

void PublishMembers(std::u16string_view class_name, std::vector<MemberInfo> members) {
  MemberCatalogue& c = Catalogue();
  std::lock_guard lock(c.mutex);
  c.by_class.try_emplace(FoldName(class_name), std::move(members));
}

void RaiseUnknownMember() {
  RaiseStandard(errors::kMemberNotSupported);
}
void RaiseBadCall() {
  RaiseStandard(errors::kWrongArgumentCount);
}

}  // namespace detail

std::span<const MemberInfo> DescribeMembers(const Object& object) {
  // Asking for the type name builds the class's table, so it is published
  // by the time it is looked up.
  std::u16string key = detail::FoldName(object.TypeName());
  detail::MemberCatalogue& c = detail::Catalogue();
  std::lock_guard lock(c.mutex);
  auto it = c.by_class.find(key);
  if (it == c.by_class.end()) return {};
  return it->second;
}

Value CallByName(Object* object, std::u16string_view name, CallKind kind, std::span<Value> args) {
  if (object == nullptr) RaiseStandard(errors::kObjectVariableNotSet);
  // Keep the object alive for the whole call even if the member drops the
  // caller's last reference to it.
  Ref<Object> hold(object);
  // The enumerator of any collection is reachable by its automation name.
  if (kind != CallKind::kLet && kind != CallKind::kSet && args.empty() &&
      detail::CompareMemberNames(name, u"_NewEnum") == 0) {
    return Value(object->NewEnum());
  }
  return object->Invoke(name, kind, args);
}

Value CallByName(const Value& object, std::u16string_view name, CallKind kind,
                 std::span<Value> args) {
  if (!object.IsObject()) RaiseStandard(errors::kObjectRequired);
  return CallByName(object.object(), name, kind, args);
}

Enumerator::~Enumerator() = default;

bool ValueEnumerator::Next(Value& out) {
  if (Done()) {
    out = Value();
    return false;
  }
  out = items_[position_++];
  return true;
}

const DispatchTable<ValueEnumerator>& ValueEnumerator::Dispatch() {
  static const auto table = EnumeratorDispatchTable<ValueEnumerator>(u"ValueEnumerator");
  return table;
}

void ForEach(Object* collection, void (*fn)(const Value&, void*), void* context) {
  if (collection == nullptr) RaiseStandard(errors::kObjectVariableNotSet);
  Ref<Object> enumerator = collection->NewEnum();
  if (auto* values = dynamic_cast<Enumerator*>(enumerator.get())) {
    Value item;
    while (values->Next(item)) fn(item, context);
    return;
  }
  // Any other enumerator is driven through late binding.
  Value item;
  while (true) {
    Value step =
        CallByName(enumerator.get(), u"Next", CallKind::kMethod, std::span<Value>(&item, 1));
    if (!step.IsNumeric() || step.integer() == 0) break;
    fn(item, context);
  }
}

}  // namespace kestrel
