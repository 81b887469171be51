#include "kestrel/formats/crypto.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kestrel/runtime/registry.hpp"
#include "rijndael/rijndael256.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

using Bytes = std::vector<uint8_t>;

std::vector<const rijndael::Implementation*> Implementations() {
  std::vector<const rijndael::Implementation*> all{&rijndael::Portable()};
  if (rijndael::AesNi() != nullptr) all.push_back(rijndael::AesNi());
  return all;
}

Bytes FromHex(const std::string& hex) {
  Bytes out(hex.size() / 2);
  for (size_t i = 0; i < out.size(); ++i)
    out[i] = uint8_t(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
  return out;
}

Value Text(std::string_view s) {
  return Value::ByteArray({reinterpret_cast<const uint8_t*>(s.data()), s.size()});
}

Bytes Of(const Value& v) {
  return Bytes(v.Bytes().begin(), v.Bytes().end());
}

bool HasNoElements(const Value& v) {
  return v.code() == (kArrayFlag | uint16_t(Kind::kByte)) && v.IsAllocated() && v.LBound() == 0 &&
         v.UBound() == -1;
}

// The frame as the cipher sees it, recovered with the portable
// implementation and the zero-padded key.
Bytes OpenFrame(const Value& cipher_text, std::string_view password) {
  uint8_t key[rijndael::kKeyBytes] = {};
  std::memcpy(key, password.data(), std::min(password.size(), sizeof key));
  Bytes frame = Of(cipher_text);
  rijndael::Portable().decrypt(key, frame.data(), frame.data(), frame.size() / 32);
  return frame;
}

TEST(Crypto, PublishedVectorsThroughEachImplementation) {
  for (const rijndael::Implementation* impl : Implementations()) {
    SCOPED_TRACE(impl->name);
    std::ifstream in(KESTREL_TEST_DATA_DIR "/rijndael256_vectors.txt");
    ASSERT_TRUE(in);
    std::string line;
    int checked = 0;
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream fields(line);
      std::string source, key, plain, cipher;
      int iterations = 0;
      fields >> source >> iterations >> key >> plain >> cipher;
      SCOPED_TRACE(source);
      const Bytes k = FromHex(key), expected = FromHex(cipher);
      Bytes block = FromHex(plain);
      for (int i = 0; i < iterations; ++i) impl->encrypt(k.data(), block.data(), block.data(), 1);
      EXPECT_EQ(block, expected);
      for (int i = 0; i < iterations; ++i) impl->decrypt(k.data(), block.data(), block.data(), 1);
      EXPECT_EQ(block, FromHex(plain));
      ++checked;
    }
    EXPECT_EQ(checked, 1035);  // every vector line of the file
  }
}

TEST(Crypto, ImplementationsAgreeOnRandomRuns) {
  const auto impls = Implementations();
  if (impls.size() < 2) GTEST_SKIP() << "this CPU has one implementation";
  std::mt19937 random(20261123);
  for (int run = 0; run < 40; ++run) {
    Bytes key(32), plain(32 * (1 + random() % 19));  // odd and even counts, past 4 in flight
    for (uint8_t& b : key) b = uint8_t(random());
    for (uint8_t& b : plain) b = uint8_t(random());
    Bytes portable(plain.size()), fast(plain.size());
    impls[0]->encrypt(key.data(), plain.data(), portable.data(), plain.size() / 32);
    impls[1]->encrypt(key.data(), plain.data(), fast.data(), plain.size() / 32);
    ASSERT_EQ(portable, fast) << "run " << run;
    impls[0]->decrypt(key.data(), fast.data(), portable.data(), plain.size() / 32);
    impls[1]->decrypt(key.data(), fast.data(), fast.data(), plain.size() / 32);
    ASSERT_EQ(portable, plain) << "run " << run;
    ASSERT_EQ(fast, plain) << "run " << run;
  }
}

TEST(Crypto, FrameIsLengthMessageAndZeroPadding) {
  Crypto crypto;
  for (const auto& [length, size] : {std::pair{1, 32}, {28, 32}, {29, 64}, {60, 64}, {61, 96}}) {
    SCOPED_TRACE(length);
    std::string message(size_t(length), 'm');
    message.front() = 'a', message.back() = 'z';
    const Value sealed = crypto.EncryptData(Text(message), Text("pw"));
    ASSERT_EQ(sealed.UBound() + 1, size);
    Bytes expected(size_t(size), 0);
    expected[0] = uint8_t(length);
    std::memcpy(expected.data() + 4, message.data(), message.size());
    EXPECT_EQ(OpenFrame(sealed, "pw"), expected);
    EXPECT_EQ(Of(crypto.DecryptData(sealed, Text("pw"))), Of(Text(message)));
  }
}

TEST(Crypto, RoundTripsThroughEncryptAndDecrypt) {
  Crypto crypto;
  std::mt19937 random(7);
  for (int run = 0; run < 30; ++run) {
    Bytes message(1 + random() % 300), password(random() % 40);
    for (uint8_t& b : message) b = uint8_t(random());
    for (uint8_t& b : password) b = uint8_t(random());
    const Value m = Value::ByteArray(message), p = Value::ByteArray(password);
    const Value sealed = crypto.EncryptData(m, p);
    EXPECT_EQ(Of(crypto.DecryptData(sealed, p)), message) << "run " << run;
    EXPECT_EQ(Of(m), message);  // arguments never change
    EXPECT_EQ(Of(p), password);
  }
  // Frames of exactly one 64 KiB step, one block over it, and several steps.
  for (const size_t length : {65532, 65533, 200000}) {
    Bytes message(length);
    for (uint8_t& b : message) b = uint8_t(random());
    const Value sealed = crypto.EncryptData(Value::ByteArray(message), Text("pw"));
    EXPECT_EQ(Of(crypto.DecryptData(sealed, Text("pw"))), message) << length;
  }
}

