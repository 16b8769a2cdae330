#include <cstring>
#include <gtest/gtest.h>

#include "FoundationPrinters.h"
#include "PLXBuffer.h"
#include "PLXDataStream.h"
#include "TPLXArray.h"
#include "TPLXNameValuePairList.h"

TEST(TPLXArray, InsertsWhereItIsToldWithinBounds) {
  TPLXArray<PLXString> words;
  words.Append("b");
  words.Insert("a", 0);
  words.Insert("c", 100);
  words.Insert(words[0], 3);
  ASSERT_EQ(words.GetElementCount(), 4u);
  EXPECT_EQ(words[0] + words[1] + words[2] + words[3], PLXString("abca"));
}

TEST(TPLXArray, AnIndexBeyondTheEndEnlargesItUpToTheIndex) {
  TPLXArray<unsigned int> numbers;
  numbers.Append(7);
  EXPECT_EQ(numbers[3], 0u);
  EXPECT_EQ(numbers.GetElementCount(), 3u);
  EXPECT_EQ(numbers[0], 7u);
  EXPECT_DEATH(TPLXArray<unsigned int>()[0],
               "\tFILE: \"include/TPLXArray.h\"\nSTATE ASSERTION FAILURE: index_i > 0\n");
}

TEST(TPLXArray, DisposesOfItsElementsOnceAndShrinksWithoutForgettingStorage) {
  static int ourDisposed = 0;
  ourDisposed = 0;
  {
    TPLXArray<PLXString> words([](PLXString&) { ++ourDisposed; });
    for (char const* const word : {"a", "b", "c"}) words.Append(word);
    words.ResizeToHold(2);
    EXPECT_EQ(ourDisposed, 0);
    words.ResizeToHold(3);
    EXPECT_EQ(words[2], PLXString()) << "what was cut off is gone";
    words.Empty();
    EXPECT_EQ(ourDisposed, 3);
    words.Append("d");
  }
  EXPECT_EQ(ourDisposed, 4);
}

TEST(TPLXArray, CopiesHaveElementsOfTheirOwn) {
  TPLXArray<PLXString> words;
  words.Append("a");
  TPLXArray<PLXString> copy(words);
  copy[0] = "b";
  EXPECT_EQ(words[0], PLXString("a"));
  copy = words;
  EXPECT_EQ(copy[0], PLXString("a"));
}

TEST(TPLXNameValuePairList, KeepsNamesAndValuesTogether) {
  TPLXNameValuePairList<PLXStringID, PLXString> list;
  list.Add(PLXStringID("To", 1), "ada");
  list.Add(PLXStringID("CC", 1), "bob");
  EXPECT_EQ(list.GetNameArray()[1], PLXStringID("cc", 1));
  EXPECT_EQ(list.GetValueArray()[1], PLXString("bob"));
  list.GetNameArray().Append(PLXStringID("odd", 1));
  EXPECT_DEATH(
      list.Add(PLXStringID("x", 1), "y"),
      "STATE ASSERTION FAILURE: myNameArray.GetElementCount\\(\\) == myValueArray.GetElementCount\\(\\)\n");
}

TEST(PLXBuffer, GrowsAsItsOptionsSay) {
  PLXBuffer buffer(4);
  std::memcpy(buffer.GetAddress(), "abcd", 4);
  buffer.SetSize(10, PLXBuffer::kKeep);
  EXPECT_EQ(std::memcmp(buffer.GetAddress(), "abcd", 4), 0);
  buffer.SetSize(2);
  EXPECT_EQ(buffer.GetSize(), 2u);
  EXPECT_EQ(buffer[1], 'b') << "shrinking keeps the bytes";
  buffer.SetSize(4, PLXBuffer::kZero | PLXBuffer::kKeep);
  EXPECT_EQ(buffer[0], 'a') << "the cleared head is overwritten by what is kept";
  EXPECT_DEATH(buffer[4] = 0, "STATE ASSERTION FAILURE: offset_i < myBufferByteCount\n");
}

TEST(PLXBuffer, CopiesItsBytes) {
  PLXBuffer buffer(3);
  std::memcpy(buffer.GetAddress(), "abc", 3);
  PLXBuffer copy(buffer);
  copy[0] = 'x';
  EXPECT_EQ(buffer[0], 'a');
  copy = buffer;
  EXPECT_EQ(copy[0], 'a');
  EXPECT_EQ(PLXBuffer(PLXBuffer()).GetSize(), 0u);
}

TEST(PLXDataStreams, EndWhereTheirBytesEnd) {
  PLXUInt8 byte = 0;
  PLXBufferStream buffer("abc", 3);
  int count = 0;
  while (buffer.GetNextByte(byte)) ++count;
  EXPECT_EQ(count, 3);
  EXPECT_FALSE(PLXBufferStream(nullptr, 3).GetNextByte(byte));
  EXPECT_FALSE(PLXBufferStream("abc", 0).GetNextByte(byte));

  PLXStringStream text(PLXString("ab\0c", 4));
  EXPECT_TRUE(text.GetNextByte(byte) && text.GetNextByte(byte));
  EXPECT_FALSE(text.GetNextByte(byte)) << "a zero byte ends a text";
  EXPECT_FALSE(text.GetNextByte(byte));
  EXPECT_TRUE(text.SetByteOffset(3));
  EXPECT_TRUE(text.GetNextByte(byte));
  EXPECT_EQ(byte, 'c');
  EXPECT_FALSE(text.SetByteOffset(4));
}
