#include "PLXCAST5.h"

#include <bit>
#include <cstring>
#include <utility>

#include "PLXCAST5Tables.h"
#include "PLXRandomNumber.h"

namespace {

constexpr PLXUInt32 kMostBitsOfShortKeys = 80;

PLXUInt32 LoadWord(PLXUInt8 const* bytes_i) {
  return static_cast<PLXUInt32>(bytes_i[0]) << 24 | static_cast<PLXUInt32>(bytes_i[1]) << 16 |
         static_cast<PLXUInt32>(bytes_i[2]) << 8 | static_cast<PLXUInt32>(bytes_i[3]);
}

void StoreWord(PLXUInt32 word_i, PLXUInt8* bytes_o) {
  bytes_o[0] = static_cast<PLXUInt8>(word_i >> 24);
  bytes_o[1] = static_cast<PLXUInt8>(word_i >> 16);
  bytes_o[2] = static_cast<PLXUInt8>(word_i >> 8);
  bytes_o[3] = static_cast<PLXUInt8>(word_i);
}

// ---- Key schedule ----

// Sixteen bytes, as four words and one by one.
struct KeyBytes {
  PLXUInt32 words[4];
  PLXUInt32 operator[](unsigned index_i) const { return words[index_i / 4] >> (24 - index_i % 4 * 8) & 255; }
};

template <unsigned number>
PLXUInt32 S(PLXUInt32 byte_i) {
  return kPLXCAST5SBoxes[number - 1][byte_i];
}

inline PLXUInt32 S5678(KeyBytes const& from_i, unsigned a_i, unsigned b_i, unsigned c_i, unsigned d_i) {
  return S<5>(from_i[a_i]) ^ S<6>(from_i[b_i]) ^ S<7>(from_i[c_i]) ^ S<8>(from_i[d_i]);
}

// RFC 2144, section 2.4, makes z from x and x from z in turn. Both steps are the same one once the words of z
// are taken in the order 2, 3, 0, 1.
// Inlined, the words stay in registers: each waits for the bytes of the one before it.
[[gnu::always_inline]] inline KeyBytes Mixed(KeyBytes const& x_i) {
  KeyBytes z{};
  z.words[0] = x_i.words[0] ^ S5678(x_i, 13, 15, 12, 14) ^ S<7>(x_i[8]);
  z.words[1] = x_i.words[2] ^ S5678(z, 0, 2, 1, 3) ^ S<8>(x_i[10]);
  z.words[2] = x_i.words[3] ^ S5678(z, 7, 6, 5, 4) ^ S<5>(x_i[9]);
  z.words[3] = x_i.words[1] ^ S5678(z, 10, 9, 11, 8) ^ S<6>(x_i[11]);
  return z;
}

inline KeyBytes MixedBack(KeyBytes const& z_i) {
  return Mixed({{z_i.words[2], z_i.words[3], z_i.words[0], z_i.words[1]}});
}

// Half of the schedule: sixteen subkeys, and the bytes for the other half to go on with.
void MakeSubKeys(KeyBytes& x_io, PLXUInt32 (&keys_o)[16]) {
  KeyBytes z = Mixed(x_io);
  keys_o[0] = S5678(z, 8, 9, 7, 6) ^ S<5>(z[2]);
  keys_o[1] = S5678(z, 10, 11, 5, 4) ^ S<6>(z[6]);
  keys_o[2] = S5678(z, 12, 13, 3, 2) ^ S<7>(z[9]);
  keys_o[3] = S5678(z, 14, 15, 1, 0) ^ S<8>(z[12]);
  x_io = MixedBack(z);
  keys_o[4] = S5678(x_io, 3, 2, 12, 13) ^ S<5>(x_io[8]);
  keys_o[5] = S5678(x_io, 1, 0, 14, 15) ^ S<6>(x_io[13]);
  keys_o[6] = S5678(x_io, 7, 6, 8, 9) ^ S<7>(x_io[3]);
  keys_o[7] = S5678(x_io, 5, 4, 10, 11) ^ S<8>(x_io[7]);
  z = Mixed(x_io);
  keys_o[8] = S5678(z, 3, 2, 12, 13) ^ S<5>(z[9]);
  keys_o[9] = S5678(z, 1, 0, 14, 15) ^ S<6>(z[12]);
  keys_o[10] = S5678(z, 7, 6, 8, 9) ^ S<7>(z[2]);
  keys_o[11] = S5678(z, 5, 4, 10, 11) ^ S<8>(z[6]);
  x_io = MixedBack(z);
  keys_o[12] = S5678(x_io, 8, 9, 7, 6) ^ S<5>(x_io[3]);
  keys_o[13] = S5678(x_io, 10, 11, 5, 4) ^ S<6>(x_io[7]);
  keys_o[14] = S5678(x_io, 12, 13, 3, 2) ^ S<7>(x_io[8]);
  keys_o[15] = S5678(x_io, 14, 15, 1, 0) ^ S<8>(x_io[13]);
}

// ---- Rounds ----

// The function f of type 1, 2 or 3 (RFC 2144, section 2.2). Sums are grouped so that what does not wait for
// another is computed beside it.
template <unsigned type>
inline PLXUInt32 F(PLXUInt32 data_i, PLXUInt32 mask_i, PLXUInt32 rotation_i) {
  PLXUInt32 sum;
  if constexpr (type == 1) sum = mask_i + data_i;
  if constexpr (type == 2) sum = mask_i ^ data_i;
  if constexpr (type == 3) sum = mask_i - data_i;
  sum = std::rotl(sum, static_cast<int>(rotation_i));
  PLXUInt32 const a = S<1>(sum >> 24);
  PLXUInt32 const b = S<2>(sum >> 16 & 255);
  PLXUInt32 const c = S<3>(sum >> 8 & 255);
  PLXUInt32 const d = S<4>(sum & 255);
  if constexpr (type == 1) return (a ^ b) + (d - c);
  if constexpr (type == 2) return (a - b + c) ^ d;
  if constexpr (type == 3) return ((a + b) ^ c) - d;
}

typedef PLXCAST5SubKeys SubKeys;

// Blocks that go through the rounds side by side. A round of one block is a chain in which every step waits
// for the one before it; the processor fills the waiting time with the other blocks.
template <unsigned count>
struct Blocks {
  PLXUInt32 first[count];
  PLXUInt32 second[count];
};

// Instead of exchanging the halves after each round, every other round works on the other half.
template <unsigned round, unsigned count>
inline void Round(SubKeys const& keys_i, Blocks<count>& blocks_io) {
  PLXUInt32(&target)[count] = round % 2 == 0 ? blocks_io.first : blocks_io.second;
  PLXUInt32 const(&source)[count] = round % 2 == 0 ? blocks_io.second : blocks_io.first;
#pragma GCC unroll 4
  for (unsigned index = 0; index < count; ++index) {
    target[index] ^= F<round % 3 + 1>(source[index], keys_i.masking[round], keys_i.rotation[round]);
  }
}

template <unsigned... round, unsigned count>
inline void Rounds(SubKeys const& keys_i, Blocks<count>& blocks_io,
                   std::integer_sequence<unsigned, round...>) {
  (Round<round>(keys_i, blocks_io), ...);
}

template <unsigned count>
inline void Encipher(SubKeys const& keys_i, Blocks<count>& blocks_io) {
  Rounds(keys_i, blocks_io, std::integer_sequence<unsigned, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11>());
  if (!keys_i.ofShortKey) Rounds(keys_i, blocks_io, std::integer_sequence<unsigned, 12, 13, 14, 15>());
  std::swap(blocks_io.first, blocks_io.second);
}

inline void Decipher(SubKeys const& keys_i, Blocks<1>& block_io) {
  std::swap(block_io.first, block_io.second);
  if (!keys_i.ofShortKey) Rounds(keys_i, block_io, std::integer_sequence<unsigned, 15, 14, 13, 12>());
  Rounds(keys_i, block_io, std::integer_sequence<unsigned, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0>());
}

// ---- Cipher feedback ----

constexpr PLXUInt32 kBlockSize = PLXCAST5::kBlockSize;

// Enciphers `count` blocks and adds them to as many blocks of text. Whichever way the text goes, what is
// enciphered for a block are the eight bytes before it in the message.
template <unsigned count>
inline void AddEnciphered(SubKeys const& keys_i, PLXUInt8 const* feedback_i, PLXUInt8 const* text_i,
                          PLXUInt8* text_o) {
  Blocks<count> blocks;
#pragma GCC unroll 4
  for (unsigned index = 0; index < count; ++index) {
    blocks.first[index] = LoadWord(feedback_i + index * kBlockSize);
    blocks.second[index] = LoadWord(feedback_i + index * kBlockSize + 4);
  }
  Encipher(keys_i, blocks);
#pragma GCC unroll 4
  for (unsigned index = 0; index < count; ++index) {
    StoreWord(blocks.first[index] ^ LoadWord(text_i + index * kBlockSize), text_o + index * kBlockSize);
    StoreWord(blocks.second[index] ^ LoadWord(text_i + index * kBlockSize + 4),
              text_o + index * kBlockSize + 4);
  }
}

// The same with fewer bytes of text than a block has.
void AddEncipheredPart(SubKeys const& keys_i, PLXUInt8 const* feedback_i, PLXUInt8 const* text_i,
                       PLXUInt32 size_i, PLXUInt8* text_o) {
  PLXUInt8 block[kBlockSize] = {};
  std::memcpy(block, text_i, size_i);
  AddEnciphered<1>(keys_i, feedback_i, block, block);
  std::memcpy(text_o, block, size_i);
}

constexpr PLXUInt8 kFirstFeedback[kBlockSize] = {};
constexpr PLXUInt32 kCheckSize = 2;  // bytes at the end of the prefix, which follow it once more

}  // namespace

