// Crypto: encrypts and decrypts Byte arrays with a password, using Rijndael
// with a 256-bit block and a 256-bit key, coded in the library (no platform
// cryptography). Blocks are enciphered one by one, without chaining or
// initialisation vector.
//
// The key is 32 zero bytes with the first (up to) 32 bytes of the password
// copied over them, so passwords that agree in their first 32 bytes are the
// same key. The ciphertext is the encrypted frame: the message length as a
// 4-byte little-endian signed integer, the message, and zero bytes up to a
// whole number of 32-byte blocks (1 to 28 bytes give 32, 29 to 60 give 64).
// DecryptData returns exactly the bytes that were encrypted.
//
// Unusable input gives an array without elements (a Byte array 0 to -1) and
// no error: an array that was never dimensioned, ciphertext whose length is
// not a multiple of 32, or a decrypted length out of range (what a wrong
// password almost always produces). Both arrays are read from index 0 up:
// a lower bound above 0, an empty message, or a multi-dimensional array
// raise 9; anything but a Byte array raises 13. Arguments are never changed.
//
// The cipher runs in constant time: on x86-64 CPUs with AES-NI it runs on
// the AES instructions, elsewhere on a bitsliced implementation; setting
// KESTREL_CRYPTO_PORTABLE=1 in the environment before the first call forces
// the latter. Tables a table-driven cipher would build on every call do not
// exist here (the S-box is computed arithmetically on every byte); only the
// key schedule is computed per call.
//
//   kestrel::Crypto crypto;
//   kestrel::Value secret = crypto.EncryptData(message, password);  // 32 bytes for "hello"
//   kestrel::Value clear = crypto.DecryptData(secret, password);     // "hello" again
//
// Dispatchable as EncryptData(bytMessage, bytPassword) and
// DecryptData(bytIn, bytPassword); registered as Kestrel.Crypto.
#pragma once

#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API Crypto : public Dispatchable<Crypto> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Crypto";

  // The encrypted frame of `message` (a positive multiple of 32 bytes).
  Value EncryptData(const Value& message, const Value& password);
  // The message of an encrypted frame, or an array without elements.
  Value DecryptData(const Value& cipher_text, const Value& password);

  static const DispatchTable<Crypto>& Dispatch();
};

}  // namespace kestrel
