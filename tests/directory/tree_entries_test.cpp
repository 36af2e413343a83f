#include <talvcs/directory/internal/tree_entries.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Names = std::vector<std::string>;

constexpr char kXId[] = "4b6cea43da6e13c24f191bcb97b51a58781d1ccdd8281d96291a2582f5177b78";
constexpr char kEmptyTreeId[] = "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321";

/// A directory.
class Entries {
 public:
  Entries() = default;
  explicit Entries(TreeEntries::Ptr list) : m_list(std::move(list)) {}

  void SetBlob(const std::string& name) {
    TreeEntries::Set(m_list, Wide(name), EntryKind::Blob, m_blob);
  }
  void SetTree(const std::string& name) {
    TreeEntries::Set(m_list, Wide(name), EntryKind::Tree, m_tree);
  }
  void SetNull(const std::string& name, EntryKind kind) {
    TreeEntries::Set(m_list, Wide(name), kind, cow_ptr<Object>());
  }
  bool Erase(const std::string& name) { return TreeEntries::Erase(m_list, Wide(name)); }
  bool Has(const std::string& name, EntryKind kind) const {
    return static_cast<bool>(TreeEntries::Find(m_list.get(), Wide(name), kind));
  }

  const TreeEntries* Get() const { return m_list.get(); }

  /// Names with their kinds, such as "a" for a blob and "a/" for a subtree.
  Names Listed() const {
    Names names;
    if (!m_list) return names;
    for (const EntryChunk* chunk : m_list->Chunks()) {
      for (std::size_t index = 0; index < chunk->Count(); ++index) {
        names.push_back(Ascii(chunk->Name(index)) +
                        (chunk->Kind(index) == EntryKind::Tree ? "/" : ""));
      }
    }
    return names;
  }
  std::string Records() const {
    Buffer bytes;
    for (const EntryChunk* chunk : m_list->Chunks()) chunk->AppendRecordsTo(bytes);
    return Bytes(bytes);
  }
  std::set<const EntryChunk*> Chunks() const {
    return {m_list->Chunks().begin(), m_list->Chunks().end()};
  }

  /// Looks whether counts, order and chunks are as they have to be.
  void ExpectSound() const {
    if (!m_list) return;
    std::uint64_t count = 0;
    std::uint64_t trees = 0;
    std::uint64_t bytes = 0;
    std::string last;
    for (const EntryChunk* chunk : m_list->Chunks()) {
      ASSERT_GT(chunk->Count(), 0U);
      ASSERT_NE(Ascii(chunk->Name(0)), last) << "a name stands in two chunks";
      last = Ascii(chunk->Name(chunk->Count() - 1));
      count += chunk->Count();
      trees += chunk->TreeCount();
      bytes += chunk->Records().size();
    }
    EXPECT_EQ(m_list->Count(), count);
    EXPECT_EQ(m_list->TreeCount(), trees);
    EXPECT_EQ(m_list->RecordBytes(), bytes);
    const Names listed = Listed();
    EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end()));
  }

 private:
  TreeEntries::Ptr m_list;
  cow_ptr<Object> m_blob = SharedBlob("x");
  cow_ptr<Object> m_tree = Make<Tree>();
};

TEST(TreeEntries, EmptyListIsNull) {
  Entries entries;
  EXPECT_EQ(entries.Get(), nullptr);
  EXPECT_FALSE(entries.Erase("a"));
  EXPECT_FALSE(entries.Has("a", EntryKind::Blob));
  EXPECT_EQ(TreeEntriesBuilder().Finish(nullptr).get(), nullptr);
}

TEST(TreeEntries, EraseOfTheLastEntryMakesTheListNull) {
  Entries entries;
  entries.SetBlob("a");
  EXPECT_TRUE(entries.Erase("a"));
  EXPECT_EQ(entries.Get(), nullptr);
}

TEST(TreeEntries, BlobComesBeforeTheSubtreeItHides) {
  Entries entries;
  entries.SetTree("a");
  entries.SetBlob("a");
  entries.SetTree("b");
  EXPECT_EQ(entries.Listed(), (Names{"a", "a/", "b/"}));
  EXPECT_TRUE(entries.Get()->Chunks()[0]->HidesTree());
  EXPECT_EQ(entries.Records(), "100644 blob a" + std::string(1, '\0') + kXId + "40000 tree b" +
                                   std::string(1, '\0') + kEmptyTreeId);
}

TEST(TreeEntries, NullEntriesHaveNoRecord) {
  Entries entries;
  entries.SetNull("a", EntryKind::Blob);
  entries.SetNull("b", EntryKind::Tree);
  EXPECT_EQ(entries.Get()->Count(), 2U);
  EXPECT_EQ(entries.Records(), "");
  entries.SetTree("a");
  EXPECT_EQ(entries.Records(), "") << "a null blob keeps the subtree out as well";
}