PLXCAST5::~PLXCAST5() {
  explicit_bzero(myKey, sizeof myKey);
  explicit_bzero(&mySubKeys, sizeof mySubKeys);
}

// ---- Keys ----

bool PLXCAST5::CreateSessionKey(int bits_i) {
  if (bits_i != 40 && bits_i != 80 && bits_i != 128) return false;
  PLXRandomNumber const random;
  myKeyBits = static_cast<PLXUInt32>(bits_i);
  myKey[0] = random.GetNext();
  myKey[1] = random.GetNext();
  myKey[2] = bits_i == 40 ? 0 : random.GetNext();
  if (bits_i == 80) myKey[2] &= 0xFFFF0000;
  myKey[3] = bits_i == 128 ? random.GetNext() : 0;
  CreateSessionSubKeyPairs();
  return true;
}

bool PLXCAST5::SetSessionKey(PLXUInt8 const* key_i, int bits_i) {
  myKeyBits = static_cast<PLXUInt32>(bits_i);
  for (unsigned index = 0; index < 4; ++index) myKey[index] = LoadWord(key_i + 4 * index);
  CreateSessionSubKeyPairs();
  return true;
}

bool PLXCAST5::GetSessionKey(PLXUInt8* key_o, PLXUInt32 capacity_i) const {
  if (capacity_i < kKeySize) return false;
  for (unsigned index = 0; index < 4; ++index) StoreWord(myKey[index], key_o + 4 * index);
  return true;
}

