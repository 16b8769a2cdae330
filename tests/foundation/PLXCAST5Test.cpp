#include <algorithm>
#include <array>
#include <functional>
#include <gcrypt.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>

#include "EncoderTwins.h"
#include "PLXCAST5.h"
#include "PLXCryptor.h"

namespace {

typedef std::array<PLXUInt32, 2> Block;

std::string const kKey = "\x01\x23\x45\x67\x12\x34\x56\x78\x23\x45\x67\x89\x34\x56\x78\x9A";

std::string RandomBytes(std::size_t size_i) {
  static std::mt19937 random(3);
  std::string bytes(size_i, 0);
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

PLXUInt8 const* Address(std::string const& bytes_i) {
  return reinterpret_cast<PLXUInt8 const*>(bytes_i.data());
}
PLXUInt8* Address(std::string& bytes_io) { return reinterpret_cast<PLXUInt8*>(bytes_io.data()); }
PLXUInt32 Size(std::string const& bytes_i) { return static_cast<PLXUInt32>(bytes_i.size()); }
PLXBuffer Buffer(std::string const& bytes_i) { return static_cast<PLXBuffer>(Plx(bytes_i)); }

std::string Padded(std::string bytes_i, char pad_i = 0) {
  bytes_i.resize((bytes_i.size() + 7) / 8 * 8, pad_i);
  return bytes_i;
}

// The same cipher by other people: feedback that starts with `start_i` and resynchronises after ten bytes.
std::string Peers(decltype(gcry_cipher_encrypt) pass_i, std::string const& key_i, std::string bytes_i,
                  std::string const& start_i = std::string(8, 0)) {
  gcry_check_version(nullptr);
  gcry_cipher_hd_t cipher = nullptr;
  EXPECT_EQ(gcry_cipher_open(&cipher, GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_CFB, GCRY_CIPHER_ENABLE_SYNC), 0u);
  EXPECT_EQ(gcry_cipher_setkey(cipher, key_i.data(), 16), 0u);
  EXPECT_EQ(gcry_cipher_setiv(cipher, start_i.data(), 8), 0u);
  std::size_t const frame = std::min<std::size_t>(bytes_i.size(), 10);
  EXPECT_EQ(pass_i(cipher, bytes_i.data(), frame, nullptr, 0), 0u);
  EXPECT_EQ(gcry_cipher_sync(cipher), 0u);
  EXPECT_EQ(pass_i(cipher, bytes_i.data() + frame, bytes_i.size() - frame, nullptr, 0), 0u);
  gcry_cipher_close(cipher);
  return bytes_i;
}
// Of padded content, the same each time.
std::string PeersMessage(std::string const& key_i, std::string const& content_i) {
  return Peers(gcry_cipher_encrypt, key_i, "prefix!?!?" + content_i);
}

Block Load(std::string const& bytes_i) {
  Block block{};
  for (std::size_t index = 0; index < 8; ++index) {
    block[index / 4] = block[index / 4] << 8 | Address(bytes_i)[index];
  }
  return block;
}

std::string Store(PLXUInt32 const (&block_i)[2]) {
  std::string bytes;
  for (unsigned index = 0; index < 8; ++index) {
    bytes += static_cast<char>(block_i[index / 4] >> (24 - index % 4 * 8));
  }
  return bytes;
}

std::string Through(void (PLXCAST5::*pass_i)(PLXUInt32 (&)[2]) const noexcept, PLXCAST5 const& cipher_i,
                    std::string const& bytes_i) {
  PLXUInt32 block[2] = {Load(bytes_i)[0], Load(bytes_i)[1]};
  (cipher_i.*pass_i)(block);
  return Store(block);
}
auto const Enciphered = std::bind_front(Through, &PLXCAST5::EncryptDataBlock);
auto const Deciphered = std::bind_front(Through, &PLXCAST5::DecryptDataBlock);

std::string KeyOf(PLXCAST5 const& cipher_i) {
  std::string key(16, 0);
  EXPECT_TRUE(cipher_i.GetSessionKey(Address(key), 16));
  return key;
}

bool Decrypt(PLXCAST5 const& cipher_i, std::string const& message_i, std::string& content_io) {
  return cipher_i.Decrypt(Address(message_i), Size(message_i), Address(content_io), Size(content_io));
}

}  // namespace

// ---- Blocks and keys ----

TEST(PLXCAST5, GivesTheVectorsOfTheRFC) {
  std::pair<std::size_t, std::string> const rows[] = {{128, "\x23\x8B\x4F\xE5\x84\x7E\x44\xB2"},
                                                      {80, "\xEB\x6A\x71\x1A\x2C\x02\x27\x1B"},
                                                      {40, "\x7A\xC8\x16\xD1\x6E\x9B\x30\x2E"}};
  for (auto const& [bits, enciphered] : rows) {
    SCOPED_TRACE(bits);
    std::string const key = kKey.substr(0, bits / 8) + std::string(16 - bits / 8, 0);
    PLXCAST5 const cipher(Address(key), static_cast<int>(bits));
    std::string const plain = "\x01\x23\x45\x67\x89\xAB\xCD\xEF";
    EXPECT_EQ(Enciphered(cipher, plain), enciphered);
    EXPECT_EQ(Deciphered(cipher, enciphered), plain);
  }
}

TEST(PLXCAST5, AgreesWithAnotherImplementationBlockByBlock) {
  for (int round = 0; round < 20000; ++round) {
    std::string const key = RandomBytes(16);
    PLXCAST5 const cipher(Address(key), 128);
    std::string const plain = RandomBytes(8);
    std::string const enciphered = Peers(gcry_cipher_encrypt, key, std::string(8, 0), plain);
    ASSERT_EQ(Enciphered(cipher, plain), enciphered);
    ASSERT_EQ(Deciphered(cipher, enciphered), plain);
  }
}

TEST(PLXCAST5, IsMadeOfRoundsThatCanBeTakenOneByOne) {
  for (int const bits : {128, 81, 80, 40}) {
    PLXCAST5 const cipher(Address(RandomBytes(16)), bits);
    std::string const plain = RandomBytes(8);
    auto [left, right] = Load(plain);
    for (int round = 0; round < (bits > 80 ? 16 : 12); ++round) {
      left = std::exchange(right, left ^ cipher.RoundFunction(right, static_cast<short>(round)));
    }
    EXPECT_EQ(Load(Enciphered(cipher, plain)), (Block{right, left})) << bits;
  }
  for (int const round : {16, 17, 32767, -1, -32768}) {
    EXPECT_EQ(PLXCAST5().RoundFunction(0x12345678, static_cast<short>(round)), 0u) << round;
  }
}

TEST(PLXCAST5, MakesKeysOfThreeSizes) {
  PLXCAST5 cipher;
  for (auto const& [bits, randomBytes] : {std::pair(40, 8), std::pair(80, 10), std::pair(128, 16)}) {
    SCOPED_TRACE(bits);
    std::string key;
    std::string seen(16, 0);  // bits that were set in one of twenty keys: no random byte stays without
    for (int round = 0; round < 20; ++round) {
      ASSERT_TRUE(cipher.CreateSessionKey(bits));
      key = KeyOf(cipher);
      std::ranges::transform(seen, key, seen.begin(), std::bit_or<char>());
    }
    EXPECT_EQ(seen.find_last_not_of('\0') + 1, static_cast<std::size_t>(randomBytes));
    EXPECT_EQ(std::ranges::count(seen, '\0'), 16 - randomBytes);
    EXPECT_EQ(Enciphered(cipher, "8 bytes."), Enciphered(PLXCAST5(Address(key), bits), "8 bytes."));
    for (int const none : {0, 39, 64, 127, 129, -128}) EXPECT_FALSE(cipher.CreateSessionKey(none)) << none;
    EXPECT_EQ(KeyOf(cipher), key);
    EXPECT_FALSE(cipher.GetSessionKey(Address(seen), 15));
  }
  EXPECT_NE(KeyOf(PLXCAST5()), KeyOf(PLXCAST5()));
}

// ---- Messages ----

TEST(PLXCAST5Message, AgreesWithAnotherImplementationBothWays) {
  for (std::size_t size = 0; size < 120; ++size) {
    SCOPED_TRACE(size);
    std::string const key = RandomBytes(16);
    PLXCAST5 cipher(Address(key), 128);
    cipher.SetPadByte('p');
    std::string const content = RandomBytes(size);
    std::string const padded = Padded(content, 'p');

    std::string message(padded.size() + 10, 0);
    ASSERT_EQ(PLXCAST5::CalcEncryptedSize(Size(content)), message.size());
    EXPECT_TRUE(cipher.Encrypt(Address(content), Size(content), Address(message), Size(message)));
    std::string const opened = Peers(gcry_cipher_decrypt, key, message);
    EXPECT_EQ(opened.substr(8, 2), opened.substr(6, 2));
    EXPECT_EQ(opened.substr(10), padded);

    std::string read(padded.size(), 0);
    EXPECT_TRUE(Decrypt(cipher, PeersMessage(key, padded), read));
    EXPECT_EQ(read, padded);
  }
}

TEST(PLXCAST5Message, IsNotWrittenWhereItDoesNotFitOrItsCheckFails) {
  std::string const message = PeersMessage(kKey, RandomBytes(16));
  PLXCAST5 cipher(Address(kKey), 128);
  std::string untouched(25, 'u');
  EXPECT_FALSE(cipher.Encrypt(Address(message), 9, Address(untouched), 25));
  // Sizes whose message would wrap round to a small one.
  for (PLXUInt32 const size : {PLXCAST5::kLongestContent + 1, 0xFFFFFFF8, 0xFFFFFFFF}) {
    EXPECT_FALSE(cipher.Encrypt(Address(message), size, Address(untouched), 25)) << size;
  }
  EXPECT_FALSE(cipher.Decrypt(Address(message), 26, Address(untouched), 15));
  for (std::size_t const offset : {0u, 5u, 6u, 7u, 8u, 9u}) {
    std::string damaged = message;
    damaged[offset] ^= 1;
    EXPECT_FALSE(Decrypt(cipher, damaged, untouched)) << offset;
  }
  cipher.SetSessionKey(Address(kKey), 80);
  EXPECT_FALSE(Decrypt(cipher, message, untouched)) << "the right bytes, but fewer rounds";
  EXPECT_EQ(untouched, std::string(25, 'u'));
}

// ---- Buffers and text ----

TEST(PLXCryptorCipher, TakesKeysOfAnyLength) {
  std::string const longKey = RandomBytes(0x10003);  // more than 16 bits count
  for (std::string const& key : {std::string(), std::string("short"), longKey.substr(0, 20), longKey}) {
    SCOPED_TRACE(key.size());
    PLXUInt16 const length = static_cast<PLXUInt16>(std::min<std::size_t>(key.size(), 0xFFFF));
    std::string theirKey = key;
    theirKey.resize(16);
    PLXBuffer data = Buffer("eight888");
    PLXCryptor::CAST5Cipher(data, key.data(), length, false);
    EXPECT_EQ(Peers(gcry_cipher_decrypt, theirKey, Std(data)).substr(10), "eight888");
    EXPECT_TRUE(PLXCryptor::CAST5Decipher(data, Buffer(key)));
    PLXCryptor::CAST5Cipher(data, Buffer(key), false);
    EXPECT_TRUE(PLXCryptor::CAST5Decipher(data, key.data(), length));
    EXPECT_EQ(Std(data), "eight888");
  }
}

TEST(PLXCryptorCipher, LeavesZerosBehindAFailedCheck) {
  std::string message = PeersMessage(kKey, RandomBytes(200));
  message[9] ^= 1;
  for (std::size_t size = 11; size <= message.size(); ++size) {
    static_cast<void>(Buffer(std::string((size - 3) / 8 * 8, 's')));  // whose memory comes next
    PLXBuffer data = Buffer(message.substr(0, size));
    EXPECT_TRUE(PLXCryptor::CAST5Decipher(data, kKey.data(), 16));
    EXPECT_EQ(Std(data), Padded(std::string(size - 10, 0)));
  }
}

TEST(PLXCryptorCipher, KeepsTextInLinesAndNeverTheSameTwice) {
  for (std::size_t const size : {0u, 7u, 8u, 9u, 100u, 5000u}) {  // 100 bytes make whole lines only
    SCOPED_TRACE(size);
    std::string const plain = RandomBytes(size);
    testing::internal::CaptureStderr();
    PLXString const text = PLXCryptor::CREncrypt(Buffer(plain), kKey.data(), 16);
    PLXString other;
    PLXCryptor::CREncrypt(Buffer(plain), other, kKey.data(), 16);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(Std(text), Std(other));
    std::string const message = twin::Base64Decode(Std(text));
    EXPECT_EQ(Std(text), twin::Base64Encode(message, "\r\n"));
    PLXBuffer read;
    EXPECT_EQ(PLXCryptor::CRDecrypt(text, read, kKey.data(), 16), size > 0);
    EXPECT_EQ(Std(read), size > 0 ? Padded(plain) : message);
  }
}

TEST(PLXCryptorCipher, KnowsOneAlgorithmOfOpenPGP) {
  for (int number = 0; number < 256; ++number) {
    bool const isKnown = number == kPGPSymmetricKeyAlgorithm_CAST5;
    PLXBuffer data = Buffer("secret");
    PLXCryptor::PGPSymmetricKeyEncrypt(data, Buffer(kKey), static_cast<PGPSymmetricKeyAlgorithm>(number),
                                       true);
    EXPECT_EQ(data.GetSize(), isKnown ? 18u : 6u) << number;
    PLXCryptor::PGPSymmetricKeyDecrypt(data, Buffer(kKey), static_cast<PGPSymmetricKeyAlgorithm>(number));
    EXPECT_EQ(Std(data), isKnown ? "secret  " : "secret") << number;
  }
}
