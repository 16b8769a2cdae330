#include <vector>

#include "EncoderTwins.h"
#include "Fuzz.h"
#include "PLXCAST5.h"
#include "PLXCryptor.h"

// A key, the byte that pads and a content, each of the first two ended by a line feed. What is enciphered
// comes back, whole, cut short or damaged exactly as far as cipher feedback says, and agrees with a twin that
// goes block by block. Then the content as a message of somebody else.

namespace {

using Bytes = std::vector<PLXUInt8>;

constexpr std::size_t kLongestContent = 400;  // every cut of the message is tried

Bytes BytesOf(std::string_view text_i) { return {text_i.begin(), text_i.end()}; }

PLXUInt32 Size(Bytes const& bytes_i) { return static_cast<PLXUInt32>(bytes_i.size()); }

// Each block is the message's, with the eight bytes before it enciphered and added.
Bytes DecryptByTwin(PLXCAST5 const& cipher_i, Bytes const& message_i) {
  Bytes content;
  for (std::size_t start = PLXCAST5::kFrameSize; start < message_i.size(); start += 8) {
    PLXUInt32 block[2] = {};
    for (std::size_t index = 0; index < 8; ++index) {
      block[index / 4] = block[index / 4] << 8 | message_i[start - 8 + index];
    }
    cipher_i.EncryptDataBlock(block);
    for (std::size_t index = 0; index < 8 && start + index < message_i.size(); ++index) {
      content.push_back(static_cast<PLXUInt8>(message_i[start + index] ^
                                              (block[index / 4] >> (24 - index % 4 * 8) & 0xFF)));
    }
    PLXUInt32 back[2] = {block[0], block[1]};
    cipher_i.DecryptDataBlock(back);
    cipher_i.EncryptDataBlock(back);
    Require(back[0] == block[0] && back[1] == block[1]);
  }
  return content;
}

bool Decrypt(PLXCAST5 const& cipher_i, Bytes const& message_i, Bytes& content_o) {
  content_o.assign(PLXCAST5::CalcDecryptedSize(Size(message_i)), 0xEE);
  return cipher_i.Decrypt(message_i.data(), Size(message_i), content_o.data(), Size(content_o));
}

void CheckMessage(PLXCAST5 const& cipher_i, Bytes const& content_i, PLXUInt8 padding_i) {
  Bytes message(PLXCAST5::CalcEncryptedSize(Size(content_i)));
  Bytes const untouched = message;
  Require(!cipher_i.Encrypt(content_i.data(), Size(content_i), message.data(), Size(message) - 1));
  Require(message == untouched);
  Require(cipher_i.Encrypt(content_i.data(), Size(content_i), message.data(), Size(message)));
  Bytes padded = content_i;
  padded.resize(message.size() - PLXCAST5::kFrameSize, padding_i);
  Require(padded.size() % 8 == 0 && padded.size() < content_i.size() + 8);
  Bytes content;
  Require(Decrypt(cipher_i, message, content) && content == padded);
  Require(DecryptByTwin(cipher_i, message) == padded);
  for (std::size_t size = 0; size < message.size(); ++size) {
    Bytes const cut(message.begin(), message.begin() + static_cast<long>(size));
    Require(Decrypt(cipher_i, cut, content) == (size >= PLXCAST5::kFrameSize));
    Require(content.empty() || std::equal(content.begin(), content.end(), padded.begin()));
  }
  if (padded.empty()) return;
  // A changed byte changes itself and, scrambled, the block behind its own.
  std::size_t const at = content_i.empty() ? 0 : content_i[0] % padded.size();
  message[PLXCAST5::kFrameSize + at] ^= 0x80;
  Require(Decrypt(cipher_i, message, content));
  for (std::size_t index = 0; index < padded.size(); ++index) {
    bool const isBehind = index / 8 == at / 8 + 1;
    Require(isBehind || content[index] == (padded[index] ^ (index == at ? 0x80 : 0)));
  }
}

void CheckCryptor(std::string const& key_i, std::string const& content_i) {
  auto const keyLength = static_cast<PLXUInt16>(key_i.size());
  std::string padded = content_i;
  for (bool const withSpaces : {false, true}) {
    padded = content_i;
    padded.resize((content_i.size() + 7) / 8 * 8, withSpaces ? ' ' : '\0');
    PLXBuffer data = Plx(content_i);
    PLXCryptor::CAST5Cipher(data, key_i.data(), keyLength, withSpaces);
    Require(data.GetSize() == padded.size() + PLXCAST5::kFrameSize);
    PLXBuffer const key = Plx(key_i);
    PLXCryptor::PGPSymmetricKeyDecrypt(data, key, kPGPSymmetricKeyAlgorithm_CAST5);
    Require(content_i.empty() || Std(data) == padded);
    PLXBuffer withNull = Plx(content_i);
    PLXCryptor::CAST5CipherAddNull(withNull, key_i.data(), keyLength, withSpaces);
    Require(PLXCryptor::CAST5Decipher(withNull, key_i.data(), keyLength));
    Require(std::string(Std(withNull)).starts_with(content_i + '\0'));
  }
  padded.resize(content_i.size());
  padded.resize((content_i.size() + 7) / 8 * 8, '\0');
  PLXString const text = PLXCryptor::CREncrypt(Plx(content_i), key_i.data(), keyLength);
  PLXBuffer plain;
  Require(PLXCryptor::CRDecrypt(text, plain, key_i.data(), keyLength) == !content_i.empty());
  Require(content_i.empty() || Std(plain) == padded);

  // Somebody else's message: whole blocks come of it, or it stays.
  PLXBuffer foreign = Plx(content_i);
  bool const isDeciphered = PLXCryptor::CAST5Decipher(foreign, key_i.data(), keyLength);
  Require(isDeciphered == (content_i.size() > PLXCAST5::kFrameSize));
  Require(isDeciphered ? foreign.GetSize() == (content_i.size() - PLXCAST5::kFrameSize + 7) / 8 * 8
                       : Std(foreign) == content_i);
  PLXStringStream stream(Plx(content_i));
  PLXBuffer decoded;
  PLXCryptor::Base64Decode(stream, decoded);
  bool const isDecrypted = PLXCryptor::CRDecrypt(Plx(content_i), plain, key_i.data(), keyLength);
  Require(isDecrypted == (decoded.GetSize() > PLXCAST5::kFrameSize));
  Require(isDecrypted ? plain.GetSize() % 8 == 0 : Std(plain) == Std(decoded));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view input(reinterpret_cast<char const*>(data_i), size_i);
  std::string key(TakeLine(input).substr(0, 0xFFFF));
  std::string_view const padding = TakeLine(input);
  Bytes const content = BytesOf(input.substr(0, kLongestContent));
  CheckCryptor(key, std::string(content.begin(), content.end()));
  key.resize(PLXCAST5::kKeySize);
  for (int const bits : {40, 80, 128}) {
    PLXCAST5 cipher(BytesOf(key).data(), bits);
    auto const pad = static_cast<PLXUInt8>(padding.empty() ? '\0' : padding[0]);
    cipher.SetPadByte(pad);
    CheckMessage(cipher, content, pad);
    Bytes copy(PLXCAST5::kKeySize);
    Require(!cipher.GetSessionKey(copy.data(), Size(copy) - 1) &&
            cipher.GetSessionKey(copy.data(), Size(copy)));
    Require(copy == BytesOf(key));
  }
  return 0;
}
