#include <talvcs/directory/internal/previous_entries.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/objects.h>

#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

/// A directory of several chunks, and the bytes of its entry list.
class PreviousEntriesTest : public ::testing::Test {
 protected:
  PreviousEntriesTest() {
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

TEST_F(PreviousEntriesTest, GiveWholeChunksWhereTheListGoesOnWithTheirRecords) {
  PreviousEntries previous(&m_tree);
  std::vector<const EntryChunk*> found;
  for (std::size_t index = 0; !previous.AtEnd(); previous.SkipChunk()) {
    EntryChunk* chunk = previous.ChunkThatBegins(ListFrom(index));
    ASSERT_NE(chunk, nullptr);
    found.push_back(chunk);
    index += chunk->Count();
  }
  const auto chunks = previous.List()->Chunks();
  ASSERT_GT(chunks.size(), 1U);
  EXPECT_EQ(found, std::vector<const EntryChunk*>(chunks.begin(), chunks.end()));
}

TEST_F(PreviousEntriesTest, GiveNoChunkFromItsMiddleOn) {
  PreviousEntries previous(&m_tree);
  ASSERT_GT(previous.List()->Chunks()[0]->Count(), 1U);
  previous.SkipEntry();
  EXPECT_EQ(previous.ChunkThatBegins(ListFrom(0)), nullptr);
  EXPECT_EQ(previous.ChunkThatBegins(ListFrom(1)), nullptr);
}

TEST_F(PreviousEntriesTest, GiveTheirEntriesOneByOne) {
  PreviousEntries previous(&m_tree);
  std::string names;
  for (std::size_t index = 0; !previous.AtEnd(); previous.SkipEntry()) {
    const auto entry = previous.EntryThatBegins(ListFrom(index));
    ASSERT_TRUE(entry.has_value());
    names += Ascii(entry->name);
    ++index;
  }
  EXPECT_EQ(names, "abcdefghij");
}

TEST_F(PreviousEntriesTest, SkipThroughStandsBehindTheName) {
  PreviousEntries previous(&m_tree);
  previous.SkipThrough(Wide("f"));
  ASSERT_FALSE(previous.AtEnd());
  EXPECT_FALSE(previous.EntryThatBegins(ListFrom(5)).has_value());
  EXPECT_TRUE(previous.EntryThatBegins(ListFrom(6)).has_value());
  previous.SkipThrough(Wide("j"));
  EXPECT_TRUE(previous.AtEnd());
}

TEST_F(PreviousEntriesTest, OfNothingAreAtTheirEnd) {
  const Tree empty;
  EXPECT_TRUE(PreviousEntries(static_cast<const Tree*>(nullptr)).AtEnd());
  EXPECT_TRUE(PreviousEntries(&empty).AtEnd());
}

}  // namespace
}  // namespace TalVcs::Testing
