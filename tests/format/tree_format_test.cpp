#include <talvcs/format/internal/tree_format.h>

#include <gtest/gtest.h>
#include <tests/support/text.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {
namespace {

using namespace std::string_literals;

const std::string kId = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

std::string Blob(const std::string& name) { return "100644 blob " + name + '\0' + kId; }
std::string Tree(const std::string& name) { return "40000 tree " + name + '\0' + kId; }

/// Returns the names with "/" after those of trees, and "!" at the end after a mistake.
std::string Read(std::string_view records) {
  TreeReader reader(records);
  std::string names;
  for (TreeRecord record; reader.Next(record);) {
    names += Ascii(record.name) + (record.kind == EntryKind::Tree ? "/ " : " ");
  }
  return names + (reader.HasFailed() ? "!" : "");
}

TEST(TreeReader, ReadsKindsNamesAndIds) {
  const std::string records = Blob("a") + Tree("b c") + Blob("d");
  TreeReader reader(records);
  TreeRecord record;
  ASSERT_TRUE(reader.Next(record));
  EXPECT_EQ(record.kind, EntryKind::Blob);
  EXPECT_EQ(Ascii(record.name), "a");
  EXPECT_EQ(record.id, kId);
  EXPECT_EQ(record.bytes, Blob("a"));
  ASSERT_TRUE(reader.Next(record));
  EXPECT_EQ(record.kind, EntryKind::Tree);
  EXPECT_EQ(Ascii(record.name), "b c");
  EXPECT_EQ(record.bytes, Tree("b c"));
  ASSERT_TRUE(reader.Next(record));
  EXPECT_FALSE(reader.Next(record));
  EXPECT_FALSE(reader.HasFailed());
}

TEST(TreeReader, ReadsNoRecords) {
  EXPECT_EQ(Read(""), "");
  EXPECT_TRUE(IsTreeList(""));
}

TEST(TreeReader, KeepsTheNameBeforeTheLast) {
  const std::string records = Blob("a long first name") + Blob("b") + Blob("c");
  TreeReader reader(records);
  TreeRecord first;
  TreeRecord second;
  ASSERT_TRUE(reader.Next(first));
  ASSERT_TRUE(reader.Next(second));
  EXPECT_EQ(Ascii(first.name), "a long first name");
  EXPECT_EQ(Ascii(second.name), "b");
}

TEST(TreeReader, ReadsNamesInTheOrderOfCodeUnits) {
  // U+1F600 has the units D83D DE00, which come before U+FF5E though its bytes come after.
  const std::string face = "\xF0\x9F\x98\x80";
  const std::string tilde = "\xEF\xBD\x9E";
  EXPECT_EQ(Read(Blob(face) + Blob(tilde)), "\\uD83D\\uDE00 \\uFF5E ");
  EXPECT_EQ(Read(Blob(tilde) + Blob(face)), "\\uFF5E !");
}

TEST(TreeReader, ReadsLoneSurrogatesAndTheReplacementCharacter) {
  EXPECT_EQ(Read(Blob("\xED\xA0\x80") + Blob("\xED\xB0\x80") + Blob("\xEF\xBF\xBD")),
            "\\uD800 \\uDC00 \\uFFFD ");
}

TEST(TreeReader, RefusesNamesThatEncodeToOtherBytes) {
  EXPECT_EQ(Read(Blob("\xFF")), "!");
  EXPECT_EQ(Read(Blob("\xC0\xAF")), "!");
  EXPECT_EQ(Read(Blob("\xE2\x82")), "!");
  EXPECT_EQ(Read(Blob("\xED\xA0\x80\xED\xB0\x80")), "!");  // a pair as two forms of three bytes
}

TEST(TreeReader, RefusesNamesThatNoEntryHas) {
  EXPECT_EQ(Read(Blob("")), "!");
  EXPECT_EQ(Read(Blob("a/b")), "!");
  EXPECT_EQ(Read(Blob("/")), "!");
}

TEST(TreeReader, RefusesNamesThatDoNotAscend) {
  EXPECT_EQ(Read(Blob("b") + Blob("a")), "b !");
  EXPECT_EQ(Read(Blob("a") + Blob("a")), "a !");
  EXPECT_EQ(Read(Blob("a") + Tree("a")), "a !");
  EXPECT_EQ(Read(Blob("ab") + Blob("a")), "ab !");
  EXPECT_EQ(Read(Blob("a") + Blob("ab")), "a ab ");
}

TEST(TreeReader, RefusesOtherModesAndTypes) {
  EXPECT_EQ(Read("100755 blob a"s + '\0' + kId), "!");
  EXPECT_EQ(Read("100644 tree a"s + '\0' + kId), "!");
  EXPECT_EQ(Read("40000 blob a"s + '\0' + kId), "!");
  EXPECT_EQ(Read("040000 tree a"s + '\0' + kId), "!");
  EXPECT_EQ(Read("100644  blob a"s + '\0' + kId), "!");
  EXPECT_EQ(Read("100644 commit a"s + '\0' + kId), "!");
}

TEST(TreeReader, RefusesOtherIds) {
  std::string upper = Blob("a");
  upper.back() = 'F';
  EXPECT_EQ(Read(upper), "!");
  for (const char other : {'g', '`', ':', '/', ' ', '\0', '\xE6'}) {
    std::string records = Blob("a");
    records[20] = other;
    EXPECT_EQ(Read(records), "!") << other;
  }
}

TEST(TreeReader, RefusesEveryPrefixThatCutsARecord) {
  const std::string records = Blob("a") + Tree("b");
  const std::size_t whole = Blob("a").size();
  for (std::size_t size = 1; size < records.size(); ++size) {
    EXPECT_EQ(IsTreeList(std::string_view(records).substr(0, size)), size == whole) << size;
  }
  EXPECT_EQ(Read(records + "1"), "a b/ !");
}

TEST(TreeReader, ReadsNothingAfterAMistake) {
  const std::string records = Blob("b") + Blob("a") + Blob("c");
  TreeReader reader(records);
  TreeRecord record;
  EXPECT_TRUE(reader.Next(record));
  EXPECT_FALSE(reader.Next(record));
  EXPECT_FALSE(reader.Next(record));
  EXPECT_TRUE(reader.HasFailed());
}

}  // namespace
}  // namespace TalVcs::Testing
