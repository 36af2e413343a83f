#include <talvcs/directory/internal/former_entries.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/objects.h>

#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

/// A directory of several chunks, and the bytes of its entry list.
class FormerEntriesTest : public ::testing::Test {
 protected:
  FormerEntriesTest() {
    Repository repository = NewRepository();
    for (char name = 'a'; name <= 'j'; ++name) {
      m_tree.AddBlob(&repository, Wide(std::string(1, name)), BlobOf(std::string(1, name)));
    }
    m_list = Bytes(m_tree.GetData());
  }

  /// The list from the record at `index` on.
  TalStringViewT<char> ListFrom(std::size_t index) const {
    return std::string_view(m_list).substr(index * kRecordBytes);
  }

  // "100644 blob ", a name, a zero byte and an id.
  static constexpr std::size_t kRecordBytes = 12 + 2 + 64;

  Tree m_tree;
  std::string m_list;
};

TEST_F(FormerEntriesTest, GiveWholeChunksWhereTheListGoesOnWithTheirRecords) {
  FormerEntries former(&m_tree);
  std::vector<const EntryChunk*> found;
  for (std::size_t index = 0; !former.AtEnd(); former.SkipChunk()) {
    EntryChunk* chunk = former.ChunkThatBegins(ListFrom(index));
    ASSERT_NE(chunk, nullptr);
    found.push_back(chunk);
    index += chunk->Count();
  }
  const auto chunks = former.List()->Chunks();
  ASSERT_GT(chunks.size(), 1U);
  EXPECT_EQ(found, std::vector<const EntryChunk*>(chunks.begin(), chunks.end()));
}

TEST_F(FormerEntriesTest, GiveNoChunkFromItsMiddleOn) {
  FormerEntries former(&m_tree);
  ASSERT_GT(former.List()->Chunks()[0]->Count(), 1U);
  former.SkipEntry();
  EXPECT_EQ(former.ChunkThatBegins(ListFrom(0)), nullptr);
  EXPECT_EQ(former.ChunkThatBegins(ListFrom(1)), nullptr);
}

TEST_F(FormerEntriesTest, GiveTheirEntriesOneByOne) {
  FormerEntries former(&m_tree);
  std::string names;
  for (std::size_t index = 0; !former.AtEnd(); former.SkipEntry()) {
    const auto entry = former.EntryThatBegins(ListFrom(index));
    ASSERT_TRUE(entry.has_value());
    names += Ascii(entry->name);
    ++index;
  }
  EXPECT_EQ(names, "abcdefghij");
}

TEST_F(FormerEntriesTest, SkipThroughStandsBehindTheName) {
  FormerEntries former(&m_tree);
  former.SkipThrough(Wide("f"));
  ASSERT_FALSE(former.AtEnd());
  EXPECT_FALSE(former.EntryThatBegins(ListFrom(5)).has_value());
  EXPECT_TRUE(former.EntryThatBegins(ListFrom(6)).has_value());
  former.SkipThrough(Wide("j"));
  EXPECT_TRUE(former.AtEnd());
}

TEST_F(FormerEntriesTest, OfNothingAreAtTheirEnd) {
  const Tree empty;
  EXPECT_TRUE(FormerEntries(static_cast<const Tree*>(nullptr)).AtEnd());
  EXPECT_TRUE(FormerEntries(&empty).AtEnd());
}

}  // namespace
}  // namespace TalVcs::Testing
