#include <gtest/gtest.h>
#include <random>
#include <string>

#include "EncoderTwins.h"
#include "PLXCryptor.h"
#include "TextRows.h"

namespace {

std::string RandomBytes(std::size_t size_i, unsigned seed_i = 5) {
  std::mt19937 random(seed_i);
  std::string bytes(size_i, 0);
  for (char& byte : bytes) byte = static_cast<char>(random() & 255);
  return bytes;
}

// A stream that knows nothing but its next byte.
class SlowStream : public PLXDataStream {
 public:
  explicit SlowStream(std::string data_i) : myData(std::move(data_i)) {}
  bool GetNextByte(PLXUInt8& byte_o) override {
    if (myPosition == myData.size()) return false;
    byte_o = static_cast<PLXUInt8>(myData[myPosition++]);
    return true;
  }

 private:
  std::string myData;
  std::size_t myPosition = 0;
};

PLXBufferStream StreamOver(std::string const& data_i) {
  return PLXBufferStream(data_i.data(), static_cast<PLXUInt32>(data_i.size()));
}

// Without the warning that goes with full lines.
std::string EncodedBuffer(std::string const& data_i) {
  testing::internal::CaptureStderr();
  std::string text = Std(PLXCryptor::Base64Encode(static_cast<PLXBuffer>(Plx(data_i))));
  testing::internal::GetCapturedStderr();
  return text;
}

std::string Decoded(std::string const& text_i) {
  PLXBufferStream stream = StreamOver(text_i);
  PLXBuffer data;
  PLXCryptor::Base64Decode(stream, data);
  return Std(data);
}

std::string Quoted(std::string const& text_i) { return Std(PLXCryptor::QuotedPrintableEncode(Plx(text_i))); }
std::string Unquoted(std::string const& text_i) {
  return Std(PLXCryptor::QuotedPrintableDecode(Plx(text_i)));
}

char const kLengthWarning[] = "\tFILE: \"src/PLXCryptor\"\nSTATE WARNING: outIndex != encodedDataLength\n";

}  // namespace

// ---- Base64 ----

TEST(PLXCryptorBase64, EncodesAsTheStepByStepTwinDoes) {
  for (std::size_t size = 0; size < 400; ++size) {
    SCOPED_TRACE(size);
    std::string const data = RandomBytes(size);
    std::string const expected = twin::Base64Encode(data, "\r\n");
    PLXBufferStream stream = StreamOver(data);
    EXPECT_EQ(Std(PLXCryptor::Base64Encode(stream)), expected);
    PLXBufferStream ownLineEnd = StreamOver(data);
    EXPECT_EQ(Std(PLXCryptor::Base64Encode(ownLineEnd, "|")), twin::Base64Encode(data, "|"));

    bool const lastLineIsFull = expected.size() > 2 && expected.compare(expected.size() - 2, 2, "\r\n") == 0;
    std::string const between = expected.substr(0, expected.size() - (lastLineIsFull ? 2 : 0));
    EXPECT_EQ(EncodedBuffer(data), between);
    EXPECT_EQ(Decoded(expected), data);
    SlowStream slow(data + "more");
    testing::internal::CaptureStderr();
    EXPECT_EQ(Std(PLXCryptor::Base64Encode(slow, static_cast<PLXUInt32>(size))), between);
    testing::internal::GetCapturedStderr();
  }
  std::string const data = RandomBytes(100000);
  SlowStream slow(data);
  EXPECT_EQ(Std(PLXCryptor::Base64Encode(slow)), twin::Base64Encode(data, "\r\n"));
}