void PLXCAST5::CreateSessionSubKeyPairs() noexcept {
  KeyBytes bytes{{myKey[0], myKey[1], myKey[2], myKey[3]}};
  MakeSubKeys(bytes, mySubKeys.masking);
  MakeSubKeys(bytes, mySubKeys.rotation);
  for (PLXUInt32& rotation : mySubKeys.rotation) rotation &= 31;
  mySubKeys.ofShortKey = myKeyBits <= kMostBitsOfShortKeys;
}

// ---- Messages ----

bool PLXCAST5::Encrypt(PLXUInt8 const* content_i, PLXUInt32 size_i, PLXUInt8* message_o,
                       PLXUInt32 capacity_i) const {
  if (size_i > kLongestContent || capacity_i < CalcEncryptedSize(size_i)) return false;
  PLXUInt8 prefix[kBlockSize];
  PLXRandomNumber().Fill(prefix, kBlockSize);
  AddEnciphered<1>(mySubKeys, kFirstFeedback, prefix, message_o);
  AddEncipheredPart(mySubKeys, message_o, prefix + kBlockSize - kCheckSize, kCheckSize,
                    message_o + kBlockSize);

  message_o += kFrameSize;
  for (; size_i >= kBlockSize; size_i -= kBlockSize, content_i += kBlockSize, message_o += kBlockSize) {
    AddEnciphered<1>(mySubKeys, message_o - kBlockSize, content_i, message_o);
  }
  if (size_i > 0) {
    PLXUInt8 block[kBlockSize];
    std::memset(block, myPadByte, kBlockSize);
    std::memcpy(block, content_i, size_i);
    AddEnciphered<1>(mySubKeys, message_o - kBlockSize, block, message_o);
  }
  return true;
}

