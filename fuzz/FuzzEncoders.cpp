#include <algorithm>
#include <string>

#include "EncoderTwins.h"
#include "Fuzz.h"
#include "PLXCryptor.h"
#include "PLXStringUtility.h"

// Any bytes through every encoder and decoder: what is encoded comes back, decoders agree with their
// step-by-step twins, and a stream gives what a buffer gives.

namespace {

class SlowStream : public PLXDataStream {
 public:
  explicit SlowStream(std::string const& data_i) : myData(data_i) {}
  bool GetNextByte(PLXUInt8& byte_o) override {
    if (myPosition == myData.size()) return false;
    byte_o = static_cast<PLXUInt8>(myData[myPosition++]);
    return true;
  }

 private:
  std::string const& myData;
  std::size_t myPosition = 0;
};

std::string Decoded(PLXDataStream& stream_io) {
  PLXBuffer data;
  PLXCryptor::Base64Decode(stream_io, data);
  return Std(data);
}

PLXBufferStream StreamOver(std::string const& data_i) {
  return PLXBufferStream(data_i.data(), static_cast<PLXUInt32>(data_i.size()));
}

void CheckBase64(std::string const& bytes_i) {
  PLXBufferStream stream = StreamOver(bytes_i);
  std::string const encoded = Std(PLXCryptor::Base64Encode(stream));
  Require(encoded == twin::Base64Encode(bytes_i, "\r\n"));
  SlowStream slow(bytes_i);
  Require(Std(PLXCryptor::Base64Encode(slow)) == encoded);
  // A text of full lines only would warn on the standard error stream at every turn.
  if ((bytes_i.size() + 2) / 3 * 4 % 76 != 0) {
    Require(Std(PLXCryptor::Base64Encode(static_cast<PLXBuffer>(Plx(bytes_i)))) == encoded);
  }
  PLXBufferStream back = StreamOver(encoded);
  Require(Decoded(back) == bytes_i);

  PLXBufferStream anything = StreamOver(bytes_i);
  std::string const decoded = Decoded(anything);
  Require(decoded == twin::Base64Decode(bytes_i));
  SlowStream slowAnything(bytes_i);
  Require(Decoded(slowAnything) == decoded);
}

void CheckQuotedPrintable(std::string const& bytes_i) {
  Require(Std(PLXCryptor::QuotedPrintableDecode(Plx(bytes_i))) == twin::QuotedPrintableDecode(bytes_i));
  // Whole lines come back; a line feed or return by itself, or a blank at the very end, does not.
  std::string text = bytes_i;
  std::erase(text, '\r');
  for (std::size_t position = 0; (position = text.find('\n', position)) != std::string::npos; position += 2) {
    text.insert(position, 1, '\r');
  }
  text += "\r\n";
  PLXString const encoded = PLXCryptor::QuotedPrintableEncode(Plx(text));
  Require(Std(PLXCryptor::QuotedPrintableDecode(encoded)) == text);
}

void CheckText(std::string const& bytes_i) {
  PLXString const text = Plx(bytes_i);
  for (bool const all : {false, true}) {
    Require(PLXStringUtility::GetURLDecodedString(PLXStringUtility::GetURLEncodedString(text, all)) == text);
    Require(Std(PLXStringUtility::GetUnescapedString(text, all)) == twin::Unescape(bytes_i, all));
  }
  Require(Std(PLXStringUtility::GetURLDecodedString(text)) == twin::URLDecode(bytes_i));
  Require(PLXStringUtility::GetUnescapedString(PLXStringUtility::GetEscapedString(text), true) == text);
  Require(PLXStringUtility::GetStringFromHexCodes(PLXStringUtility::GetHexCodesFromString(text)) == text);
  Require(PLXStringUtility::GetStringFromHexCodes(text).GetLength() == text.GetLength() / 2);
  Require(PLXStringUtility::GetHTMLDecodedString(text).GetLength() <= text.GetLength());
  bool const hasUnnamed = std::any_of(bytes_i.begin(), bytes_i.end(), [](char character_i) {
    return static_cast<unsigned char>(character_i) >= 0x80 && static_cast<unsigned char>(character_i) < 0xA0;
  });
  if (!hasUnnamed) {
    Require(PLXStringUtility::GetHTMLDecodedString(PLXStringUtility::GetHTMLEncodedString(text)) == text);
  }
}

void CheckNumbers(std::string const& bytes_i) {
  PLXString const text = Plx(bytes_i);
  unsigned const radix = bytes_i.empty() ? 10 : static_cast<unsigned char>(bytes_i[0]) % 40;
  int const value = PLXStringUtility::GetNumericalRepresentation(text, radix);
  PLXString const written = PLXStringUtility::GetStringRepresentation(value, radix, radix + 1);
  if (radix >= 2 && radix <= 36) {
    Require(PLXStringUtility::GetNumericalRepresentation(written, radix) == value);
  }
  double const number = PLXStringUtility::GetNumericalRepresentation(text);
  Require(PLXStringUtility::GetStringRepresentation(number, radix).GetLength() >= 3);
  PLXString pattern;
  PLXStringUtility::ValidateIP("10.1.2.3", PLXTokenizedString(text, "\n"), &pattern);
  PLXStringUtility::ValidateIP(text, PLXTokenizedString("a:*.*.*.*;d:10.*.*.*", ";"), &pattern);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data_i, std::size_t size_i) {
  // The twins replace in the middle of a text, which long texts would make slow.
  if (size_i > 20000) return 0;
  std::string const bytes(reinterpret_cast<char const*>(data_i), size_i);
  CheckBase64(bytes);
  CheckQuotedPrintable(bytes);
  CheckText(bytes);
  CheckNumbers(bytes);
  return 0;
}
