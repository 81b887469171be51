// Crypto: the first byte says how many of the bytes that follow (0 to 63)
// are the password; the rest is the message. Any message round-trips
// exactly through EncryptData and DecryptData, in a frame of the length the
// message implies. The whole input given to DecryptData as ciphertext
// gives an array without elements or a message that fits its frame; only an
// empty ciphertext may raise, and only 9.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include "kestrel/formats/crypto.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"

using namespace kestrel;

namespace {

bool HasNoElements(const Value& v) {
  return v.IsAllocated() && v.LBound() == 0 && v.UBound() == -1;
}

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t password_size = std::min<size_t>(data[0] % 64, size - 1);
  const std::span<const uint8_t> password(data + 1, password_size);
  const std::span<const uint8_t> message(data + 1 + password_size, size - 1 - password_size);
  const Value pw = Value::ByteArray(password);
  Crypto crypto;

  if (!message.empty()) {
    const Value sealed = crypto.EncryptData(Value::ByteArray(message), pw);
    const size_t frame = (message.size() + 4 + 31) / 32 * 32;
    Check(sealed.Bytes().size() == frame && sealed.LBound() == 0);
    const Value opened = crypto.DecryptData(sealed, pw);
    Check(opened.LBound() == 0 && opened.Bytes().size() == message.size() &&
          std::memcmp(opened.Bytes().data(), message.data(), message.size()) == 0);
  }

  const std::span<const uint8_t> whole(data, size);
  const Value opened = crypto.DecryptData(Value::ByteArray(whole), pw);
  Check(HasNoElements(opened) ||
        (size % 32 == 0 && opened.LBound() == 0 && opened.Bytes().size() + 4 <= size));
  try {
    crypto.DecryptData(Value::ByteArray({}), pw);
    std::abort();
  } catch (const RuntimeError& e) {
    Check(e.number() == errors::kSubscriptOutOfRange);
  }
  return 0;
}
