#include <talvcs/format/internal/packed_format.h>

#include <gtest/gtest.h>
#include <tests/support/bytes.h>

#include <string>
#include <string_view>

namespace TalVcs::Testing {
namespace {

using namespace std::string_view_literals;

TEST(PackedFormat, ReadsTheThreeTypes) {
  const auto blob = ReadPackedHeader(BufferOf("blob 5\0hello"sv));
  ASSERT_TRUE(blob);
  EXPECT_EQ(blob->type, ObjectType::Blob);
  EXPECT_EQ(blob->headerBytes, 7U);
  EXPECT_EQ(blob->dataBytes, 5U);
  const auto tree = ReadPackedHeader(BufferOf("tree 0\0"sv));
  ASSERT_TRUE(tree);
  EXPECT_EQ(tree->type, ObjectType::Tree);
  EXPECT_EQ(tree->dataBytes, 0U);
  const auto commit = ReadPackedHeader(BufferOf("commit 1\0x"sv));
  ASSERT_TRUE(commit);
  EXPECT_EQ(commit->type, ObjectType::Commit);
  EXPECT_EQ(commit->headerBytes, 9U);
}

TEST(PackedFormat, ReadsAHeaderInSeveralSegments) {
  const auto header = ReadPackedHeader(BufferOfParts({"bl", "ob 1", "0\0012"sv, "3456789"sv}));
  EXPECT_FALSE(header);  // no zero byte ends it
  const auto cut = ReadPackedHeader(BufferOfParts({"bl", "ob 1", "0\0"sv, "01234"sv, "56789"sv}));
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->headerBytes, 8U);
  EXPECT_EQ(cut->dataBytes, 10U);
}

TEST(PackedFormat, RefusesEveryOtherForm) {
  constexpr std::string_view kOthers[] = {
      ""sv,
      "blob"sv,
      "blob 5"sv,
      "blob 5hello"sv,
      "blob 5\0hell"sv,
      "blob 5\0hello!"sv,
      "blob 05\0hello"sv,
      "blob 00\0"sv,
      "blob \0"sv,
      "blob\0"sv,
      "blob +5\0hello"sv,
      "blob -0\0"sv,
      "blob  5\0hello"sv,
      "blob 5 \0hello"sv,
      "blob 5x\0hello"sv,
      "blob 0x5\0hello"sv,
      " blob 5\0hello"sv,
      "Blob 5\0hello"sv,
      "blobs 5\0hello"sv,
      "blo 5\0hello"sv,
      "tag 5\0hello"sv,
      "blob\t5\0hello"sv,
      "blob 18446744073709551615\0"sv,
      "blob 18446744073709551621\0hello"sv,
      "blob 000000000000000000000000000005\0hello"sv,
  };
  for (const std::string_view other : kOthers) {
    EXPECT_FALSE(ReadPackedHeader(BufferOf(other))) << Hex(other);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
