#include <talvcs/foundation/string.h>

#include <gtest/gtest.h>
#include <tests/support/text.h>

#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

using Narrow = TalStringT<char>;
using WideString = TalStringT<WideChar>;

constexpr char kLong[] = "a text that is too long for the object";
constexpr int kLongLength = 38;

TEST(String, DefaultIsEmptyAndTerminated) {
  const WideString wide;
  const Narrow narrow;
  EXPECT_TRUE(wide.IsEmpty());
  EXPECT_EQ(wide.GetLength(), 0);
  EXPECT_EQ(wide.GetString()[0], 0);
  EXPECT_EQ(narrow.GetString()[0], 0);
}

TEST(String, OfPointerCopiesUpToTheTerminator) {
  EXPECT_EQ(WideString(TAL_WIDE("ab\0cd")).GetLength(), 2);
  EXPECT_EQ(Narrow("ab\0cd").GetLength(), 2);
  EXPECT_TRUE(WideString(static_cast<const WideChar*>(nullptr)).IsEmpty());
}

TEST(String, OfPointerAndLengthKeepsZeros) {
  const Narrow string("a\0b", 3);
  EXPECT_EQ(string.GetLength(), 3);
  EXPECT_EQ(Bytes(string), std::string("a\0b", 3));
  EXPECT_EQ(string[1], '\0');
  EXPECT_EQ(string[2], 'b');
}

TEST(String, OfViewCopiesExactlyItsCharacters) {
  const WideString string(TalStringViewT<WideChar>(TAL_WIDE("abcdef"), 3));
  EXPECT_EQ(Ascii(string), "abc");
  EXPECT_EQ(string.GetString()[3], 0);
}

TEST(String, EveryLengthKeepsTextAndTerminator) {
  std::string expected;
  for (int length = 0; length <= 40; ++length) {
    const Narrow narrow(expected.data(), length);
    const WideString wide = Wide(expected);
    EXPECT_EQ(Bytes(narrow), expected);
    EXPECT_EQ(narrow.GetString()[length], '\0');
    EXPECT_EQ(Ascii(wide), expected);
    EXPECT_EQ(wide.GetString()[length], 0);
    expected += static_cast<char>('a' + length % 26);
  }
}

TEST(String, TextOfTheHighestUnitsIsNotTakenForShared) {
  const WideString wide(TalStringViewT<WideChar>(TAL_WIDE("\xFFFF\xFFFF\xFFFF\xFFFF\xFFFF"), 5));
  EXPECT_EQ(wide.GetLength(), 5);
  const Narrow narrow("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF");
  EXPECT_EQ(narrow.GetLength(), 15);
}

TEST(String, ConvertsToItsTerminatedText) {
  const WideString string(TAL_WIDE("abc"));
  const WideChar* text = string;
  EXPECT_EQ(text, string.GetString());
  EXPECT_EQ(string.GetAt(1), TAL_WIDE('b'));
}

TEST(String, CopyOfLongTextSharesIt) {
  const Narrow source(kLong);
  const Narrow copy(source);
  EXPECT_EQ(copy.GetString(), source.GetString());
  EXPECT_EQ(Bytes(copy), kLong);
}

TEST(String, ChangeOfCopyLeavesSourceAlone) {
  const WideString source = Wide(kLong);
  WideString copy(source);
  copy += TAL_WIDE('!');
  EXPECT_EQ(Ascii(source), kLong);
  EXPECT_EQ(Ascii(copy), std::string(kLong) + "!");
}

TEST(String, ChangeOfSourceLeavesCopyAlone) {
  WideString source = Wide(kLong);
  source += TAL_WIDE("room for more is there");
  const WideString copy(source);
  source += TAL_WIDE("x");
  WideString other(copy);
  other += TAL_WIDE("y");
  EXPECT_EQ(Ascii(copy), std::string(kLong) + "room for more is there");
  EXPECT_EQ(Ascii(source), Ascii(copy) + "x");
  EXPECT_EQ(Ascii(other), Ascii(copy) + "y");
}

TEST(String, MovedFromIsEmpty) {
  for (const std::string text : {"short", kLong}) {
    WideString source = Wide(text);
    const WideString target(std::move(source));
    EXPECT_EQ(Ascii(target), text);
    EXPECT_TRUE(source.IsEmpty());  // NOLINT(bugprone-use-after-move)
    source = Wide("again");
    EXPECT_EQ(Ascii(source), "again");
  }
}

