#include "kestrel/runtime/dispatch.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "kestrel/runtime/error.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

// A class written the way every library class is: a typed C++ surface plus
// a dispatch table.
class Probe : public Dispatchable<Probe> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"KestrelTest.Probe";

  int32_t counter = 0;
  Value last_optional;

  static const DispatchTable<Probe>& Dispatch() {
    static const auto table =
        DispatchTable<Probe>::Builder(u"Probe")
            .DefaultMember(u"Twice")
            // Optional(required, [optional]): reports what arrived.
            .Method(u"Optional", 1, 2,
                    [](Probe& self, Args& a) {
                      self.last_optional = a[1];
                      return Value(a[1].IsMissing());
                    })
            // Increment(byref n): n = n + 1.
            .Method(u"Increment", 1, 1,
                    [](Probe& self, Args& a) {
                      a[0] = Value(a[0].long_value() + 1);
                      return Value(++self.counter);
                    })
            .Method(u"Sum", 0, kParamArray,
                    [](Probe&, Args& a) {
                      int32_t sum = 0;
                      for (const Value& v : a.Rest(0)) sum += v.long_value();
                      return Value(sum);
                    })
            .Property(
                u"Counter", [](Probe& self, Args&) { return Value(self.counter); },
                [](Probe& self, Args&, const Value& v) { self.counter = v.long_value(); })
            .Get(
                u"Twice", [](Probe&, Args& a) { return Value(a[0].long_value() * 2); }, 1, 1)
            // Length(text As String): a parameter of a fixed kind.
            .Method(u"Length", 1, 1,
                    [](Probe&, Args& a) { return Value(int32_t(a.Text(0).size())); })
            .Build();
    return table;
  }
};

class GlobalProbe : public Dispatchable<GlobalProbe> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"KestrelTest.GlobalProbe";
  static const DispatchTable<GlobalProbe>& Dispatch() {
    static const auto table = DispatchTable<GlobalProbe>::Builder(u"GlobalProbe").Build();
    return table;
  }
};

KESTREL_REGISTER_CLASS(Probe, Probe::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(GlobalProbe, GlobalProbe::kQualifiedName, Instancing::kGlobal);
KESTREL_REGISTER_CLASS(Probe, u"KestrelTest.Hidden", Instancing::kNotCreatable);

// Names ignore case, an Integer Number is kept as a Long, and Raise throws
// every field back to the caller.
TEST(CallByName, ErrorClassByQualifiedName) {
  Ref<Object> error = CreateObject(u"Kestrel.Error");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->TypeName(), u"Error");
  CallByName(error, u"NUMBER", CallKind::kLet, {Value(int16_t{42})});
  Value number = CallByName(error, u"number", CallKind::kGet);
  EXPECT_EQ(number.code(), uint16_t(Kind::kLong));
  EXPECT_EQ(number.long_value(), 42);
  CallByName(error, u"Number", CallKind::kLet, {Value(int32_t{errors::kObjectErrorBase + 7})});
  CallByName(error, u"Source", CallKind::kLet, {Value(u"Module.Proc")});
  CallByName(error, u"Description", CallKind::kLet, {Value(u"It broke")});
  CallByName(error, u"HelpFile", CallKind::kLet, {Value(u"help.chm")});
  CallByName(error, u"HelpContext", CallKind::kLet, {Value(u"17")});
  try {
    CallByName(error, u"Raise", CallKind::kMethod);
    FAIL() << "Raise returned";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), errors::kObjectErrorBase + 7);
    EXPECT_EQ(e.source(), u"Module.Proc");
    EXPECT_EQ(e.description(), u"It broke");
    EXPECT_EQ(e.help_file(), u"help.chm");
    EXPECT_EQ(e.help_context(), 17);
  }
}

// Optional(required, [optional]) reports whether its second argument is Missing.
TEST(CallByName, ArgumentsArriveAsPassed) {
  Ref<Probe> probe = MakeRef<Probe>();
  auto optional = [&](std::vector<Value> args) {
    return CallByName(probe, u"Optional", CallKind::kMethod, std::span<Value>(args)).boolean();
  };
  EXPECT_TRUE(optional({Value(1)}));
  EXPECT_TRUE(probe->last_optional.IsMissing());
  EXPECT_TRUE(optional({Value(1), Value::Missing()}));  // the same as omitted
  EXPECT_FALSE(optional({Value(1), Value()}));          // Empty is not Missing
  EXPECT_TRUE(probe->last_optional.IsEmpty());
  // An explicit Missing reaches a required parameter taken as a Value.
  EXPECT_FALSE(optional({Value::Missing(), Value(2)}));
  EXPECT_EQ(probe->last_optional.long_value(), 2);
  Value n(int32_t{41});
  CallByName(probe, u"Increment", CallKind::kMethod, std::span<Value>(&n, 1));
  EXPECT_EQ(n.long_value(), 42);  // written back by reference
}

