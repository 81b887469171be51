#include "kestrel/formats/md5_hash.hpp"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "kestrel/files/text_file.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {
namespace {

constexpr int32_t kAcquireFailed = errors::kObjectErrorBase + 50002;
constexpr int32_t kCreateFailed = errors::kObjectErrorBase + 49970;
constexpr int32_t kHashDataFailed = errors::kObjectErrorBase + 49938;
constexpr int32_t kHashSizeFailed = errors::kObjectErrorBase + 49954;
constexpr int32_t kHashValueFailed = errors::kObjectErrorBase + 49956;

// Raises `number` with libcrypto's most recent error code appended as signed
// 32-bit decimal text, and empties libcrypto's queue so that the next
// failure reports its own code rather than this one.
[[noreturn]] void RaiseCryptoError(int32_t number, std::u16string_view source,
                                   std::u16string_view text) {
  const auto code = static_cast<int32_t>(static_cast<uint32_t>(ERR_peek_last_error()));
  ERR_clear_error();
  std::string digits = std::to_string(code);
  std::u16string description(text);
  description.append(digits.begin(), digits.end());
  Raise(number, source, description);
}

// Closes a descriptor on every way out; close failures on a read-only file
// carry nothing worth reporting.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const noexcept { return fd_; }

 private:
  int fd_;
};

// Fills `buffer` from the file's current position. Bytes past the end of a
// file that shrank since it was measured read as zeros, as a binary read of
// the runtime leaves them; only a failing read raises.
void ReadBlock(int fd, std::span<uint8_t> buffer) {
  size_t done = 0;
  while (done < buffer.size()) {
    ssize_t n = ::read(fd, buffer.data() + done, buffer.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      files::RaiseFileError(errno);
    }
    if (n == 0) {
      std::memset(buffer.data() + done, 0, buffer.size() - done);
      return;
    }
    done += static_cast<size_t>(n);
  }
}

}  // namespace

KESTREL_REGISTER_CLASS(MD5Hash, MD5Hash::kQualifiedName, Instancing::kCreatable);

MD5Hash::MD5Hash() {
  md_ = EVP_MD_fetch(nullptr, "MD5", nullptr);
  if (md_ == nullptr)
    RaiseCryptoError(kAcquireFailed, u"MD5Hash.Class_Initialize",
                     u"Failed to obtain access to CryptoAPI, system error ");
}

MD5Hash::~MD5Hash() {
  // Neither call can fail; teardown never raises.
  EVP_MD_CTX_free(ctx_);
  EVP_MD_free(md_);
}

void MD5Hash::CreateHashObject() {
  // A context left behind by a digest that failed half-way is dropped here:
  // it can never be read again.
  EVP_MD_CTX_free(ctx_);
  ctx_ = EVP_MD_CTX_new();
  if (ctx_ == nullptr || EVP_DigestInit_ex(ctx_, md_, nullptr) != 1)
    RaiseCryptoError(kCreateFailed, u"MD5Hash",
                     u"Failed to create CryptoAPI Hash object, system error ");
}

void MD5Hash::HashBlock(std::span<const uint8_t> bytes) {
  if (EVP_DigestUpdate(ctx_, bytes.data(), bytes.size()) != 1)
    RaiseCryptoError(kHashDataFailed, u"MD5Hash", u"Failed to hash data block, system error ");
}

std::u16string MD5Hash::ReadHashValue() {
  const int size = EVP_MD_CTX_get_size(ctx_);
  if (size <= 0 || size > EVP_MAX_MD_SIZE)
    RaiseCryptoError(kHashSizeFailed, u"MD5Hash",
                     u"Failed to obtain hash value length, system error ");
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(ctx_, digest, &length) != 1)
    RaiseCryptoError(kHashValueFailed, u"MD5Hash", u"Failed to obtain hash value, system error ");

  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  std::u16string text;
  text.reserve(2 * length);
  for (unsigned int i = 0; i < length; ++i) {
    text.push_back(kDigits[digest[i] >> 4]);
    text.push_back(kDigits[digest[i] & 0x0F]);
  }
  EVP_MD_CTX_free(ctx_);
  ctx_ = nullptr;
  return text;
}

std::u16string MD5Hash::HashBytes(std::span<const uint8_t> bytes) {
  CreateHashObject();
  HashBlock(bytes);
  return ReadHashValue();
}

std::u16string MD5Hash::HashBytes(const Value& block) {
  // The parameter is a Byte array by reference: any other kind is a type
  // mismatch, and the bounds of an unallocated or multi-dimensional array
  // are out of range before any byte is fed.
  if (!block.IsArray() || block.kind() != Kind::kByte) RaiseStandard(errors::kTypeMismatch);
  if (block.Dimensions() != 1) RaiseStandard(errors::kSubscriptOutOfRange);
  return HashBytes(block.Bytes());
}

std::u16string MD5Hash::HashFile(const std::string& file_name) {
  // Any failure to read the attributes, not only absence, ends here with
  // "" and no error for the caller.
  struct stat attributes;
  if (::stat(file_name.c_str(), &attributes) != 0) return std::u16string();

  FileDescriptor file(::open(file_name.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) files::RaiseFileError(errno);
  struct stat opened;
  if (::fstat(file.get(), &opened) != 0) files::RaiseFileError(errno);
  // A folder opens for reading on Linux; a binary open of one must fail.
  if (S_ISDIR(opened.st_mode)) files::RaiseFileError(EISDIR);

  const auto length = static_cast<uint64_t>(opened.st_size);
  const uint64_t blocks = length / kFileBlockSize;
  const auto remainder = static_cast<size_t>(length - blocks * kFileBlockSize);

  CreateHashObject();
  std::vector<uint8_t> buffer(kFileBlockSize);
  for (uint64_t i = 0; i < blocks; ++i) {
    ReadBlock(file.get(), buffer);
    HashBlock(buffer);
  }
  if (remainder > 0) {
    std::span<uint8_t> last(buffer.data(), remainder);
    ReadBlock(file.get(), last);
    HashBlock(last);
  }
  return ReadHashValue();
}

const DispatchTable<MD5Hash>& MD5Hash::Dispatch() {
  using T = DispatchTable<MD5Hash>;
  static const T table =
      T::Builder(u"MD5Hash")
          .Method(u"HashFile", 1, 1,
                  [](MD5Hash& self, Args& a) { return Value(self.HashFile(ToUtf8(a.Text(0)))); })
          .Method(u"HashBytes", 1, 1,
                  [](MD5Hash& self, Args& a) { return Value(self.HashBytes(a[0])); })
          .Build();
  return table;
}

}  // namespace kestrel
