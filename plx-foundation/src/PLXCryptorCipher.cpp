#include <algorithm>
#include <cstring>
#include <utility>

#include "PLXAssert.h"
#include "PLXCAST5.h"
#include "PLXCryptor.h"

namespace {

char const ourSourceFile[] = "src/PLXCryptorCipher.cpp";

PLXUInt8 const* Bytes(PLXBuffer const& buffer_i) {
  return static_cast<PLXUInt8 const*>(buffer_i.GetAddress());
}
PLXUInt8* Bytes(PLXBuffer& buffer_io) { return static_cast<PLXUInt8*>(buffer_io.GetAddress()); }

// A key of any length, cut or filled up with zeros.
struct Key {
  Key(void const* key_i, PLXUInt32 keyLength_i) {
    if (keyLength_i > 0) std::memcpy(bytes, key_i, std::min(keyLength_i, PLXCAST5::kKeySize));
  }
  explicit Key(PLXBuffer const& key_i) : Key(key_i.GetAddress(), key_i.GetSize()) {}
  ~Key() { explicit_bzero(bytes, sizeof bytes); }
  PLXUInt8 bytes[PLXCAST5::kKeySize] = {};
};

PLXBuffer Message(PLXBuffer const& content_i, Key const& key_i, bool padWithSpaces_i) {
  PLX_ASSERT_STATE(content_i.GetSize() <= PLXCAST5::kLongestContent);
  PLXCAST5 cipher(key_i.bytes, 128);
  if (padWithSpaces_i) cipher.SetPadByte(' ');
  PLXBuffer message(PLXCAST5::CalcEncryptedSize(content_i.GetSize()));
  cipher.Encrypt(Bytes(content_i), content_i.GetSize(), Bytes(message), message.GetSize());
  return message;
}

// The blocks are cleared first, so that what a failed check leaves in them belonged to nothing else.
bool Decipher(PLXBuffer& data_io, Key const& key_i) {
  PLXUInt32 const size = PLXCAST5::CalcDecryptedSize(data_io.GetSize());
  if (size == 0) return false;
  PLXBuffer content(PLXCAST5::WholeBlocks(size), PLXBuffer::kZero);
  PLXCAST5(key_i.bytes, 128).Decrypt(Bytes(data_io), data_io.GetSize(), Bytes(content), content.GetSize());
  data_io = std::move(content);
  return true;
}

}  // namespace

void PLXCryptor::CAST5Cipher(PLXBuffer& data_io, void const* key_i, PLXUInt16 keyLength_i,
                             bool padWithSpaces_i) {
  data_io = Message(data_io, Key(key_i, keyLength_i), padWithSpaces_i);
}

void PLXCryptor::CAST5Cipher(PLXBuffer& data_io, PLXBuffer const& key_i, bool padWithSpaces_i) {
  data_io = Message(data_io, Key(key_i), padWithSpaces_i);
}

void PLXCryptor::CAST5CipherAddNull(PLXBuffer& data_io, void const* key_i, PLXUInt16 keyLength_i,
                                    bool padWithSpaces_i) {
  PLXUInt32 const size = data_io.GetSize();
  PLX_ASSERT_STATE(size < PLXCAST5::kLongestContent);
  data_io.SetSize(size + 1, PLXBuffer::kKeep);
  data_io[size] = 0;
  CAST5Cipher(data_io, key_i, keyLength_i, padWithSpaces_i);
}

bool PLXCryptor::CAST5Decipher(PLXBuffer& data_io, void const* key_i, PLXUInt16 keyLength_i) {
  return Decipher(data_io, Key(key_i, keyLength_i));
}

bool PLXCryptor::CAST5Decipher(PLXBuffer& data_io, PLXBuffer const& key_i) {
  return Decipher(data_io, Key(key_i));
}

void PLXCryptor::CREncrypt(PLXBuffer const& plain_i, PLXString& text_o, void const* key_i,
                           PLXUInt16 keyLength_i) {
  text_o = CREncrypt(plain_i, key_i, keyLength_i);
}

PLXString PLXCryptor::CREncrypt(PLXBuffer const& plain_i, void const* key_i, PLXUInt16 keyLength_i) {
  PLXBuffer const message = Message(plain_i, Key(key_i, keyLength_i), false);
  PLXBufferStream stream(message.GetAddress(), message.GetSize());
  return Base64Encode(stream);
}

bool PLXCryptor::CRDecrypt(PLXString const& text_i, PLXBuffer& plain_o, void const* key_i,
                           PLXUInt16 keyLength_i) {
  PLXStringStream stream(text_i);
  Base64Decode(stream, plain_o);
  return CAST5Decipher(plain_o, key_i, keyLength_i);
}

void PLXCryptor::PGPSymmetricKeyEncrypt(PLXBuffer& data_io, PLXBuffer const& key_i,
                                        PGPSymmetricKeyAlgorithm algorithm_i, bool padWithSpaces_i) {
  if (algorithm_i == kPGPSymmetricKeyAlgorithm_CAST5) CAST5Cipher(data_io, key_i, padWithSpaces_i);
}

void PLXCryptor::PGPSymmetricKeyDecrypt(PLXBuffer& data_io, PLXBuffer const& key_i,
                                        PGPSymmetricKeyAlgorithm algorithm_i) {
  if (algorithm_i == kPGPSymmetricKeyAlgorithm_CAST5) CAST5Decipher(data_io, key_i);
}
