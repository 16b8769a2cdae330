#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>

#include "FoundationPrinters.h"
#include "PLXString.h"
#include "StringTwin.h"

namespace {

PLXUInt32 StorageOf(PLXUInt32 length_i) { return PLXStringRepresentation::StorageSize(length_i); }

}  // namespace

TEST(PLXStringSharing, AChangeLeavesEveryCopyAsItWas) {
  using Change = void (*)(PLXString&);
  Change const changes[] = {
      [](PLXString& text_io) { text_io.SetAt(0, 'x'); },
      [](PLXString& text_io) { text_io.ReplaceAll("b", "xyz"); },
      [](PLXString& text_io) { text_io.Reverse(); },
      [](PLXString& text_io) { text_io.ReserveLength(2)[0] = 'x'; },
      [](PLXString& text_io) {
        text_io.GetBuffer(100)[0] = 'x';
        text_io.ReleaseBuffer();
      },
  };
  for (Change const change : changes) {
    PLXString const original("abcb");
    PLXString copy(original);
    EXPECT_EQ(copy.GetCStringAccess(), original.GetCStringAccess()) << "a copy shares its storage";
    change(copy);
    EXPECT_EQ(Std(original), "abcb");
    EXPECT_NE(Std(copy), "abcb");
    EXPECT_EQ(copy.GetCStringAccess()[copy.GetLength()], 0);
  }
}

TEST(PLXStringSharing, EmptyStringsShareOneTextAndAreNeverWritten) {
  PLXString first;
  PLXString const second("");
  EXPECT_EQ(first.GetCStringAccess(), second.GetCStringAccess());
  first.Append('a');
  EXPECT_EQ(Std(first), "a");
  EXPECT_TRUE(second.IsEmpty());
  EXPECT_TRUE(PLXString().IsEmpty());
}

TEST(PLXStringConstruction, TakesEveryKindOfText) {
  unsigned char const pascal[] = {3, 'a', 'b', 'c', 'd'};
  EXPECT_EQ(Std(PLXString(pascal)), "abc");
  EXPECT_EQ(Std(PLXString(static_cast<unsigned char const*>(nullptr))), "");
  EXPECT_EQ(Std(PLXString(static_cast<char const*>(nullptr))), "");
  EXPECT_EQ(Std(PLXString('a')), "a");
  EXPECT_EQ(Std(PLXString('a', 3)), "aaa");
  EXPECT_EQ(Std(PLXString('a', 0)), "");
  EXPECT_EQ(Std(PLXString("a\0b", 3)), std::string("a\0b", 3));
  EXPECT_EQ(Std(PLXString(true)), "yes");
  EXPECT_EQ(Std(PLXString(false)), "no");
  PLXString text("old");
  EXPECT_EQ(Std(text = pascal), "abc");
  EXPECT_EQ(Std(text = static_cast<unsigned char const*>(nullptr)), "");
  EXPECT_EQ(Std(text = 'a'), "a");
  EXPECT_EQ(Std(text.Assign('b', 40)), std::string(40, 'b'));
  EXPECT_EQ(Std(text = true), "yes");
  PLXUInt32 position = 0;
  EXPECT_TRUE(PLXString("xabc").Find(pascal, 0, kPLXWholeLength, 0, position));
  EXPECT_EQ(position, 1u);
  EXPECT_FALSE(text.Find(static_cast<unsigned char const*>(nullptr), 0, kPLXWholeLength, 0, position));
}

TEST(PLXStringGrowth, StorageGrowsInStepsOfThirtyTwo) {
  EXPECT_EQ(StorageOf(0), 32u);
  EXPECT_EQ(StorageOf(31), 32u);
  EXPECT_EQ(StorageOf(32), 64u);
  EXPECT_EQ(StorageOf(100), 128u);
}

TEST(PLXStringGrowth, ReservingKeepsTheTextAndItsEnd) {
  PLXString text("abc");
  text.Reserve(1000);
  char const* const base = text.GetCStringAccess();
  EXPECT_STREQ(base, "abc");
  for (int index = 0; index < 997; ++index) text.Append('x');
  EXPECT_EQ(text.GetCStringAccess(), base) << "what was reserved is not moved";
  text.Reserve(2);
  EXPECT_EQ(text.GetLength(), 1000u);
}