TEST(TreeEntries, HiddenSubtreesHaveNoRecord) {
  Entries entries;
  for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h"}) entries.SetTree(name);
  for (const char* name : {"a", "d", "h"}) entries.SetBlob(name);
  entries.ExpectSound();
  EXPECT_EQ(entries.Listed(),
            (Names{"a", "a/", "b/", "c/", "d", "d/", "e/", "f/", "g/", "h", "h/"}));
  EXPECT_EQ(entries.Get()->RecordBytes(), 3U * 78U + 5U * 77U);
}

TEST(TreeEntries, EntriesOfOneNameStayInOneChunk) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    std::mt19937 random(seed);
    Entries entries;
    for (int step = 0; step < 400; ++step) {
      const std::string name(1, static_cast<char>('a' + random() % 26));
      switch (random() % 4) {
        case 0:
          entries.SetBlob(name);
          break;
        case 1:
          entries.SetTree(name);
          break;
        case 2:
          entries.SetNull(name, random() % 2 == 0 ? EntryKind::Blob : EntryKind::Tree);
          break;
        default:
          entries.Erase(name);
      }
      entries.ExpectSound();
      if (HasFatalFailure()) return;
    }
  }
}

TEST(TreeEntries, NamesThatArriveInOrderFillTheirChunks) {
  Entries entries;
  for (int number = 100; number < 200; ++number) entries.SetBlob(std::to_string(number));
  std::size_t most = 0;
  for (const EntryChunk* chunk : entries.Get()->Chunks()) most = std::max(most, chunk->Count());
  EXPECT_EQ(entries.Get()->Chunks().size(), 100 / most);
}

TEST(TreeEntries, NamesThatArriveInOrderEnterTheLastChunkInPlace) {
  Entries entries;
  for (int number = 100; number < 106; ++number) entries.SetBlob(std::to_string(number));
  const std::set<const EntryChunk*> chunks = entries.Chunks();
  entries.SetBlob("106");
  entries.SetTree("107");
  EXPECT_EQ(entries.Chunks(), chunks);
  entries.ExpectSound();
  EXPECT_EQ(entries.Listed(), (Names{"100", "101", "102", "103", "104", "105", "106", "107/"}));
  EXPECT_EQ(entries.Records().substr(6 * 80), "100644 blob 106" + std::string(1, '\0') + kXId +
                                                  "40000 tree 107" + std::string(1, '\0') +
                                                  kEmptyTreeId);
}

TEST(TreeEntries, SharedListIsNotAppendedToInPlace) {
  Entries entries;
  for (int number = 100; number < 106; ++number) entries.SetBlob(std::to_string(number));
  const Entries before(entries);
  const Names names = before.Listed();
  entries.SetBlob("106");
  EXPECT_EQ(before.Listed(), names);
  EXPECT_EQ(entries.Listed().back(), "106");
  EXPECT_EQ(entries.Listed().size(), names.size() + 1);
}

TEST(TreeEntries, ChunkThatAnotherListSharesIsNotAppendedTo) {
  Entries entries;
  for (int number = 100; number < 106; ++number) entries.SetBlob(std::to_string(number));
  TreeEntriesBuilder builder;
  for (EntryChunk* chunk : entries.Get()->Chunks()) builder.Append(*chunk);
  const Entries other(builder.Finish(nullptr));
  const Names names = other.Listed();
  entries.SetBlob("106");
  other.ExpectSound();
  EXPECT_EQ(other.Listed(), names);
  EXPECT_EQ(entries.Listed().back(), "106");
}

TEST(TreeEntries, BufferKeepsTheRecordsThatItSharedBeforeAnAppend) {
  Entries entries;
  for (int number = 100; number < 106; ++number) entries.SetBlob(std::to_string(number));
  Buffer records;
  for (const EntryChunk* chunk : entries.Get()->Chunks()) chunk->AppendRecordsTo(records);
  const std::string before = Bytes(records);
  entries.SetBlob("106");
  EXPECT_EQ(Bytes(records), before);
  EXPECT_EQ(entries.Records().substr(0, before.size()), before);
}

TEST(TreeEntries, NamesThatGrowDoNotFitAndAreWrittenWhole) {
  Entries entries;
  std::string expected;
  for (std::size_t length = 1; length < 200; length += 7) {
    const std::string name(length, 'n');
    entries.SetBlob(name);
    entries.ExpectSound();
    expected += "100644 blob " + name + std::string(1, '\0') + kXId;
  }
  EXPECT_EQ(entries.Records(), expected);
}

TEST(TreeEntries, AppendedNameWithAZeroLeavesNoWholeRecords) {
  Entries entries;
  for (int number = 100; number < 106; ++number) entries.SetBlob(std::to_string(number));
  EXPECT_TRUE(entries.Get()->Chunks().back()->HasWholeRecords());
  entries.SetBlob(std::string("9\0x", 3));
  EXPECT_FALSE(entries.Get()->Chunks().back()->HasWholeRecords());
}

/// A blob with a type of its own.
class Note final : public Blob {
 public:
  TalStringT<char> GetHeader() const override { return "note"; }
};

