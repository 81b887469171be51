#include "kestrel/formats/md5_hash.hpp"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel {
namespace {

constexpr std::u16string_view kAbcDigest = u"900150983CD24FB0D6963F7D28E17F72";

// One line of md5_vectors.txt ("hex:..", "rep:HH" or "mod:N") built straight
// into a Byte array 0 .. length-1.
Value VectorMessage(size_t length, const std::string& input) {
  Value block = Value::NewArray(Kind::kByte, {Bounds{0, static_cast<int32_t>(length) - 1}});
  std::span<uint8_t> bytes = block.MutableBytes();
  const std::string arg = input.substr(4);
  if (input.starts_with("hex:")) {
    for (size_t i = 0; i < length; ++i)
      bytes[i] = uint8_t(std::stoi(arg.substr(2 * i, 2), nullptr, 16));
  } else if (input.starts_with("rep:")) {
    std::fill(bytes.begin(), bytes.end(), uint8_t(std::stoi(arg, nullptr, 16)));
  } else {
    const size_t n = std::stoul(arg);
    for (size_t i = 0; i < length; ++i) bytes[i] = uint8_t(i % n);
  }
  return block;
}

TEST(MD5Hash, PublishedVectorsThroughHashBytes) {
  std::ifstream in(KESTREL_TEST_DATA_DIR "/md5_vectors.txt");
  ASSERT_TRUE(in);
  MD5Hash md5;
  std::string line;
  int checked = 0;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    size_t length = 0;
    std::string input, digest;
    fields >> length >> input >> digest;
    SCOPED_TRACE(line.substr(0, 60));
    std::string result = ToUtf8(md5.HashBytes(VectorMessage(length, input)));
    for (char& c : digest) c = char(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(result, digest);
    ++checked;
  }
  EXPECT_EQ(checked, 48);  // every vector line of the file
}

TEST(MD5Hash, HashBytesTakesTheArrayBoundsAsTheyAre) {
  Value abc = Value::NewArray(Kind::kByte, {Bounds{5, 7}});
  std::span<uint8_t> bytes = abc.MutableBytes();
  bytes[0] = 'a', bytes[1] = 'b', bytes[2] = 'c';
  MD5Hash md5;
  EXPECT_EQ(md5.HashBytes(abc), kAbcDigest);
  EXPECT_RAISES(md5.HashBytes(Value::UnallocatedArray(Kind::kByte)), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(md5.HashBytes(Value::NewArray(Kind::kByte, {Bounds{0, 1}, Bounds{0, 1}})),
                errors::kSubscriptOutOfRange);
  EXPECT_RAISES(md5.HashBytes(Value::VariantArray({Value(uint8_t{97})})), errors::kTypeMismatch);
  EXPECT_RAISES(md5.HashBytes(Value(u"abc")), errors::kTypeMismatch);
}

TEST(MD5Hash, HashFileAcrossBlockBoundariesMatchesOneShotDigest) {
  testing::TempFolder folder;
  MD5Hash md5;
  for (size_t size : {0, 1, 16383, 16384, 16385, 2 * 16384, 3 * 16384}) {
    SCOPED_TRACE(size);
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = uint8_t(i % 251);
    std::ofstream(folder.File("data.bin"), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(size));
    unsigned char digest[EVP_MAX_MD_SIZE];
    ASSERT_EQ(EVP_Digest(bytes.data(), size, digest, nullptr, EVP_md5(), nullptr), 1);
    char expected[33];
    for (int i = 0; i < 16; ++i) std::snprintf(expected + 2 * i, 3, "%02X", digest[i]);
    EXPECT_EQ(ToUtf8(md5.HashFile(folder.File("data.bin"))), expected);
  }
}

TEST(MD5Hash, MissingFileIsEmptyFolderIsFileErrorAndMembersCallByName) {
  testing::TempFolder folder;
  Ref<Object> md5 = CreateObject(u"Kestrel.MD5Hash");
  auto hash_file = [&md5](const std::string& path) {
    return CallByName(md5, u"hashfile", CallKind::kMethod, {Value(FromUtf8(path))});
  };
  EXPECT_EQ(hash_file(folder.File("missing.bin")).string(), u"");
  EXPECT_EQ(hash_file(folder.File("missing/below.bin")).string(), u"");
  EXPECT_RAISES(hash_file(folder.path()), errors::kPathFileAccessError);
  const uint8_t abc[] = {'a', 'b', 'c'};
  EXPECT_EQ(CallByName(md5, u"HashBytes", CallKind::kMethod, {Value::ByteArray(abc)}).string(),
            kAbcDigest);
}

TEST(MD5Hash, CreationWithoutMD5RaisesWithLibcryptoErrorCode) {
  // A default property query no provider satisfies makes fetching MD5 fail
  // with libcrypto's "unsupported" code in the EVP library.
  ASSERT_EQ(EVP_set_default_properties(nullptr, "provider=kestrel-none"), 1);
  try {
    MD5Hash md5;
    ADD_FAILURE() << "created without MD5";
  } catch (const RuntimeError& e) {
    const auto code = static_cast<int32_t>(ERR_PACK(ERR_LIB_EVP, 0, ERR_R_UNSUPPORTED));
    EXPECT_EQ(e.number(), int32_t(0x8004C352));
    EXPECT_EQ(e.source(), u"MD5Hash.Class_Initialize");
    EXPECT_EQ(ToUtf8(e.description()),
              "Failed to obtain access to CryptoAPI, system error " + std::to_string(code));
  }
  EVP_set_default_properties(nullptr, "");
  EXPECT_EQ(MD5Hash().HashBytes(Value::ByteArray({})), u"D41D8CD98F00B204E9800998ECF8427E");
}

}  // namespace
}  // namespace kestrel
