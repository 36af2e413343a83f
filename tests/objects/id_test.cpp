#include <talvcs/objects/id.h>

#include <gtest/gtest.h>
#include <tests/support/bytes.h>

#include <type_traits>
#include <unordered_set>
#include <utility>

namespace TalVcs::Testing {
namespace {

constexpr char kDigestOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

static_assert(!std::is_polymorphic_v<Id>);
static_assert(sizeof(Id) == sizeof(TalStringT<WideChar>));

TEST(Id, DefaultIsEmpty) {
  EXPECT_TRUE(Id().ToString().IsEmpty());
  EXPECT_TRUE(Id() == Id(TalStringViewT<WideChar>()));
  EXPECT_TRUE(Id() == Id(TalStringViewT<WideChar>(TAL_WIDE(""))));
}

TEST(Id, EmptyDiffersFromEachHashedOne) {
  EXPECT_TRUE(Id() != Id(BufferOf("abc")));
  EXPECT_TRUE(Id() != Id(BufferOf(std::string_view("\0", 1))));
}

TEST(Id, AcceptsAnyText) {
  const Id id(TalStringViewT<WideChar>(TAL_WIDE("not hexadecimal, \u20AC")));
  EXPECT_EQ(Ascii(id.ToString()), "not hexadecimal, \\u20AC");
  EXPECT_TRUE(id == Id(TalStringViewT<WideChar>(TAL_WIDE("not hexadecimal, \u20AC"))));
}

TEST(Id, ComparisonIsCaseSensitive) {
  const Id lower(TalStringViewT<WideChar>(TAL_WIDE("ab12")));
  EXPECT_TRUE(lower != Id(TalStringViewT<WideChar>(TAL_WIDE("AB12"))));
  EXPECT_TRUE(lower != Id(TalStringViewT<WideChar>(TAL_WIDE("ab1"))));
  EXPECT_FALSE(lower == Id(TalStringViewT<WideChar>(TAL_WIDE("ab123"))));
}

TEST(Id, CopiesTheTextOfAView) {
  TalStringT<WideChar> text = Wide("a text that is longer than an id's own room");
  const Id id{TalStringViewT<WideChar>(text)};
  text += TAL_WIDE("x");
  EXPECT_EQ(Ascii(id), "a text that is longer than an id's own room");
}

TEST(Id, OfBufferIsTheDigestOfExactlyTheseBytes) {
  EXPECT_EQ(Ascii(Id(BufferOf("abc"))), kDigestOfAbc);
  EXPECT_EQ(Ascii(Id(BufferOfParts({"a", "bc"}))), kDigestOfAbc);
}

TEST(Id, CopySharesTheText) {
  const Id id(BufferOf("abc"));
  const Id copy(id);
  EXPECT_TRUE(copy == id);
  EXPECT_EQ(copy.View().text, id.View().text);
}

TEST(Id, MovedFromIsEmpty) {
  Id source(BufferOf("abc"));
  const Id target(std::move(source));
  EXPECT_EQ(Ascii(target), kDigestOfAbc);
  EXPECT_TRUE(source == Id());  // NOLINT(bugprone-use-after-move)
}

TEST(Id, AssignmentReplacesTheText) {
  Id id(BufferOf("abc"));
  id = Id(TalStringViewT<WideChar>(TAL_WIDE("x")));
  EXPECT_EQ(Ascii(id), "x");
  const Id other(BufferOf("abc"));
  id = other;
  EXPECT_EQ(Ascii(id), kDigestOfAbc);
}

TEST(Id, IsAKeyOfHashTables) {
  std::unordered_set<Id> ids{Id(), Id(BufferOf("a")), Id(BufferOf("b")), Id(BufferOf("a"))};
  EXPECT_EQ(ids.size(), 3U);
  EXPECT_TRUE(ids.contains(Id(BufferOf("b"))));
}

}  // namespace
}  // namespace TalVcs::Testing
