#include <talvcs/directory/internal/tree_entries.h>
#include <talvcs/foundation/internal/sha256.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>

#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using TalUtils::Sha256;

/// A state of a directory.
class State {
 public:
  State() = default;
  explicit State(TreeEntries::Ptr list) : m_list(std::move(list)) {}

  void Set(const std::string& name, const cow_ptr<Object>& child) {
    TreeEntries::Set(m_list, Wide(name), EntryKind::Blob, child);
  }
  void Erase(const std::string& name) { TreeEntries::Erase(m_list, Wide(name)); }

  Sha256::Digest Digest() const { return TreeEntries::ComputeDigest(m_list.get()); }

  /// The digest of all bytes in one run.
  Sha256::Digest DigestFromScratch() const {
    std::string records;
    if (m_list) {
      for (const EntryChunk* chunk : m_list->Chunks()) {
        const auto bytes = chunk->Records();
        for (const std::byte byte : bytes) records += static_cast<char>(byte);
      }
    }
    const std::string packed = "tree " + std::to_string(records.size()) + '\0' + records;
    Sha256 hash;
    hash.Update(packed.data(), packed.size());
    return hash.Finish();
  }

  TreeEntries* Get() const { return m_list.get(); }

 private:
  TreeEntries::Ptr m_list;
};

std::string NameOf(unsigned number) {
  char name[16];
  std::snprintf(name, sizeof(name), "f%05u", number);
  return name;
}

State Directory(unsigned size) {
  State state;
  const cow_ptr<Object> child = SharedBlob("first");
  for (unsigned number = 0; number < size; ++number) state.Set(NameOf(number), child);
  return state;
}

class EntriesDigest : public testing::TestWithParam<unsigned> {};

TEST_P(EntriesDigest, OfAChangedListIsTheDigestOfItsBytes) {
  const unsigned size = GetParam();
  std::mt19937 random(size);
  State state = Directory(size);
  ASSERT_EQ(state.Digest(), state.DigestFromScratch());
  std::vector<State> previous;
  for (unsigned step = 0; step < 120; ++step) {
    // Some steps change the list in place, some a copy of it, a few more than its contents.
    if (random() % 3 != 0) previous.push_back(state);
    const unsigned number = random() % size;
    const cow_ptr<Object> child = SharedBlob(std::to_string(step));
    switch (random() % 16) {
      case 0:
        state.Erase(NameOf(number));
        break;
      case 1:
        state.Set(NameOf(number), cow_ptr<Object>());
        break;
      case 2:
        state.Set(NameOf(number) + "x", child);
        break;
      default:
        state.Set(NameOf(number), child);
    }
    if (random() % 4 == 0) continue;  // the next digest covers several changes
    ASSERT_EQ(state.Digest(), state.DigestFromScratch()) << "step " << step;
  }
  for (const State& one : previous) ASSERT_EQ(one.Digest(), one.DigestFromScratch());
}

INSTANTIATE_TEST_SUITE_P(Sizes, EntriesDigest, testing::Values(1, 7, 29, 33, 100, 300, 1000));

TEST(EntriesDigest, ContinuesOnlyFromAnEqualBeginning) {
  const State first = Directory(100);
  State second = first;
  second.Set(NameOf(90), SharedBlob("other"));
  second.Digest();
  // Has the chunks of the second state from the 50th file on, but not those before it.
  State third = second;
  third.Set(NameOf(20), SharedBlob("another"));
  EXPECT_EQ(third.Digest(), third.DigestFromScratch());
  // One record shorter and one longer leave the size as it is, but not the bytes.
  State fourth = third;
  fourth.Erase(NameOf(3));
  fourth.Set(NameOf(97), SharedBlob("y"));
  fourth.Set(NameOf(96) + "5", SharedBlob("z"));
  fourth.Erase(NameOf(96));
  EXPECT_EQ(fourth.Digest(), fourth.DigestFromScratch());
}

// The first chunk of a list that had shrunk to fewer than four was taken for one that follows a
// checkpoint.
TEST(EntriesDigest, OfAListThatShrinksInPlaceIsTheDigestOfItsBytes) {
  constexpr unsigned kSize = 300;
  const State first = Directory(kSize);
  State second = first;
  second.Set(NameOf(90), SharedBlob("other"));  // has room for checkpoints
  for (unsigned number = 0; number < kSize; ++number) {
    second.Erase(NameOf(number));
    ASSERT_EQ(second.Digest(), second.DigestFromScratch()) << "file " << number;
  }
}

TEST(EntriesDigest, OfABuiltListContinuesFromThePreviousVersion) {
  State previous = Directory(100);
  State changed = previous;
  changed.Set(NameOf(70), SharedBlob("second"));
  changed.Digest();  // leaves checkpoints
  for (const unsigned number : {0U, 24U, 26U, 49U, 51U, 74U, 76U, 99U}) {
    State next = changed;
    next.Set(NameOf(number), SharedBlob("third"));
    TreeEntriesBuilder builder;
    for (EntryChunk* chunk : next.Get()->Chunks()) builder.Append(*chunk);
    const State built(builder.Finish(changed.Get()));
    EXPECT_EQ(built.Digest(), built.DigestFromScratch()) << "file " << number;
  }
}

}  // namespace
}  // namespace TalVcs::Testing
