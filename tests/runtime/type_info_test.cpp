#include "kestrel/runtime/type_info.hpp"

#include <gtest/gtest.h>

#include <span>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/collection.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::runtime {
namespace {

// An object whose default member is a property without arguments giving
// `property`, or raising `error` when it is not 0.
class Probe : public Object {
 public:
  explicit Probe(Value property, int32_t error = 0) : property_(property), error_(error) {}
  std::u16string_view TypeName() const noexcept override { return u"Probe"; }
  Value Invoke(std::u16string_view, CallKind, std::span<Value>) override {
    if (error_ != 0) RaiseStandard(error_);
    return property_;
  }

 private:
  Value property_;
  int32_t error_;
};

TEST(TypeInfo, TypeNameAndVarType) {
  struct Case {
    Value value;
    std::u16string_view name;
    int32_t var_type;
  };
  // clang-format off
  const Case cases[] = {
      {Value(), u"Empty", 0},               {Value::Null(), u"Null", 1},
      {Value(int16_t{1}), u"Integer", 2},   {Value(int32_t{1}), u"Long", 3},
      {Value(1.0f), u"Single", 4},          {Value(1.0), u"Double", 5},
      {Value::Date(1), u"Date", 7},         {Value(u""), u"String", 8},
      {Value::Nothing(), u"Nothing", 9},    {Value::Missing(), u"Error", 10},
      {Value(false), u"Boolean", 11},       {Value(uint8_t{1}), u"Byte", 17},
      {Value(int64_t{1}), u"LongLong", 20}, {Value::VariantArray({}), u"Variant()", 8204},
      {Value::ByteArray({}), u"Byte()", 8209},
      {Value::UnallocatedArray(Kind::kLong), u"Long()", 8195},
      {Value::NewArray(Kind::kObject, {{0, 1}}), u"Object()", 8201},
      // Item, a collection's default member, needs an index.
      {Value(MakeRef<Collection>()), u"Collection", 9},
      {Value(MakeRef<Probe>(Value(2.5))), u"Probe", 5},
      {Value(MakeRef<Probe>(Value(), errors::kMemberNotSupported)), u"Probe", 9},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(ToUtf8(c.name));
    EXPECT_EQ(TypeName(c.value), c.name);
    EXPECT_EQ(VarType(c.value), c.var_type);
  }
  // A default property's own failure is not hidden.
  EXPECT_RAISES(VarType(Value(MakeRef<Probe>(Value(), errors::kDivisionByZero))),
                errors::kDivisionByZero);
}

TEST(TypeInfo, IsFunctionsFollowTheKindOnly) {
  EXPECT_TRUE(IsArray(Value::UnallocatedArray(Kind::kVariant)));
  EXPECT_FALSE(IsEmpty(Value(u"")));
  EXPECT_FALSE(IsNull(Value()));
  EXPECT_TRUE(IsObject(Value::Nothing()));
  EXPECT_FALSE(IsObject(Value::NewArray(Kind::kObject, {{0, 0}})));
  EXPECT_TRUE(IsError(Value::Missing()));
  EXPECT_FALSE(IsMissing(Value::ErrorCode(5)));
}

}  // namespace
}  // namespace kestrel::runtime