TEST(PLXCryptorBase64, WarnsOfALengthItDidNotForesee) {
  struct Row {
    char const* why;
    std::size_t size;
    char const* warning;
  };
  Row const rows[] = {{"nothing", 0, ""},
                      {"part of a line", 54, ""},
                      {"a line that padding fills", 55, kLengthWarning},
                      {"a line and a bit", 58, ""},
                      {"two full lines", 114, kLengthWarning}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    std::string const data = RandomBytes(row.size);
    testing::internal::CaptureStderr();
    PLXCryptor::Base64Encode(static_cast<PLXBuffer>(Plx(data)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), row.warning);
    testing::internal::CaptureStderr();
    PLXBufferStream stream = StreamOver(data);
    PLXCryptor::Base64Encode(stream, static_cast<PLXUInt32>(row.size));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), row.warning);
  }
}

TEST(PLXCryptorBase64, TakesWhatAStreamHoldsWhateverLengthIsClaimed) {
  testing::internal::CaptureStderr();
  PLXBufferStream stream("abcd", 4);
  EXPECT_EQ(Std(PLXCryptor::Base64Encode(stream, 0xFFFFFFFF)), "YWJjZA==");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), kLengthWarning);

  PLXBufferStream longer("abcdefgh", 8);
  EXPECT_EQ(Std(PLXCryptor::Base64Encode(longer, 3)), "YWJj");
  PLXUInt8 next = 0;
  EXPECT_TRUE(longer.GetNextByte(next));
  EXPECT_EQ(next, 'd') << "the rest stays in the stream";
}

TEST(PLXCryptorBase64, DecodesWhatMailersSend) {
  TextRow const rows[] = {{"line end between groups", "QUJD\r\nREVG", "ABCDEF"},
                          {"one byte in the last group", "QQ==", "A"},
                          {"padding ends nothing", "QQ==QUI=QUJD", "AABABC"},
                          {"padding in the third place only", "QU=D", std::string("A\x03", 2)},
                          {"a cut last group is dropped", "QUJDRE", "ABC"},
                          {"a line end within a group is data", "QU\rD", std::string("A@\x03", 3)},
                          {"bytes outside the alphabet are data", "!*\xFF-", std::string(3, 0)},
                          {"padding in the first places is data", "==JD", std::string("\0\x02\x43", 3)},
                          {"a zero byte is data", std::string("QUJ\0", 4), "AB@"},
                          {"nothing", "", ""}};
  ExpectTexts(rows, [](std::string const& text_i) {
    EXPECT_EQ(Decoded(text_i), twin::Base64Decode(text_i));
    return Decoded(text_i);
  });
}

TEST(PLXCryptorBase64, DecodesAsTheStepByStepTwinDoesWhateverTheStream) {
  std::mt19937 random(11);
  std::string const characters = "QUJDabc09+/====\r\n\r\n-";
  for (int round = 0; round < 300; ++round) {
    std::string text(random() % 100 + (round % 10 == 0 ? 8150 : 0), 0);
    for (char& character : text) character = characters[random() % (round % 2 == 0 ? 12 : characters.size())];
    SCOPED_TRACE(text);
    std::string const expected = twin::Base64Decode(text);
    ASSERT_EQ(Decoded(text), expected);
    SlowStream slow(text);
    PLXBuffer data(3);
    PLXCryptor::Base64Decode(slow, "\r\n", data);
    ASSERT_EQ(Std(data), expected);
  }
}

TEST(PLXCryptorBase64, DecodesIntoTheBufferItReadsFrom) {
  PLXBuffer data = static_cast<PLXBuffer>(PLXString("QUJDREVG"));
  PLXBufferStream stream(data.GetAddress(), data.GetSize());
  PLXCryptor::Base64Decode(stream, data);
  EXPECT_EQ(Std(data), "ABCDEF");
}

// ---- Streams read in bulk ----

