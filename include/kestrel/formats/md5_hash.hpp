// MD5Hash: the MD5 digest of a file or of a Byte array, as 32 upper-case
// hexadecimal digits.
//
// The digest itself comes from OpenSSL's libcrypto. Each instance holds the
// fetched MD5 algorithm for its whole life and starts a fresh digest context
// for every hash. Every libcrypto step that can fail raises its own error on
// the object-error base, with libcrypto's error code as signed decimal text
// at the end of the description:
//
//   fetching MD5 (creation)   base + 50002  "MD5Hash.Class_Initialize"
//   starting a digest         base + 49970  "MD5Hash"
//   feeding a block           base + 49938  "MD5Hash"
//   reading the digest size   base + 49954  "MD5Hash"
//   reading the digest        base + 49956  "MD5Hash"
//
// HashFile returns "" for a path whose attributes cannot be read (a missing
// file, for one) and raises nothing then; once the file is found, file
// errors reach the caller (a folder raises 75). HashBytes takes a
// one-dimensional Byte array and hashes it from its lower to its upper
// bound: 13 for anything that is not a Byte array, 9 for an unallocated or
// multi-dimensional one. Not thread-safe per object.
//
//   auto md5 = kestrel::MakeRef<kestrel::MD5Hash>();
//   md5->HashBytes(kestrel::Value::ByteArray(bytes));  // u"900150983CD2..." for "abc"
//   md5->HashFile("/etc/hostname");
//
// Dispatchable as HashFile(FileName) and HashBytes(Block); registered as
// Kestrel.MD5Hash.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

// libcrypto's types, kept out of the public headers' includes.
struct evp_md_st;
struct evp_md_ctx_st;

namespace kestrel {

class KESTREL_API MD5Hash : public Dispatchable<MD5Hash> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.MD5Hash";

  // Bytes read and fed per call by HashFile.
  static constexpr size_t kFileBlockSize = 16384;

  MD5Hash();
  ~MD5Hash() override;
  MD5Hash(const MD5Hash&) = delete;
  MD5Hash& operator=(const MD5Hash&) = delete;

  // Digest of the file's bytes; "" when the file's attributes cannot be read.
  std::u16string HashFile(const std::string& file_name);
  // Digest of every element of a Byte array, lower to upper bound.
  std::u16string HashBytes(const Value& block);
  // Digest of raw bytes (what HashBytes does once the array is checked).
  std::u16string HashBytes(std::span<const uint8_t> bytes);

  static const DispatchTable<MD5Hash>& Dispatch();

 private:
  void CreateHashObject();
  void HashBlock(std::span<const uint8_t> bytes);
  std::u16string ReadHashValue();

  evp_md_st* md_ = nullptr;
  evp_md_ctx_st* ctx_ = nullptr;
};

}  // namespace kestrel