TEST(Crypto, KeyIsFirst32PasswordBytesAndBlocksAreNotChained) {
  Crypto crypto;
  const std::string long_pw(32, 'k');
  // 28 + 32 + 32 bytes: frame blocks 1 and 2 are both 32 'x'.
  const Value message = Text(std::string(28, 'a') + std::string(64, 'x'));
  const Bytes sealed = Of(crypto.EncryptData(message, Text(long_pw + "one")));
  EXPECT_EQ(Bytes(sealed.begin() + 32, sealed.begin() + 64),
            Bytes(sealed.begin() + 64, sealed.end()));
  EXPECT_NE(Bytes(sealed.begin(), sealed.begin() + 32),
            Bytes(sealed.begin() + 32, sealed.begin() + 64));
  EXPECT_EQ(Of(crypto.EncryptData(message, Text(long_pw + "two"))), sealed);
  EXPECT_EQ(Of(crypto.EncryptData(message, Text(long_pw))), sealed);
  EXPECT_NE(Of(crypto.EncryptData(message, Text(long_pw.substr(1)))), sealed);

  // A dimensioned password of zeros and an empty one are the all-zero key.
  const Value zeros = Value::NewArray(Kind::kByte, {Bounds{0, 9}});
  const Value zero_sealed = crypto.EncryptData(Text("hi"), zeros);
  EXPECT_EQ(OpenFrame(zero_sealed, std::string(32, '\0'))[4], 'h');
  EXPECT_EQ(Of(crypto.EncryptData(Text("hi"), Value::ByteArray({}))), Of(zero_sealed));
}

TEST(Crypto, UnusableInputGivesAnArrayWithoutElements) {
  Crypto crypto;
  const Value sealed = crypto.EncryptData(Text("attack at dawn"), Text("right"));
  const Value unallocated = Value::UnallocatedArray(Kind::kByte);
  Bytes stretched = Of(sealed);
  stretched.push_back(0);
  const Value rows[][2] = {
      {unallocated, Text("pw")},  // never dimensioned
      {sealed, unallocated},
      {Value::ByteArray(stretched), Text("right")},  // 33 bytes
      {Value::ByteArray(Bytes(31)), Text("right")},
      {sealed, Text("wrong")},  // length out of range
  };
  for (const auto& [in, pw] : rows) {
    SCOPED_TRACE(in.IsAllocated() ? in.UBound() + 1 : -1);
    EXPECT_TRUE(HasNoElements(crypto.DecryptData(in, pw)));
  }
  EXPECT_TRUE(HasNoElements(crypto.EncryptData(unallocated, Text("pw"))));
  EXPECT_TRUE(HasNoElements(crypto.EncryptData(Text("m"), unallocated)));
}

TEST(Crypto, ArraysNotReadableFromIndexZeroRaise) {
  Crypto crypto;
  const Value from_one = Value::NewArray(Kind::kByte, {Bounds{1, 32}});
  const Value empty = Value::ByteArray({});
  const Value square = Value::NewArray(Kind::kByte, {Bounds{0, 31}, Bounds{0, 1}});
  const Value sealed = crypto.EncryptData(Text("m"), Text("pw"));
  struct Row {
    bool encrypt;
    Value in, pw;
    int32_t error;
  };
  const Row rows[] = {
      {true, from_one, Text("pw"), errors::kSubscriptOutOfRange},
      {true, Text("m"), from_one, errors::kSubscriptOutOfRange},
      {true, empty, Text("pw"), errors::kSubscriptOutOfRange},
      {true, square, Text("pw"), errors::kSubscriptOutOfRange},
      // 1 to 31: upper bound + 1 is a whole block, so element 0 is read.
      {false, Value::NewArray(Kind::kByte, {Bounds{1, 31}}), Text("pw"),
       errors::kSubscriptOutOfRange},
      {false, sealed, from_one, errors::kSubscriptOutOfRange},
      {false, empty, Text("pw"), errors::kSubscriptOutOfRange},
      {true, Value(u"m"), Text("pw"), errors::kTypeMismatch},
      {false, sealed, Value::VariantArray({Value(int16_t{1})}), errors::kTypeMismatch},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    if (row.encrypt)
      EXPECT_RAISES(crypto.EncryptData(row.in, row.pw), row.error);
    else
      EXPECT_RAISES(crypto.DecryptData(row.in, row.pw), row.error);
  }
  // Negative lower bounds are fine: element 0 onward is what counts.
  Value shifted = Value::NewArray(Kind::kByte, {Bounds{-2, 1}});
  std::memcpy(shifted.MutableBytes().data(), "xxok", 4);
  EXPECT_EQ(Of(crypto.DecryptData(crypto.EncryptData(shifted, Text("pw")), Text("pw"))),
            Of(Text("ok")));
}

TEST(Crypto, MembersCallByName) {
  Ref<Object> crypto = CreateObject(u"Kestrel.Crypto");
  const Value sealed =
      CallByName(crypto, u"encryptdata", CallKind::kMethod, {Text("late bound"), Text("pw")});
  EXPECT_EQ(sealed.UBound(), 31);
  EXPECT_EQ(Of(CallByName(crypto, u"DecryptData", CallKind::kMethod, {sealed, Text("pw")})),
            Of(Text("late bound")));
}

}  // namespace
}  // namespace kestrel