TEST(PLXStringGrowth, AppendingWithReserveToAppendMovesTheTextRarely) {
  PLXString text;
  int moves = 0;
  for (int index = 0; index < 1000000; ++index) {
    char const* const before = text.GetCStringAccess();
    text.ReserveToAppend(1);
    text.Append('x');
    moves += text.GetCStringAccess() != before ? 1 : 0;
  }
  EXPECT_LT(moves, 25);
}

TEST(PLXStringRawAccess, LocksUntilItIsReleased) {
  PLXString text("abc");
  char* const buffer = text.GetBuffer(10);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(text.GetBuffer(10), nullptr);
  std::copy_n("hello\0rest", 10, buffer);
  text.ReleaseBuffer(kPLXWholeLength);
  EXPECT_EQ(Std(text), "hello");
  EXPECT_NE(text.GetBuffer(1), nullptr);
  text.ReleaseBuffer(1);
  EXPECT_EQ(Std(text), "h");
}

TEST(PLXStringAssertions, WriteTheirTextAndAbort) {
  PLXString text("abc");
  EXPECT_DEATH(text.GetAt(3),
               "\tFILE: \"src/PLXString.cpp\"\nSTATE ASSERTION FAILURE: offset_i < GetLength\\(\\)\n");
  EXPECT_DEATH(text.SetAt(3, 'x'), "STATE ASSERTION FAILURE: offset_i < GetLength\\(\\)\n");
  EXPECT_DEATH(text.ReleaseBuffer(0), "STATE ASSERTION FAILURE: myStringRepresentation->IsLocked\\(\\)\n");
  EXPECT_DEATH(
      {
        text.GetBuffer(10);
        text.ReleaseBuffer(32);
      },
      "STATE ASSERTION FAILURE: \\(stringLength < \\(PLXSInt32\\) "
      "myStringRepresentation->GetSize\\(\\)\\)\n");
  EXPECT_DEATH(text.Reserve(0xFFFFFFF0), "NULL POINTER ASSERTION: newStringRepresentation\n");
}