TEST(CallByName, MembersAndCallKinds) {
  Ref<Probe> probe = MakeRef<Probe>();
  EXPECT_EQ(
      CallByName(probe, u"Sum", CallKind::kMethod, {Value(1), Value(2), Value(3)}).long_value(), 6);
  EXPECT_EQ(CallByName(probe, u"Sum", CallKind::kMethod).long_value(), 0);
  EXPECT_EQ(CallByName(probe, u"Twice", CallKind::kGet, {Value(21)}).long_value(), 42);
  // An empty name is the default member: probe(21) is probe.Twice(21).
  EXPECT_EQ(CallByName(probe, u"", CallKind::kGet, {Value(21)}).long_value(), 42);
  // A method may be read as a property and a property called as a method.
  EXPECT_EQ(CallByName(probe, u"Increment", CallKind::kGet, {Value(0)}).long_value(), 1);
  EXPECT_EQ(CallByName(probe, u"Counter", CallKind::kMethod).long_value(), 1);
  CallByName(probe, u"Counter", CallKind::kLet, {Value(9)});
  EXPECT_EQ(probe->counter, 9);
}

TEST(CallByName, Refusals) {
  Ref<Probe> probe = MakeRef<Probe>();
  using enum CallKind;
  using namespace errors;
  struct Case {
    const char* what;
    std::u16string_view member;
    CallKind kind;
    std::vector<Value> args;
    int32_t error;
  };
  // clang-format off
  const Case cases[] = {
      {"unknown member", u"Nope", kMethod, {}, kMemberNotSupported},
      {"too many arguments", u"Optional", kMethod, {Value(1), Value(2), Value(3)},
       kWrongArgumentCount},
      {"too few arguments", u"Twice", kGet, {}, kArgumentNotOptional},
      {"Missing for a String parameter", u"Length", kMethod, {Value::Missing()},
       kArgumentNotOptional},
      {"Null for a String parameter", u"Length", kMethod, {Value::Null()}, kInvalidUseOfNull},
      {"let on a read-only property", u"Twice", kLet, {Value(1), Value(2)}, kWrongArgumentCount},
      {"set on a let-only property", u"Counter", kSet, {Value(1)}, kWrongArgumentCount},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<Value> args = c.args;
    EXPECT_RAISES(CallByName(probe, c.member, c.kind, std::span<Value>(args)), c.error);
  }
  EXPECT_RAISES(CallByName(static_cast<Object*>(nullptr), u"X", kGet), kObjectVariableNotSet);
  EXPECT_RAISES(CallByName(Value(1), u"X", kGet), kObjectRequired);
}

TEST(Registry, CreatesByNameWithoutRegardToCase) {
  EXPECT_TRUE(CreateObject(u"kestreltest.PROBE"));
  EXPECT_RAISES(CreateObject(u"KestrelTest.Unknown"), errors::kCannotCreateObject);
  EXPECT_RAISES(CreateObject(u"KestrelTest.Hidden"), errors::kCannotCreateObject);
  EXPECT_EQ(Registry::Instance().Find(u"KestrelTest.Hidden"), Instancing::kNotCreatable);
  // A global class may also be created explicitly; that is a new instance.
  EXPECT_NE(CreateObject(GlobalProbe::kQualifiedName).get(), &GlobalInstance<GlobalProbe>());
  EXPECT_RAISES(Registry::Instance().Global(Probe::kQualifiedName), errors::kCannotCreateObject);
}

TEST(Registry, OneGlobalInstancePerThread) {
  GlobalProbe* main = &GlobalInstance<GlobalProbe>();
  EXPECT_EQ(&GlobalInstance<GlobalProbe>(), main);
  EXPECT_EQ(Registry::Instance().Global(u"kestreltest.globalprobe").get(), main);
  GlobalProbe *other_first = nullptr, *other_second = nullptr;
  std::thread([&] {
    other_first = &GlobalInstance<GlobalProbe>();
    other_second = &GlobalInstance<GlobalProbe>();
  }).join();
  EXPECT_EQ(other_first, other_second);
  EXPECT_NE(main, other_first);
}

}  // namespace
}  // namespace kestrel
