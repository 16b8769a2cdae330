#pragma once

#include "PLXObject.h"

// What the rounds of CAST-128 take from its key.
struct PLXCAST5SubKeys {
  static constexpr int kCount = 16;
  PLXUInt32 masking[kCount];
  PLXUInt32 rotation[kCount];  // 0 to 31
  bool ofShortKey;             // use the first twelve
};

// The block cipher CAST-128 (RFC 2144) with its key, and messages made of it as OpenPGP frames them: cipher
// feedback over a random prefix, with a resynchronisation behind it (RFC 4880, section 13.9).
//
// A message is, enciphered: eight random bytes, the last two of them once more to tell a wrong key by, and
// the content, padded to whole blocks of eight bytes. The same content never gives the same message twice.
//
// A key always is 16 bytes long; its size in bits (40, 80 or 128) says how many of them count and how many
// rounds a block takes: 12 up to 80 bits, otherwise 16. Whoever uses a shorter key fills it up with zeros.
// The key is wiped from memory with the object.
//
// Any number of threads may encipher and decipher with one object while no thread changes its key or pad
// byte.
class PLXCAST5 : public PLXObject {
 public:
  static constexpr PLXUInt32 kBlockSize = 8;   // bytes
  static constexpr PLXUInt32 kKeySize = 16;    // bytes
  static constexpr PLXUInt32 kFrameSize = 10;  // bytes by which a message is longer than its padded content

  // With a random key of 128 bits.
  PLXCAST5() { CreateSessionKey(128); }
  // With the given key; see SetSessionKey.
  PLXCAST5(PLXUInt8 const* key_i, int bits_i) { SetSessionKey(key_i, bits_i); }
  PLXCAST5(PLXCAST5 const&) = delete;
  PLXCAST5& operator=(PLXCAST5 const&) = delete;
  virtual ~PLXCAST5();

  // Makes a random key of 40, 80 or 128 bits. A key of 40 bits has 64 random ones; it takes 12 rounds all the
  // same. False, and nothing changes, for any other size.
  bool CreateSessionKey(int bits_i);
  // Takes the kKeySize bytes of the key. Always true.
  bool SetSessionKey(PLXUInt8 const* key_i, int bits_i);
  // Writes the kKeySize bytes of the key. False, and nothing is written, into fewer than that.
  bool GetSessionKey(PLXUInt8* key_o, PLXUInt32 capacity_i) const;
  // What fills the last block of a message's content; 0 unless told otherwise.
  void SetPadByte(PLXUInt8 byte_i) noexcept { myPadByte = byte_i; }

  // Contents beyond this many bytes would make a message beyond what 32 bits count.
  static constexpr PLXUInt32 kLongestContent = (0xFFFFFFFF - kFrameSize) / kBlockSize * kBlockSize;
  // `size_i` bytes, rounded up to whole blocks.
  static constexpr PLXUInt32 WholeBlocks(PLXUInt32 size_i) noexcept {
    return (size_i + (kBlockSize - 1)) / kBlockSize * kBlockSize;
  }
  // Bytes of the message that holds `size_i` bytes of content. Requires: no more than kLongestContent.
  static constexpr PLXUInt32 CalcEncryptedSize(PLXUInt32 size_i) noexcept {
    return WholeBlocks(size_i) + kFrameSize;
  }
  // Bytes of content, padding included, in a message of `size_i` bytes.
  static constexpr PLXUInt32 CalcDecryptedSize(PLXUInt32 size_i) noexcept {
    return size_i < kFrameSize ? 0 : size_i - kFrameSize;
  }

  // Writes the message that holds the content: CalcEncryptedSize(size_i) bytes, in memory that does not
  // overlap the content. False, and nothing is written, where they do not fit, or the content is beyond
  // kLongestContent.
  bool Encrypt(PLXUInt8 const* content_i, PLXUInt32 size_i, PLXUInt8* message_o, PLXUInt32 capacity_i) const;
  // Writes the content of a message: CalcDecryptedSize(size_i) bytes, in memory that does not overlap the
  // message. A message that was cut short gives what came before the cut. False, and nothing is written,
  // where the content does not fit, the message lacks part of its frame, or the frame tells a wrong key or
  // damage.
  bool Decrypt(PLXUInt8 const* message_i, PLXUInt32 size_i, PLXUInt8* content_o, PLXUInt32 capacity_i) const;

  // One block in place, as two halves of which the first holds the first four bytes, big-endian.
  void EncryptDataBlock(PLXUInt32 (&block_io)[2]) const noexcept;
  void DecryptDataBlock(PLXUInt32 (&block_io)[2]) const noexcept;
  // The function f of one round, counted from 0: types 1, 2 and 3 in turn. 0 for a round beyond the
  // sixteenth.
  PLXUInt32 RoundFunction(PLXUInt32 data_i, short round_i) const noexcept;

 private:
  void CreateSessionSubKeyPairs() noexcept;

  PLXUInt32 myKeyBits = 0;
  PLXUInt32 myKey[4] = {};  // big-endian
  PLXCAST5SubKeys mySubKeys = {};
  PLXUInt8 myPadByte = 0;
};