TEST(PLXStringEditing, ReplacesAllAndCounts) {
  struct Row {
    char const* why;
    char const* text;
    char const* pattern;
    char const* replacement;
    unsigned options;
    PLXUInt32 count;
    char const* result;
  };
  Row const rows[] = {
      {"backward", "abab", "ab", "c", 2, 2, "cc"},
      {"backward meets what it put in", "aab", "ab", "b", 2, 2, "b"},
      {"backward ends where the replacement holds the pattern", "aaa", "a", "aa", 2, 3, "aaaaaa"},
      {"searching the inserted text again", "aaab", "aa", "a", 4, 2, "ab"},
      {"an empty pattern is nowhere", "abc", "", "x", 0, 0, "abc"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXString text(row.text);
    EXPECT_EQ(text.ReplaceAll(row.pattern, row.replacement, row.options), row.count);
    EXPECT_EQ(Std(text), row.result);
  }
}

TEST(PLXStringSearching, AgreesWithTryingEveryPlace) {
  std::mt19937 random(1);
  char const alphabet[] = {'a', 'b', 'A', 'B', '\x8A', '\x80'};
  auto const word = [&](std::size_t longest_i) {
    std::string text(random() % (longest_i + 1), 'a');
    for (char& character : text) character = alphabet[random() % sizeof alphabet];
    return text;
  };
  for (int round = 0; round < 60000; ++round) {
    std::string const text = word(round % 10 == 0 ? 300 : 12);
    std::string const pattern = word(4);
    PLXUInt32 const start = static_cast<PLXUInt32>(random() % (text.size() + 3));
    PLXUInt32 const count =
        round % 3 == 0 ? kPLXWholeLength : static_cast<PLXUInt32>(random() % (text.size() + 3));
    unsigned const options = random() % 4;
    PLXUInt32 position = 4711;
    bool const found =
        PLXString(text.data(), static_cast<PLXUInt32>(text.size()))
            .Find(pattern.data(), static_cast<PLXUInt32>(pattern.size()), start, count, options, position);
    std::optional<PLXUInt32> const expected = twin::Find(text, pattern, start, count, options);
    ASSERT_EQ(found, expected.has_value())
        << text << " / " << pattern << " " << start << " " << count << " " << options;
    ASSERT_EQ(position, expected.value_or(4711));
  }
}

TEST(PLXStringSearching, KnowsItsEnds) {
  PLXString const text("Header: value");
  EXPECT_TRUE(text.BeginsWith("header", kPLXOption_IgnoreCase));
  EXPECT_FALSE(text.BeginsWith("header"));
  EXPECT_TRUE(text.EndsWith("VALUE", kPLXOption_IgnoreCase));
  EXPECT_FALSE(text.BeginsWith(""));
  EXPECT_FALSE(text.EndsWith(""));
  EXPECT_FALSE(text.EndsWith("Header: value "));
  EXPECT_TRUE(text.Contains(": "));
  EXPECT_FALSE(text.Contains(""));
}

TEST(PLXStringComparing, OrdersSignedBytesThenLengths) {
  struct Row {
    char const* why;
    char const* left;
    char const* right;
    unsigned options;
    PLXUInt32 result;
  };
  Row const rows[] = {
      {"8-bit bytes come before ASCII", "\x80", "a", 0, kPLXCompare_Less},
      {"the shorter is less", "ab", "abc", 0, kPLXCompare_Less},
      {"case ignored", "aBc", "AbC", 1, kPLXCompare_Equal},
      {"8-bit letters fold too", "\x8A", "\x80", 1, kPLXCompare_Equal},
      {"both sides are folded before they are ordered", "a", "B", 1, kPLXCompare_Less},
      {"a difference behind the first block",
       "0123456789012345678901234567890123456789012345678901234567890123456x",
       "0123456789012345678901234567890123456789012345678901234567890123456y", 0, kPLXCompare_Less},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(PLXString(row.left).CompareTo(row.right, row.options), row.result);
  }
}

TEST(PLXStringCase, MapsAreEachOthersInverse) {
  int letters = 0;
  for (int code = 0; code < 256; ++code) {
    auto const byte = static_cast<unsigned char>(code);
    unsigned char const upper = PLXString::Uppercase(byte);
    unsigned char const lower = PLXString::Lowercase(byte);
    if (upper != byte) {
      ++letters;
      EXPECT_EQ(PLXString::Lowercase(upper), byte);
      EXPECT_EQ(lower, byte);
    }
    if (lower != byte) {
      EXPECT_EQ(PLXString::Uppercase(lower), byte);
    }
  }
  EXPECT_EQ(letters, 26 + 29);
  PLXString text("aZ\x9F{");
  text.ConvertToUppercase(1, 100);
  EXPECT_EQ(Std(text), "aZ\x86{");
  text.ConvertToLowercase();
  EXPECT_EQ(Std(text), "az\x9F{");
}

TEST(PLXStringExport, CutsAtItsBoundary) {
  PLXString const text("abcd");
  char buffer[8] = "-------";
  EXPECT_EQ(text.GetCString(buffer, 2), 1u);
  EXPECT_STREQ(buffer, "a");
  EXPECT_EQ(text.GetCString(buffer, 4), 4u);
  EXPECT_STREQ(buffer, "abcd");
  EXPECT_EQ(text.GetCString(nullptr, 4), 0u);
  EXPECT_EQ(text.GetCString(buffer, 0), 0u);
  EXPECT_STREQ(buffer, "abcd") << "there is no room, so nothing is written";
  unsigned char pascal[256] = {};
  EXPECT_EQ(PLXString('x', 300).GetPascalString(pascal, 1000), 255u);
  EXPECT_EQ(pascal[0], 255);
  EXPECT_EQ(text.GetPascalString(pascal, 2), 2u);
}

TEST(PLXStringExport, KnowsTrueWords) {
  for (char const* const word : {"true", "T", "Yes", "y", "ON", "1"})
    EXPECT_TRUE(static_cast<bool>(PLXString(word)));
  for (char const* const word : {"", "2", "yess", "no", "off", " 1"})
    EXPECT_FALSE(static_cast<bool>(PLXString(word)));
}