bool PLXCAST5::Decrypt(PLXUInt8 const* message_i, PLXUInt32 size_i, PLXUInt8* content_o,
                       PLXUInt32 capacity_i) const {
  if (size_i < kFrameSize || capacity_i < CalcDecryptedSize(size_i)) return false;
  PLXUInt8 prefix[kBlockSize];
  PLXUInt8 check[kCheckSize];
  AddEnciphered<1>(mySubKeys, kFirstFeedback, message_i, prefix);
  AddEncipheredPart(mySubKeys, message_i, message_i + kBlockSize, kCheckSize, check);
  if (std::memcmp(check, prefix + kBlockSize - kCheckSize, kCheckSize) != 0) return false;

  message_i += kFrameSize;
  size_i -= kFrameSize;
  constexpr PLXUInt32 kSideBySide = 4;
  constexpr PLXUInt32 kStep = kSideBySide * kBlockSize;
  for (; size_i >= kStep; size_i -= kStep, message_i += kStep, content_o += kStep) {
    AddEnciphered<kSideBySide>(mySubKeys, message_i - kBlockSize, message_i, content_o);
  }
  for (; size_i >= kBlockSize; size_i -= kBlockSize, message_i += kBlockSize, content_o += kBlockSize) {
    AddEnciphered<1>(mySubKeys, message_i - kBlockSize, message_i, content_o);
  }
  if (size_i > 0) AddEncipheredPart(mySubKeys, message_i - kBlockSize, message_i, size_i, content_o);
  return true;
}

// ---- Blocks ----

void PLXCAST5::EncryptDataBlock(PLXUInt32 (&block_io)[2]) const noexcept {
  Blocks<1> block{{block_io[0]}, {block_io[1]}};
  Encipher(mySubKeys, block);
  block_io[0] = block.first[0];
  block_io[1] = block.second[0];
}

void PLXCAST5::DecryptDataBlock(PLXUInt32 (&block_io)[2]) const noexcept {
  Blocks<1> block{{block_io[0]}, {block_io[1]}};
  Decipher(mySubKeys, block);
  block_io[0] = block.first[0];
  block_io[1] = block.second[0];
}

PLXUInt32 PLXCAST5::RoundFunction(PLXUInt32 data_i, short round_i) const noexcept {
  if (round_i < 0 || round_i >= PLXCAST5SubKeys::kCount) return 0;
  PLXUInt32 const mask = mySubKeys.masking[round_i];
  PLXUInt32 const rotation = mySubKeys.rotation[round_i];
  switch (round_i % 3) {
    case 0:
      return F<1>(data_i, mask, rotation);
    case 1:
      return F<2>(data_i, mask, rotation);
    default:
      return F<3>(data_i, mask, rotation);
  }
}
