#pragma once

#include "PLXBuffer.h"
#include "PLXDataStream.h"
#include "PLXString.h"

// The symmetric ciphers of OpenPGP (RFC 4880, section 9.2), by their numbers in its packets. Any other number
// of eight bits may come along.
enum PGPSymmetricKeyAlgorithm : PLXUInt8 {
  kPGPSymmetricKeyAlgorithm_Plaintext = 0,
  kPGPSymmetricKeyAlgorithm_IDEA = 1,
  kPGPSymmetricKeyAlgorithm_TripleDES = 2,
  kPGPSymmetricKeyAlgorithm_CAST5 = 3,
  kPGPSymmetricKeyAlgorithm_Blowfish = 4,
  kPGPSymmetricKeyAlgorithm_AES128 = 7,
  kPGPSymmetricKeyAlgorithm_AES192 = 8,
  kPGPSymmetricKeyAlgorithm_AES256 = 9,
  kPGPSymmetricKeyAlgorithm_Twofish = 10,
};

// Encodings that carry binary data through mail and HTTP: Base64 (RFC 2045, section 6.8) and quoted-printable
// (section 6.7). And a cipher for what is to be kept from being read where it is stored.
//
// Static functions only, without state: any thread may call them on data of its own. Time and memory are
// linear in the data. An encoding never fails, whatever the bytes.
class PLXCryptor {
 public:
  // ---- Base64 ----
  // Lines of 76 characters. The first two forms read the stream to its end and write the line end, CR LF
  // unless told otherwise, after every full line, also when it is the last.
  static PLXString Base64Encode(PLXDataStream& stream_io, PLXString const& lineEnd_i);
  static PLXString Base64Encode(PLXDataStream& stream_io);
  // These write CR LF between the lines and nothing after the last. Both warn on the standard error stream
  // when the text is not as long as foreseen: when it is whole lines only, or the stream ends before
  // `byteCount_i` bytes.
  static PLXString Base64Encode(PLXDataStream& stream_io, PLXUInt32 byteCount_i);
  static PLXString Base64Encode(PLXBuffer const& data_i);
  // What Base64Encode returns, behind a text that must not be the stream's own.
  static void AppendBase64(PLXDataStream& stream_io, PLXString& text_io);
  static void AppendBase64(PLXDataStream& stream_io, PLXUInt32 byteCount_i, PLXString& text_io);

  // Read the stream to its end into a buffer of just the bytes found. CR and LF are skipped between groups of
  // four characters; within one, and like any byte outside the alphabet, they count as "A". "=" as a group's
  // third or fourth character leaves out the second or third byte and ends nothing. A group cut short by the
  // end is dropped.
  static void Base64Decode(PLXDataStream& stream_io, PLXBuffer& data_o);
  // The line end changes nothing: CR and LF are skipped in any order.
  static void Base64Decode(PLXDataStream& stream_io, PLXString const& lineEnd_i, PLXBuffer& data_o);

  // ---- Quoted-printable ----
  // Lines are broken by "=" CR LF once they are longer than 72 columns. CR and LF pass; a blank or tab before
  // one is kept from being lost on the way by such a break.
  static PLXString QuotedPrintableEncode(PLXString const& text_i);
  // White space at the end of each line is removed, then "=" at its end joins it to the next. Digits of
  // either case are taken; any other byte after "=" counts as the digit 0. An "=" with fewer than two
  // characters after it in its line stays as text.
  static PLXString QuotedPrintableDecode(PLXString const& text_i);

  // ---- CAST5 ----
  // Data becomes a message of PLXCAST5 and the other way round, in place. Of the key the first 16 bytes
  // count; a shorter one is filled up with zeros. The message does not tell the length of its content: the
  // padding, spaces or zeros, comes back with it. Nor is it protected from being changed.
  // Requires: data of less than PLXCAST5::kLongestContent bytes.
  static void CAST5Cipher(PLXBuffer& data_io, void const* key_i, PLXUInt16 keyLength_i, bool padWithSpaces_i);
  static void CAST5Cipher(PLXBuffer& data_io, PLXBuffer const& key_i, bool padWithSpaces_i);
  // With a zero byte added to the data first.
  static void CAST5CipherAddNull(PLXBuffer& data_io, void const* key_i, PLXUInt16 keyLength_i,
                                 bool padWithSpaces_i);
  // The data becomes whole blocks of eight bytes. They are zeros where a message was cut short, and all of
  // them when the message is damaged at its start or the key is wrong. False, and the data stays, only for a
  // message without content: 10 bytes or fewer.
  static bool CAST5Decipher(PLXBuffer& data_io, void const* key_i, PLXUInt16 keyLength_i);
  static bool CAST5Decipher(PLXBuffer& data_io, PLXBuffer const& key_i);

  // The message, padded with zeros, as Base64 text with CR LF after every full line. Never the same text
  // twice.
  static void CREncrypt(PLXBuffer const& plain_i, PLXString& text_o, void const* key_i,
                        PLXUInt16 keyLength_i);
  static PLXString CREncrypt(PLXBuffer const& plain_i, void const* key_i, PLXUInt16 keyLength_i);
  // False for a message without content, which the buffer then holds as it is; otherwise as CAST5Decipher.
  static bool CRDecrypt(PLXString const& text_i, PLXBuffer& plain_o, void const* key_i,
                        PLXUInt16 keyLength_i);

  // The forms above for kPGPSymmetricKeyAlgorithm_CAST5; every other algorithm leaves the data as it is.
  static void PGPSymmetricKeyEncrypt(PLXBuffer& data_io, PLXBuffer const& key_i,
                                     PGPSymmetricKeyAlgorithm algorithm_i, bool padWithSpaces_i);
  static void PGPSymmetricKeyDecrypt(PLXBuffer& data_io, PLXBuffer const& key_i,
                                     PGPSymmetricKeyAlgorithm algorithm_i);
};
