#include "kestrel/formats/crypto.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/registry.hpp"
#include "rijndael/rijndael256.hpp"

namespace kestrel {
namespace {

using rijndael::kBlockBytes;
using rijndael::kKeyBytes;

// Length prefix of the frame.
constexpr int64_t kPrefixBytes = 4;
// Ciphertext deciphered per step by DecryptData (a multiple of the block).
constexpr size_t kChunkBytes = size_t{64} << 10;

Value NoElements() {
  return Value::NewArray(Kind::kByte, {Bounds{0, -1}});
}

// Parameters are Byte arrays by reference: nothing else is accepted.
void RequireByteArray(const Value& v) {
  if (!v.IsArray() || v.kind() != Kind::kByte) RaiseStandard(errors::kTypeMismatch);
}

// Elements 0 onward of a one-dimensional array, as read from index 0 up: a
// lower bound above 0 has no element 0.
std::span<const uint8_t> FromIndexZero(const Value& v) {
  if (v.Dimensions() != 1 || v.LBound() > 0) RaiseStandard(errors::kSubscriptOutOfRange);
  const std::span<const uint8_t> all = v.Bytes();
  const auto skip = static_cast<size_t>(-int64_t{v.LBound()});
  return skip <= all.size() ? all.subspan(skip) : std::span<const uint8_t>();
}

// Zero-filled 32 bytes with the password's first 32 bytes over them.
void BuildKey(const Value& password, uint8_t (&key)[kKeyBytes]) {
  std::memset(key, 0, kKeyBytes);
  const std::span<const uint8_t> bytes = FromIndexZero(password);
  if (!bytes.empty()) std::memcpy(key, bytes.data(), std::min(bytes.size(), kKeyBytes));
}

// Wipes a key when it goes out of scope, whichever way that happens.
struct KeyBytes {
  uint8_t bytes[kKeyBytes];
  ~KeyBytes() { explicit_bzero(bytes, sizeof bytes); }
};

}  // namespace

KESTREL_REGISTER_CLASS(Crypto, Crypto::kQualifiedName, Instancing::kCreatable);

Value Crypto::EncryptData(const Value& message, const Value& password) {
  RequireByteArray(message);
  RequireByteArray(password);
  if (!message.IsAllocated() || !password.IsAllocated()) return NoElements();

  KeyBytes key;
  BuildKey(password, key.bytes);
  const std::span<const uint8_t> text = FromIndexZero(message);
  if (text.empty()) RaiseStandard(errors::kSubscriptOutOfRange);

  const auto length = static_cast<int64_t>(text.size());
  const int64_t frame = (length + kPrefixBytes + int64_t{kBlockBytes} - 1) / int64_t{kBlockBytes} *
                        int64_t{kBlockBytes};
  if (frame - 1 > INT32_MAX) RaiseStandard(errors::kOverflow);
  Value result = Value::NewArray(Kind::kByte, {Bounds{0, static_cast<int32_t>(frame - 1)}});
  const std::span<uint8_t> out = result.MutableBytes();
  const auto prefix = static_cast<uint32_t>(length);
  for (int i = 0; i < kPrefixBytes; ++i) out[i] = uint8_t(prefix >> (8 * i));
  std::memcpy(out.data() + kPrefixBytes, text.data(), text.size());
  rijndael::Selected().encrypt(key.bytes, out.data(), out.data(), out.size() / kBlockBytes);
  return result;
}

Value Crypto::DecryptData(const Value& cipher_text, const Value& password) {
  RequireByteArray(cipher_text);
  RequireByteArray(password);
  if (!cipher_text.IsAllocated() || !password.IsAllocated()) return NoElements();
  if (cipher_text.Dimensions() != 1) RaiseStandard(errors::kSubscriptOutOfRange);
  // The element count is taken as upper bound + 1, whatever the lower bound.
  const int64_t count = int64_t{cipher_text.UBound()} + 1;
  if (count % int64_t{kBlockBytes} != 0) return NoElements();

  KeyBytes key;
  BuildKey(password, key.bytes);
  const std::span<const uint8_t> in = FromIndexZero(cipher_text);
  // No frame at all has no length to read.
  if (count <= 0) RaiseStandard(errors::kSubscriptOutOfRange);

  // The frame is deciphered a chunk at a time into a small buffer and the
  // message bytes copied straight into the result: no frame-sized copy.
  const auto total = static_cast<size_t>(count);
  const rijndael::Implementation& cipher = rijndael::Selected();
  std::vector<uint8_t> buffer(std::min(total, kChunkBytes));
  cipher.decrypt(key.bytes, in.data(), buffer.data(), buffer.size() / kBlockBytes);
  uint32_t prefix = 0;
  for (int i = 0; i < kPrefixBytes; ++i) prefix |= uint32_t{buffer[i]} << (8 * i);
  const auto length = static_cast<int64_t>(static_cast<int32_t>(prefix));
  if (length < 0 || length > count - kPrefixBytes) {
    explicit_bzero(buffer.data(), buffer.size());
    return NoElements();
  }
  Value result = Value::NewArray(Kind::kByte, {Bounds{0, static_cast<int32_t>(length) - 1}});
  const std::span<uint8_t> out = result.MutableBytes();
  const auto end = static_cast<size_t>(length + kPrefixBytes);
  for (size_t offset = 0; offset < end; offset += buffer.size()) {
    const size_t size = std::min(buffer.size(), total - offset);
    if (offset > 0)
      cipher.decrypt(key.bytes, in.data() + offset, buffer.data(), size / kBlockBytes);
    // Frame bytes [offset, offset + size) that hold message bytes.
    const size_t from = std::max(offset, size_t{kPrefixBytes});
    const size_t to = std::min(offset + size, end);
    if (from < to)
      std::memcpy(out.data() + (from - kPrefixBytes), buffer.data() + (from - offset), to - from);
  }
  explicit_bzero(buffer.data(), buffer.size());
  return result;
}

const DispatchTable<Crypto>& Crypto::Dispatch() {
  using T = DispatchTable<Crypto>;
  static const T table =
      T::Builder(u"Crypto")
          .Method(u"EncryptData", 2, 2,
                  [](Crypto& self, Args& a) { return self.EncryptData(a[0], a[1]); })
          .Method(u"DecryptData", 2, 2,
                  [](Crypto& self, Args& a) { return self.DecryptData(a[0], a[1]); })
          .Build();
  return table;
}

}  // namespace kestrel