TEST(String, AssignmentReplacesEitherKindOfText) {
  WideString target(TAL_WIDE("short"));
  target = Wide(kLong);
  EXPECT_EQ(Ascii(target), kLong);
  const WideString brief(TAL_WIDE("brief"));
  target = brief;
  EXPECT_EQ(Ascii(target), "brief");
}

TEST(String, SelfAssignmentKeepsTheText) {
  for (const std::string text : {"short", kLong}) {
    WideString string = Wide(text);
    WideString& self = string;
    string = self;
    EXPECT_EQ(Ascii(string), text);
    string = std::move(self);
    EXPECT_EQ(Ascii(string), text);
  }
}

TEST(String, PartsAreClamped) {
  const WideString string(TAL_WIDE("abcdef"));
  EXPECT_EQ(Ascii(string.Left(2)), "ab");
  EXPECT_EQ(Ascii(string.Left(100)), "abcdef");
  EXPECT_EQ(Ascii(string.Left(-1)), "");
  EXPECT_EQ(Ascii(string.Right(2)), "ef");
  EXPECT_EQ(Ascii(string.Right(100)), "abcdef");
  EXPECT_EQ(Ascii(string.Right(-1)), "");
  EXPECT_EQ(Ascii(string.Mid(4)), "ef");
  EXPECT_EQ(Ascii(string.Mid(-3)), "abcdef");
  EXPECT_EQ(Ascii(string.Mid(6)), "");
  EXPECT_EQ(Ascii(string.Mid(1, 3)), "bcd");
  EXPECT_EQ(Ascii(string.Mid(-1, 3)), "abc");
  EXPECT_EQ(Ascii(string.Mid(5, 2147483647)), "f");
  EXPECT_EQ(Ascii(string.Mid(7, 1)), "");
}

TEST(String, PartsOfLongTextAreOwn) {
  WideString string = Wide(kLong);
  const WideString all = string.Mid(0);
  const WideString part = string.Mid(2, 30);
  string = WideString();
  EXPECT_EQ(Ascii(all), kLong);
  EXPECT_EQ(Ascii(part), std::string(kLong).substr(2, 30));
}

TEST(StringAppend, GrowsFromInsideToShared) {
  Narrow string;
  std::string expected;
  for (int count = 0; count < 200; ++count) {
    const char byte = static_cast<char>(count);
    string += byte;
    expected += byte;
    ASSERT_EQ(Bytes(string), expected);
    ASSERT_EQ(string.GetString()[count + 1], '\0');
  }
}

TEST(StringAppend, TakesPointersAndViews) {
  WideString string(TAL_WIDE("a"));
  string += TAL_WIDE("bc");
  string.Append(TalStringViewT<WideChar>(TAL_WIDE("defg"), 2));
  string.Append(TalStringViewT<WideChar>());
  EXPECT_EQ(Ascii(string), "abcde");
}

TEST(StringAppend, TakesWholeStringsAndViewsByTheOperator) {
  const Narrow zeros("a\0b", 3);
  Narrow text("x");
  text += zeros;
  text += TalStringViewT<char>("\0y", 2);
  EXPECT_EQ(Bytes(text), std::string("xa\0b\0y", 6));
  text += text;
  EXPECT_EQ(text.GetLength(), 12);
}

TEST(StringAppend, TakesPartsOfItself) {
  WideString string(TAL_WIDE("abc"));
  std::string expected = "abc";
  for (int turn = 0; turn < 6; ++turn) {
    string.Append(string);
    expected += expected;
    EXPECT_EQ(Ascii(string), expected);
  }
  string.Append(TalStringViewT<WideChar>(string).Mid(1, 4));
  EXPECT_EQ(Ascii(string), expected + "bcab");
}

TEST(StringAppend, KeepsZeros) {
  Narrow string("a");
  string += '\0';
  string += 'b';
  EXPECT_EQ(Bytes(string), std::string("a\0b", 3));
}

TEST(StringConcatenation, GivesTheTwoTexts) {
  const WideString name(TAL_WIDE("directory"));
  EXPECT_EQ(Ascii(TalPlatform::operator+(name, TAL_WIDE("/"))), "directory/");
  EXPECT_EQ(Ascii(TalStringViewT<WideChar>(name) + TalStringViewT<WideChar>()), "directory");
}

template <class Left, class Right>
concept Addable = requires(Left left, Right right) {
  left + right;
};

