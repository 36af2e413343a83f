#include <talvcs/foundation/string.h>
#include <talvcs/foundation/string_view.h>

#include <gtest/gtest.h>
#include <tests/support/text.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

namespace TalVcs::Testing {
namespace {

using NarrowView = TalStringViewT<char>;
using WideView = TalStringViewT<WideChar>;

TEST(StringView, DefaultIsEmpty) {
  const WideView view;
  EXPECT_EQ(view.text, nullptr);
  EXPECT_EQ(view.length, 0);
  EXPECT_TRUE(view.IsEmpty());
}

TEST(StringView, IsMadeFieldByField) {
  WideView view;
  view.text = &TAL_WIDE("abcdef")[1];
  view.length = 3;
  EXPECT_EQ(Ascii(view), "bcd");
  EXPECT_EQ(view.GetRawUnterminatedString(), view.text);
}

TEST(StringView, OfTerminatedPointerEndsAtTerminator) {
  EXPECT_EQ(WideView(TAL_WIDE("ab\0cd")).length, 2);
  EXPECT_EQ(NarrowView("ab\0cd").length, 2);
}

TEST(StringView, OfNullPointerIsEmpty) {
  EXPECT_TRUE(WideView(static_cast<const WideChar*>(nullptr)).IsEmpty());
  EXPECT_TRUE(NarrowView(static_cast<const char*>(nullptr)).IsEmpty());
}

TEST(StringView, OfStringSeesItsText) {
  const TalStringT<WideChar> string(TAL_WIDE("a long enough text to be shared"));
  const WideView view(string);
  EXPECT_EQ(view.text, string.GetString());
  EXPECT_EQ(view.length, 31);
}

TEST(StringView, OfStandardViewAndStringKeepsZeros) {
  const std::string bytes("a\0b", 3);
  EXPECT_EQ(NarrowView(bytes).length, 3);
  EXPECT_EQ(NarrowView(std::string_view("a\0bc", 4)).length, 4);
}

TEST(StringView, ThrowsLengthErrorForATextLongerThanAnInt) {
  constexpr std::size_t kMost = std::numeric_limits<int>::max();
  EXPECT_EQ(NarrowView(std::string_view("never read", kMost)).length, 0x7FFFFFFF);
  EXPECT_THROW(NarrowView(std::string_view("never read", kMost + 1)), std::length_error);
}

TEST(StringViewFind, GivesFirstMatchFromStart) {
  const WideView view(TAL_WIDE("one/two/three"));
  EXPECT_EQ(view.Find(TAL_WIDE("/")), 3);
  EXPECT_EQ(view.Find(TAL_WIDE("/"), 3), 3);
  EXPECT_EQ(view.Find(TAL_WIDE("/"), 4), 7);
  EXPECT_EQ(view.Find(TAL_WIDE("/"), 8), -1);
  EXPECT_EQ(view.Find(TAL_WIDE(""), view.length), view.length);
  EXPECT_EQ(view.Find(TAL_WIDE(""), view.length + 1), -1);
  EXPECT_EQ(view.Find(TAL_WIDE("three"), 0, CompareCase::Sensitive), 8);
}

TEST(StringViewFind, StartAtOrPastTheEndFindsNothing) {
  const WideView view(TAL_WIDE("abc"));
  EXPECT_EQ(view.Find(TAL_WIDE("c"), 3), -1);
  EXPECT_EQ(view.Find(TAL_WIDE("c"), 4), -1);
  EXPECT_EQ(view.Find(TAL_WIDE("c"), 2147483647), -1);
}

TEST(StringViewFind, NegativeStartCountsAsZero) {
  EXPECT_EQ(WideView(TAL_WIDE("abc")).Find(TAL_WIDE("a"), -5), 0);
}

TEST(StringViewFind, LongerPatternThanTextIsNotFound) {
  EXPECT_EQ(WideView(TAL_WIDE("abc")).Find(TAL_WIDE("abcd")), -1);
  EXPECT_EQ(WideView(TAL_WIDE("abc")).Find(TAL_WIDE("bcd"), 1), -1);
}

TEST(StringViewFind, ReadsNothingAfterTheView) {
  const WideView view(TAL_WIDE("abcd"), 3);
  EXPECT_EQ(view.Find(TAL_WIDE("d")), -1);
  EXPECT_EQ(view.Find(TAL_WIDE("cd")), -1);
}

TEST(StringViewFind, DiffersByCase) {
  EXPECT_EQ(WideView(TAL_WIDE("abc")).Find(TAL_WIDE("B")), -1);
  EXPECT_EQ(NarrowView("abc").Find("B"), -1);
}

TEST(StringViewFind, CharacterIsFoundAlsoIfItIsZero) {
  const NarrowView view("tree 5\0data\0", 12);
  EXPECT_EQ(view.Find('\0', 0), 6);
  EXPECT_EQ(view.Find('\0', 7, CompareCase::Sensitive), 11);
  EXPECT_EQ(view.Find('\0', 12), -1);
  EXPECT_EQ(view.Find('x'), -1);
}

TEST(StringViewMid, GivesTheCharactersAsked) {
  const WideView view(TAL_WIDE("abcdef"));
  EXPECT_EQ(Ascii(view.Mid(2, 3)), "cde");
  EXPECT_EQ(view.Mid(2, 3).text, view.text + 2);
}

TEST(StringViewMid, StartAtLengthGivesEmptyViewAtTheEnd) {
  const WideView view(TAL_WIDE("abc"));
  EXPECT_TRUE(view.Mid(3, 1).IsEmpty());
  EXPECT_EQ(view.Mid(3, 1).text, view.text + 3);
}

TEST(StringViewMid, ClampsStartAndCount) {
  const WideView view(TAL_WIDE("abc"));
  EXPECT_EQ(Ascii(view.Mid(-2, 2)), "ab");
  EXPECT_EQ(Ascii(view.Mid(1, 100)), "bc");
  EXPECT_EQ(Ascii(view.Mid(1, 2147483647)), "bc");
  EXPECT_TRUE(view.Mid(1, -1).IsEmpty());
  EXPECT_TRUE(view.Mid(100, 1).IsEmpty());
  EXPECT_EQ(view.Mid(100, 1).text, view.text + 3);
}

TEST(StringViewCompare, ComparesEqualTextsAtOtherPlaces) {
  const TalStringT<WideChar> string(TAL_WIDE("same"));
  EXPECT_EQ(WideView(TAL_WIDE("same")).Compare(string), 0);
  EXPECT_TRUE(WideView(TAL_WIDE("same")) == WideView(string));
}

TEST(StringViewCompare, ProperPrefixIsBefore) {
  EXPECT_LT(WideView(TAL_WIDE("abc")).Compare(TAL_WIDE("abcd")), 0);
  EXPECT_GT(WideView(TAL_WIDE("abcd")).Compare(TAL_WIDE("abc")), 0);
  EXPECT_LT(WideView().Compare(TAL_WIDE("a")), 0);
  EXPECT_EQ(WideView().Compare(TAL_WIDE("")), 0);
}

TEST(StringViewCompare, ComparesUnitsAsUnsigned) {
  EXPECT_LT(WideView(TAL_WIDE("\x7FFF")).Compare(TAL_WIDE("\x8000")), 0);
  EXPECT_LT(NarrowView("\x7F").Compare("\x80"), 0);
  EXPECT_LT(NarrowView("z").Compare("\xC3\xA4"), 0);
}

TEST(StringViewCompare, OrdersByCodeUnitsNotByCodePoints) {
  // U+1F600 is written as D83D DE00 and so comes before U+FF5E.
  EXPECT_LT(WideView(TAL_WIDE("\U0001F600")).Compare(TAL_WIDE("\uFF5E")), 0);
}

TEST(StringViewCompare, ComparesCaseAndCharactersAfterZeros) {
  EXPECT_LT(WideView(TAL_WIDE("A")).Compare(TAL_WIDE("a")), 0);
  EXPECT_LT(WideView(TAL_WIDE("a\0b"), 3).Compare(WideView(TAL_WIDE("a\0c"), 3)), 0);
}

TEST(StringViewStartsWith, TakesPrefixesOnly) {
  const NarrowView view("blob 5");
  EXPECT_TRUE(view.StartsWith("blob"));
  EXPECT_TRUE(view.StartsWith(""));
  EXPECT_TRUE(view.StartsWith("blob 5"));
  EXPECT_FALSE(view.StartsWith("blob 50"));
  EXPECT_FALSE(view.StartsWith("Blob"));
}

TEST(StringViewEndsWith, TakesSuffixesOnly) {
  const WideView view(TAL_WIDE("root/"));
  EXPECT_TRUE(view.EndsWith(TAL_WIDE("/")));
  EXPECT_TRUE(view.EndsWith(TAL_WIDE("")));
  EXPECT_FALSE(view.EndsWith(TAL_WIDE("a root/")));
  EXPECT_FALSE(view.EndsWith(TAL_WIDE("t")));
}

TEST(StringView, ToStringCopiesTheCharacters) {
  const WideView view(TAL_WIDE("abc\0def"), 7);
  const TalStringT<WideChar> string = view.ToString();
  EXPECT_EQ(string.GetLength(), 7);
  EXPECT_EQ(Ascii(string), "abc\\u0000def");
}

}  // namespace
}  // namespace TalVcs::Testing
