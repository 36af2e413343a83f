#include <gtest/gtest.h>
#include <talvcs/foundation/helpers.h>
#include <tests/support/bytes.h>
#include <tests/support/failing_allocations.h>

#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

constexpr char kLong[] = "a text that is too long for the object";

TEST(AllocationFailure, OfAStringsAppendLeavesItAsItWas) {
  const int failures = ForEachFailingAllocation(
      [] { return Wide(kLong); },
      [](TalStringT<WideChar>& string) { string += TAL_WIDE(" and now even longer"); },
      [](const TalStringT<WideChar>& string, bool threw) {
        EXPECT_EQ(Ascii(string), threw ? kLong : std::string(kLong) + " and now even longer");
      });
  EXPECT_EQ(failures, 1);
}

TEST(AllocationFailure, OfADetachingAppendLeavesBothAsTheyWere) {
  using Pair = std::pair<TalStringT<WideChar>, TalStringT<WideChar>>;
  const int failures = ForEachFailingAllocation(
      [] {
        const TalStringT<WideChar> text = Wide(kLong);
        return Pair(text, text);
      },
      [](Pair& pair) { pair.first += TAL_WIDE('!'); },
      [](const Pair& pair, bool threw) {
        EXPECT_EQ(Ascii(pair.first), threw ? kLong : std::string(kLong) + "!");
        EXPECT_EQ(Ascii(pair.second), kLong);
      });
  EXPECT_EQ(failures, 1);
}

TEST(AllocationFailure, OfCopiesOfStringsAndBuffersCannotHappen) {
  struct Things {
    TalStringT<WideChar> text = Wide(kLong);
    TalStringT<WideChar> text_copy;
    Buffer bytes = BufferOfParts({"abc", "def"});
    Buffer bytes_copy;
  };
  const int failures = ForEachFailingAllocation([] { return Things(); },
                                                [](Things& things) {
                                                  things.text_copy = things.text;
                                                  things.bytes_copy = things.bytes;
                                                },
                                                [](const Things& things, bool) {
                                                  EXPECT_EQ(Ascii(things.text_copy), kLong);
                                                  EXPECT_EQ(Bytes(things.bytes_copy), "abcdef");
                                                });
  EXPECT_EQ(failures, 0);
}

TEST(AllocationFailure, OfABuffersAppendLeavesItAsItWas) {
  const int failures = ForEachFailingAllocation(
      [] {
        return BufferOfParts({"abc", "def"});
      },
      [](Buffer& buffer) { buffer.Append("ghi", 3, 1); },
      [](const Buffer& buffer, bool threw) {
        EXPECT_EQ(Bytes(buffer), threw ? "abcdef" : "abcdefghi");
      });
  EXPECT_GT(failures, 0);
}

TEST(AllocationFailure, OfAppendingABufferLeavesItAsItWas) {
  const Buffer source = BufferOfParts({"gh", "ij", "kl"});
  const int failures = ForEachFailingAllocation(
      [] { return BufferOf("abcdef"); }, [&](Buffer& buffer) { buffer.Append(source); },
      [&](const Buffer& buffer, bool threw) {
        EXPECT_EQ(Bytes(buffer), threw ? "abcdef" : "abcdefghijkl");
        EXPECT_EQ(Bytes(source), "ghijkl");
      });
  EXPECT_GT(failures, 0);
}

TEST(AllocationFailure, OfAWriteLeavesThoseWhoShareAlone) {
  using Pair = std::pair<Buffer, Buffer>;
  const int failures = ForEachFailingAllocation(
      [] {
        const Buffer buffer = BufferOfParts({"abc", "def"});
        return Pair(buffer, buffer);
      },
      [](Pair& pair) { pair.first.WriteAt(2, "XY", 2); },
      [](const Pair& pair, bool threw) {
        EXPECT_EQ(Bytes(pair.second), "abcdef");
        EXPECT_TRUE(threw || Bytes(pair.first) == "abXYef");
        EXPECT_EQ(pair.first.GetSize(), 6U);
      });
  EXPECT_GT(failures, 1);
}

TEST(AllocationFailure, OfConversionsPassesThrough) {
  const std::string name(3000, 'n');
  const TalStringT<WideChar> wide = Wide(name);
  const int failures = ForEachFailingAllocation(
      [] { return Buffer(); },
      [&](Buffer& buffer) { Helpers::AppendToBuffer(buffer, TalStringViewT<WideChar>(wide)); },
      [&](const Buffer& buffer, bool threw) { EXPECT_EQ(Bytes(buffer), threw ? "" : name); });
  EXPECT_GT(failures, 0);
}

}  // namespace
}  // namespace TalVcs::Testing