TEST(PLXDataStreamBulk, ReadsWhatSingleBytesWouldGive) {
  PLXString const text("one\0two", 7);
  PLXUInt8 bytes[8];
  PLXStringStream string(text);
  EXPECT_EQ(string.GetNextBytes(bytes, 2), 2u);
  EXPECT_EQ(string.GetExpectedByteCount(), 5u);
  EXPECT_EQ(string.GetNextBytes(bytes, 8), 1u) << "a string stream ends at the first zero byte";
  EXPECT_EQ(bytes[0], 'e');
  EXPECT_EQ(string.GetNextBytes(bytes, 8), 0u);

  PLXBufferStream buffer(text.GetCStringAccess(), 7);
  EXPECT_EQ(buffer.GetNextBytes(bytes, 4), 4u);
  PLXUInt8 next = 0;
  EXPECT_TRUE(buffer.GetNextByte(next));
  EXPECT_EQ(next, 't');
  EXPECT_EQ(buffer.GetExpectedByteCount(), 2u);
  EXPECT_EQ(buffer.GetNextBytes(bytes, 8), 2u);
  EXPECT_EQ(buffer.GetNextBytes(bytes, 8), 0u);
  EXPECT_EQ(PLXBufferStream(nullptr, 7).GetNextBytes(bytes, 8), 0u);
}

// ---- Quoted-printable ----

TEST(PLXCryptorQuotedPrintable, EscapesWhatGatewaysMayChange) {
  std::string plain;
  for (int byte = 0; byte < 256; ++byte) {
    std::string const text(1, static_cast<char>(byte));
    if (Quoted(text) == text) plain += text;
  }
  EXPECT_EQ(plain, "\t\n\r %&'()*+,-./0123456789:;<>?ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
  EXPECT_EQ(Quoted("1=2\xE9"), "1=3D2=E9");
}

TEST(PLXCryptorQuotedPrintable, BreaksLinesBehindTheirLastColumn) {
  std::string const full(73, 'x');
  TextRow const rows[] = {
      {"73 columns fit", full, full},
      {"the next byte breaks the line", full + "y", full + "=\r\ny"},
      {"an escape may end behind it", std::string(72, 'x') + "==", std::string(72, 'x') + "=3D=\r\n=3D"},
      {"a line end counts as a byte", full + "\r\n", full + "=\r\n\r\n"},
      {"a line end starts the count again", std::string(72, 'x') + "\n" + full,
       std::string(72, 'x') + "\n" + full},
      {"a blank before a line end is kept", "a \r\nb\t\n", "a =\r\n\r\nb\t=\r\n\n"},
      {"other bytes need no break", "a\r\n", "a\r\n"},
      {"an escaped byte is no blank", "a=\r\n", "a=3D\r\n"},
      {"nothing", "", ""}};
  ExpectTexts(rows, Quoted);
}

TEST(PLXCryptorQuotedPrintable, DecodesWhatMailersSend) {
  TextRow const rows[] = {{"digits of either case", "=3D=e9=E9", "=\xE9\xE9"},
                          {"a soft break", "a=\r\nb", "ab"},
                          {"white space behind a soft break", "a= \t\r\nb", "ab"},
                          {"white space at the end of lines", "a \t\r\nb ", "a\r\nb"},
                          {"an escaped blank stays", "a=20\r\n", "a \r\n"},
                          {"empty lines", "\r\n\r\n", "\r\n\r\n"},
                          {"other bytes count as the digit 0", "=zz=4z", std::string("\0@", 2)},
                          {"an escape cut at the end", "a=4", "a=4"},
                          {"an escape cut by a line end", "a=4\r\nb", "a=4\r\nb"},
                          {"a soft break behind a cut escape", "a=4=\r\nb", "a=4b"},
                          {"two signs at the end", "a==", "a="},
                          {"a sign alone", "=", ""},
                          {"nothing", "", ""}};
  ExpectTexts(rows, Unquoted);
}

TEST(PLXCryptorQuotedPrintable, DecodesAsTheStepByStepTwinDoes) {
  std::mt19937 random(13);
  std::string const characters = "==A4 \r\n\r\nz";
  for (int round = 0; round < 20000; ++round) {
    std::string text(random() % 14, 0);
    for (char& character : text) character = characters[random() % characters.size()];
    SCOPED_TRACE(text);
    ASSERT_EQ(Unquoted(text), twin::QuotedPrintableDecode(text));
  }
}