TEST(TreeEntries, RecordWithAnotherTypeLeavesNoWholeRecords) {
  const cow_ptr<Blob> note(std::make_shared<Note>());
  TreeEntries::Ptr list;
  for (const char* name : {"a", "b"}) {
    TreeEntries::Set(list, Wide(name), EntryKind::Blob, note);
    EXPECT_FALSE(list->Chunks().back()->HasWholeRecords());
  }
  TreeEntries::Set(list, TAL_WIDE("b"), EntryKind::Blob, SharedBlob("x"));
  EXPECT_FALSE(list->Chunks().back()->HasWholeRecords());
  TreeEntries::Set(list, TAL_WIDE("a"), EntryKind::Blob, SharedBlob("x"));
  EXPECT_TRUE(list->Chunks().back()->HasWholeRecords());
}

TEST(TreeEntries, EditOfASharedListDoesNotChangeTheOther) {
  Entries entries;
  for (int number = 100; number < 200; ++number) entries.SetBlob(std::to_string(number));
  const Entries before(entries);
  const Names names = before.Listed();
  entries.SetBlob("1505");
  EXPECT_TRUE(entries.Erase("120"));
  EXPECT_EQ(before.Listed(), names);
  EXPECT_TRUE(entries.Has("1505", EntryKind::Blob));
  EXPECT_FALSE(entries.Has("120", EntryKind::Blob));
  EXPECT_TRUE(before.Has("120", EntryKind::Blob));
}

TEST(TreeEntries, StatesShareAllChunksExceptTheEditedOne) {
  Entries entries;
  for (int number = 100; number < 200; ++number) entries.SetBlob(std::to_string(number));
  const Entries before(entries);
  entries.SetTree("150");
  std::vector<const EntryChunk*> shared;
  const auto old_chunks = before.Chunks();
  const auto new_chunks = entries.Chunks();
  std::set_intersection(old_chunks.begin(), old_chunks.end(), new_chunks.begin(), new_chunks.end(),
                        std::back_inserter(shared));
  EXPECT_EQ(shared.size(), old_chunks.size() - 1);
}

TEST(TreeEntries, RemovalsReduceTheNumberOfChunks) {
  Entries entries;
  for (int number = 1000; number < 2000; ++number) entries.SetBlob(std::to_string(number));
  for (int number = 1000; number < 2000; ++number) {
    if (number % 100 == 0) continue;
    EXPECT_TRUE(entries.Erase(std::to_string(number)));
  }
  entries.ExpectSound();
  EXPECT_EQ(entries.Get()->Count(), 10U);
  EXPECT_LE(entries.Get()->Chunks().size(), 10U);
}

TEST(TreeEntries, LongNamesAreWrittenWhole) {
  Entries entries;
  const std::string name(5000, 'n');
  entries.SetBlob(name);
  entries.SetBlob("short");
  EXPECT_EQ(entries.Records(), "100644 blob " + name + std::string(1, '\0') + kXId +
                                   "100644 blob short" + std::string(1, '\0') + kXId);
}

TEST(TreeEntries, ReleaseDropsTheChildren) {
  const cow_ptr<Object> blob = SharedBlob("held");
  {
    TreeEntries::Ptr list;
    for (int number = 0; number < 30; ++number) {
      TreeEntries::Set(list, Wide(std::to_string(number)), EntryKind::Blob, blob);
    }
    EXPECT_EQ(blob.use_count(), 31);
  }
  EXPECT_EQ(blob.use_count(), 1);
}

TEST(TreeEntriesBuilder, MakesTheSameListAsEdits) {
  const cow_ptr<Object> blob = SharedBlob("x");
  Entries edited;
  TreeEntriesBuilder builder;
  for (int number = 100; number < 150; ++number) {
    edited.SetBlob(std::to_string(number));
    builder.Append(Wide(std::to_string(number)), EntryKind::Blob, blob);
    if (number % 7 != 0) continue;
    edited.SetTree(std::to_string(number));
    builder.Append(Wide(std::to_string(number)), EntryKind::Tree, Make<Tree>());
  }
  const Entries built(builder.Finish(nullptr));
  built.ExpectSound();
  EXPECT_EQ(built.Listed(), edited.Listed());
  EXPECT_EQ(built.Records(), edited.Records());
}

TEST(TreeEntriesBuilder, SharesWholeChunks) {
  Entries source;
  for (int number = 10; number < 40; ++number) source.SetBlob(std::to_string(number));
  TreeEntriesBuilder builder;
  for (EntryChunk* chunk : source.Get()->Chunks()) builder.Append(*chunk);
  builder.Append(Wide("zz"), EntryKind::Tree, Make<Tree>());
  const Entries built(builder.Finish(nullptr));
  built.ExpectSound();
  EXPECT_EQ(built.Get()->Count(), 31U);
  EXPECT_EQ(built.Get()->Chunks()[0], source.Get()->Chunks()[0]);
}

TEST(TreeEntriesBuilder, ReleasesItsEntriesIfItIsNotFinished) {
  const cow_ptr<Object> blob = SharedBlob("held");
  {
    TreeEntriesBuilder builder;
    for (int number = 10; number < 40; ++number) {
      builder.Append(Wide(std::to_string(number)), EntryKind::Blob, blob);
    }
  }
  EXPECT_EQ(blob.use_count(), 1);
}

}  // namespace
}  // namespace TalVcs::Testing