// It once was a step of the pointer that a string converts to, out of its text.
TEST(StringConcatenation, TakesNoCharacterOrNumber) {
  EXPECT_TRUE((Addable<WideString, WideString>));
  EXPECT_FALSE((Addable<WideString, WideChar>));
  EXPECT_FALSE((Addable<WideString, int>));
  EXPECT_FALSE((Addable<Narrow, char>));
}

TEST(StringCompare, IsTheOrderOfViews) {
  const WideString string(TAL_WIDE("abc"));
  EXPECT_EQ(string.Compare(TAL_WIDE("abc"), CompareCase::Sensitive), 0);
  EXPECT_LT(string.Compare(TAL_WIDE("abcd")), 0);
  EXPECT_GT(string.Compare(TAL_WIDE("abB")), 0);
  EXPECT_LT(WideString(TAL_WIDE("\U0001F600")).Compare(TAL_WIDE("\uFF5E")), 0);
}

TEST(StringCompare, IsTheOrderOfOperatorsAndTables) {
  const WideString b(TAL_WIDE("b"));
  EXPECT_TRUE(b < WideString(TAL_WIDE("c")));
  EXPECT_FALSE(b < WideString(TAL_WIDE("b")));
  EXPECT_TRUE(b > WideString(TAL_WIDE("ab")));
  EXPECT_TRUE(b <= TAL_WIDE("b"));
  EXPECT_TRUE(TAL_WIDE("a") < b);
  EXPECT_TRUE(b >= TalStringViewT<WideChar>(TAL_WIDE("a")));
  EXPECT_TRUE(TalStringViewT<WideChar>(TAL_WIDE("b")) > TalStringViewT<WideChar>(TAL_WIDE("a")));
  const std::set<WideString> table{TAL_WIDE("d"), TAL_WIDE("a"), TAL_WIDE("\xFFFF"), TAL_WIDE("a")};
  std::string order;
  for (const WideString& text : table) order += text == TAL_WIDE("\xFFFF") ? "?" : Ascii(text);
  EXPECT_EQ(order, "ad?");
}

TEST(StringEquality, ComparesTextsOfEitherKind) {
  const WideString a = Wide(kLong);
  const WideString b = Wide(kLong);
  EXPECT_NE(a.GetString(), b.GetString());
  EXPECT_TRUE(a == b);
  EXPECT_TRUE(WideString(TAL_WIDE("x")) == TAL_WIDE("x"));
  EXPECT_FALSE(WideString(TAL_WIDE("x")) == WideString(TAL_WIDE("X")));
  EXPECT_FALSE(Narrow("a\0b", 3) == Narrow("a\0c", 3));
}

TEST(StringFind, SearchesFromStart) {
  const Narrow string("key value\nkey");
  EXPECT_EQ(string.Find("key"), 0);
  EXPECT_EQ(string.Find("key", CompareCase::Sensitive), 0);
  EXPECT_EQ(string.Find("key", 1), 10);
  EXPECT_EQ(string.Find("key", 11, CompareCase::Sensitive), -1);
  EXPECT_EQ(string.Find("Key"), -1);
  EXPECT_TRUE(string.StartsWith("key", CompareCase::Sensitive));
  EXPECT_TRUE(Wide("root/").EndsWith(TAL_WIDE("/"), CompareCase::Sensitive));
}

TEST(StringFromNarrow, DecodesUtf8) {
  const Narrow utf8("h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80, and more");
  EXPECT_EQ(Ascii(WideString(utf8)), "h\\u00E9llo \\u20AC \\uD83D\\uDE00, and more");
  EXPECT_EQ(Ascii(WideString(Narrow("\xC3\xA9"))), "\\u00E9");
}

TEST(StringFromNarrow, KeepsZerosAndEmptyText) {
  EXPECT_EQ(Ascii(WideString(Narrow("a\0b", 3))), "a\\u0000b");
  EXPECT_TRUE(WideString(Narrow()).IsEmpty());
}

TEST(StringFromNarrow, ShrinkingTextKeepsItsTerminator) {
  // 18 bytes give 6 units, which would also fit into the object.
  const WideString string(
      Narrow("\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC"));
  EXPECT_EQ(string.GetLength(), 6);
  EXPECT_EQ(string.GetString()[6], 0);
  EXPECT_TRUE(string == TAL_WIDE("\u20AC\u20AC\u20AC\u20AC\u20AC\u20AC"));
}

TEST(String, LongTextHasItsLength) {
  static_assert(sizeof(kLong) == kLongLength + 1);
  EXPECT_EQ(Wide(kLong).GetLength(), kLongLength);
}

}  // namespace
}  // namespace TalVcs::Testing
