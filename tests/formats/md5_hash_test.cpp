#include "kestrel/formats/md5_hash.hpp"

#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
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

std::string Upper(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::toupper(c); });
  return s;
}

// Byte i of the generated messages: i mod n.
std::vector<uint8_t> ModBytes(size_t length, size_t n) {
  std::vector<uint8_t> bytes(length);
  for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<uint8_t>(i % n);
  return bytes;
}

// Builds the message of one vector line straight into a Byte array.
Value VectorMessage(size_t length, const std::string& input) {
  Value block = Value::NewArray(Kind::kByte, {Bounds{0, static_cast<int32_t>(length) - 1}});
  std::span<uint8_t> bytes = block.MutableBytes();
  const std::string arg = input.substr(4);
  if (input.starts_with("hex:")) {
    for (size_t i = 0; i < length; ++i)
      bytes[i] = static_cast<uint8_t>(std::stoi(arg.substr(2 * i, 2), nullptr, 16));
  } else if (input.starts_with("rep:")) {
    std::fill(bytes.begin(), bytes.end(), static_cast<uint8_t>(std::stoi(arg, nullptr, 16)));
  } else {
    std::vector<uint8_t> mod = ModBytes(length, std::stoul(arg));
    std::copy(mod.begin(), mod.end(), bytes.begin());
  }
  return block;
}

TEST(MD5Hash, PublishedVectorsThroughHashBytes) {
  std::ifstream in(KESTREL_TEST_DATA_DIR "/md5_vectors.txt");
  ASSERT_TRUE(in) << "md5_vectors.txt not found";
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
    EXPECT_EQ(ToUtf8(md5.HashBytes(VectorMessage(length, input))), Upper(digest));
    ++checked;
  }
  EXPECT_EQ(checked, 48);  // every vector line of the file
}

TEST(MD5Hash, HashBytesHashesFromLowerToUpperBound) {
  Value block = Value::NewArray(Kind::kByte, {Bounds{5, 7}});
  std::span<uint8_t> bytes = block.MutableBytes();
  bytes[0] = 'a', bytes[1] = 'b', bytes[2] = 'c';
  MD5Hash md5;
  EXPECT_EQ(md5.HashBytes(block), u"900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(block.LBound(), 5);  // the caller's array is left as it was
}

TEST(MD5Hash, HashBytesRefusesWhatIsNotAOneDimensionalByteArray) {
  struct Case {
    const char* name;
    Value block;
    int32_t error;
  };
  const Case cases[] = {
      {"unallocated", Value::UnallocatedArray(Kind::kByte), errors::kSubscriptOutOfRange},
      {"two dimensions", Value::NewArray(Kind::kByte, {Bounds{0, 1}, Bounds{0, 1}}),
       errors::kSubscriptOutOfRange},
      {"Variant array", Value::VariantArray({Value(uint8_t{97})}), errors::kTypeMismatch},
      {"string", Value(u"abc"), errors::kTypeMismatch},
  };
  MD5Hash md5;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_RAISES(md5.HashBytes(c.block), c.error);
  }
}

TEST(MD5Hash, HashFileMatchesOneShotDigestAcrossBlockBoundaries) {
  testing::TempFolder folder;
  MD5Hash md5;
  for (size_t size : {size_t{0}, size_t{1}, size_t{16383}, size_t{16384}, size_t{32768},
                      size_t{49152}, size_t{16385}}) {
    SCOPED_TRACE(size);
    std::vector<uint8_t> bytes = ModBytes(size, 251);
    const std::string path = folder.File("data.bin");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(size));
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    ASSERT_EQ(EVP_Digest(bytes.data(), size, digest, &length, EVP_md5(), nullptr), 1);
    std::string expected;
    char hex[3];
    for (unsigned int i = 0; i < length; ++i) {
      std::snprintf(hex, sizeof hex, "%02X", digest[i]);
      expected += hex;
    }
    EXPECT_EQ(ToUtf8(md5.HashFile(path)), expected);
  }
  std::ofstream(folder.File("empty"), std::ios::binary).flush();
  EXPECT_EQ(md5.HashFile(folder.File("empty")), u"D41D8CD98F00B204E9800998ECF8427E");
}

TEST(MD5Hash, HashFileOfMissingPathIsEmptyAndOfFolderIsFileError) {
  testing::TempFolder folder;
  MD5Hash md5;
  EXPECT_EQ(md5.HashFile(folder.File("missing.bin")), u"");
  EXPECT_EQ(md5.HashFile(folder.File("missing/below.bin")), u"");
  EXPECT_RAISES(md5.HashFile(folder.path()), errors::kPathFileAccessError);
}

TEST(MD5Hash, CallableByName) {
  Ref<Object> md5 = CreateObject(u"Kestrel.MD5Hash");
  const uint8_t abc[] = {'a', 'b', 'c'};
  Value block = Value::ByteArray(abc);
  EXPECT_EQ(CallByName(md5, u"HashBytes", CallKind::kMethod, {block}).string(),
            u"900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(CallByName(md5, u"hashfile", CallKind::kMethod, {Value(u"/no/such/file")}).string(),
            u"");
}

}  // namespace
}  // namespace kestrel
