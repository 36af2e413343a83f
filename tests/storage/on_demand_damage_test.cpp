// Every way in which an object of a store can be wrong, for every kind of link that leads to it.

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/on_demand_store.h>

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {
namespace {

constexpr std::string_view kAuthor = "A <a@b> 1700000000 +0000";

std::string Joined(std::string start, const std::string& end) {
  start += '\0';
  start += end;
  return start;
}

std::string PackedText(const std::string& type, const std::string& data) {
  return Joined(type + ' ' + std::to_string(data.size()), data);
}

std::string BlobRecord(const std::string& name, const std::string& id) {
  return Joined("100644 blob " + name, id);
}
std::string TreeRecord(const std::string& name, const std::string& id) {
  return Joined("40000 tree " + name, id);
}

std::string CommitText(const std::string& tree, const std::string& parent) {
  std::string text = "tree " + tree + '\n';
  if (!parent.empty()) text += "parent " + parent + '\n';
  return text + "author " + std::string(kAuthor) + "\ncommitter " + std::string(kAuthor) +
         "\n\ntext\n";
}

/// A store of one blob "d/f", its directories and two commits. Each packed form can be replaced by
/// another before the objects above are made, which then name what it is replaced by.
struct HandMadeStore {
  OnDemandStore store;
  std::string blob = PackedText("blob", "content");
  std::string tree;
  std::string root;
  std::string parent;
  std::string head;
  std::vector<std::string> ids;  // of blob, tree, root, parent and head

  std::string Put(const std::string& packed) {
    const Buffer bytes = BufferOf(packed);
    const Id id(bytes);
    store.reader->Put(id, bytes);
    ids.push_back(Ascii(id));
    return Ascii(id);
  }

  void Make() {
    const std::string blob_id = Put(blob);
    if (tree.empty()) tree = PackedText("tree", BlobRecord("f", blob_id));
    const std::string tree_id = Put(tree);
    if (root.empty()) root = PackedText("tree", TreeRecord("d", tree_id));
    const std::string root_id = Put(root);
    if (parent.empty()) parent = PackedText("commit", CommitText(root_id, ""));
    const std::string parent_id = Put(parent);
    if (head.empty()) head = PackedText("commit", CommitText(root_id, parent_id));
    store.heads = {{Wide("master"), Id(Wide(Put(head)))}};
  }
};

using Follow = std::function<void(const Repository&)>;

/// The links that lead to the objects, in the order of `HandMadeStore::ids`.
std::vector<Follow> Links() {
  return {
      [](const Repository& r) { r.GetHead()->GetBlob(TAL_WIDE("d/f")); },
      [](const Repository& r) { r.GetHead()->GetTree(TAL_WIDE("d")); },
      [](const Repository& r) { r.GetHead()->GetTree(); },
      [](const Repository& r) { r.GetHead()->GetParent(); },
      [](const Repository& r) { r.GetHead(); },
  };
}

std::string Outcome(const Repository& repository, const Follow& follow) {
  try {
    follow(repository);
  } catch (const ObjectUnavailable& unavailable) {
    static const char* const problems[] = {"missing", "unreadable", "damaged", "not canonical"};
    return Ascii(unavailable.GetId()) + ' ' +
           problems[static_cast<std::size_t>(unavailable.GetProblem())];
  }
  return "found";
}

/// Expects that the link to object `index` fails for that reason, twice, and that all others that
/// don't lead through it can be followed.
void ExpectProblem(HandMadeStore& made, std::size_t index, const std::string& problem) {
  const Repository repository = made.store.Open();
  const std::vector<Follow> links = Links();
  const std::string expected = made.ids[index] + ' ' + problem;
  EXPECT_EQ(Outcome(repository, links[index]), expected);
  EXPECT_EQ(Outcome(repository, links[index]), expected);
  for (std::size_t other = index + 1; other < links.size(); ++other) {
    EXPECT_EQ(Outcome(repository, links[other]), "found") << other;
  }
}

class DamagedObject : public ::testing::TestWithParam<std::size_t> {
 protected:
  DamagedObject() { m_made.Make(); }
  Id DamagedId() const { return Id(Wide(m_made.ids[GetParam()])); }
  Buffer& Packed() { return m_made.store.reader->objects[DamagedId()]; }

  HandMadeStore m_made;
};

TEST_P(DamagedObject, ThatIsMissingIsReported) {
  m_made.store.reader->objects.erase(DamagedId());
  ExpectProblem(m_made, GetParam(), "missing");
}

TEST_P(DamagedObject, IsReportedForEachByteThatIsFlipped) {
  const std::string good = Bytes(Packed());
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::string bad = good;
    bad[at] = static_cast<char>(bad[at] ^ 1);
    Packed() = BufferOf(bad);
    ExpectProblem(m_made, GetParam(), "damaged");
  }
}

TEST_P(DamagedObject, IsReportedForEachPrefix) {
  const std::string good = Bytes(Packed());
  for (std::size_t size = 0; size < good.size(); ++size) {
    Packed() = BufferOf(good.substr(0, size));
    ExpectProblem(m_made, GetParam(), "damaged");
  }
}

TEST_P(DamagedObject, CanBeReadOnceItIsRepaired) {
  const Buffer good = Packed();
  m_made.store.reader->objects.erase(DamagedId());
  const Repository repository = m_made.store.Open();
  EXPECT_NE(Outcome(repository, Links()[GetParam()]), "found");
  m_made.store.reader->objects[DamagedId()] = good;
  EXPECT_EQ(Outcome(repository, Links()[GetParam()]), "found");
}

TEST_P(DamagedObject, IsReportedToALookUpById) {
  Packed() = BufferOf(Joined("blob 1", "x"));
  const Repository repository = m_made.store.Open();
  const Id id = DamagedId();
  EXPECT_THROW(repository.GetBlobFromStorage(id), ObjectUnavailable);
  EXPECT_THROW(repository.GetTreeFromStorage(id), ObjectUnavailable);
  EXPECT_THROW(repository.GetCommitFromStorage(id), ObjectUnavailable);
}

std::string NameOfLink(const ::testing::TestParamInfo<std::size_t>& link) {
  constexpr std::array<const char*, 5> kNames = {"Blob", "Tree", "Root", "Parent", "Head"};
  return kNames[link.param];
}

INSTANTIATE_TEST_SUITE_P(AtEveryLink, DamagedObject, ::testing::Range<std::size_t>(0, 5),
                         NameOfLink);

TEST(ObjectOfAnotherForm, BlobWithAWrongSizeIsNotCanonical) {
  HandMadeStore made;
  made.blob = Joined("blob 8", "content");
  made.Make();
  ExpectProblem(made, 0, "not canonical");
}

TEST(ObjectOfAnotherForm, BlobWhereATreeIsNamedIsDamaged) {
  HandMadeStore made;
  made.tree = PackedText("blob", "content");
  made.Make();
  ExpectProblem(made, 1, "damaged");
}

TEST(ObjectOfAnotherForm, TreesAreNotCanonical) {
  const std::string id(64, 'a');
  const std::string upper(64, 'A');
  for (const std::string& records :
       {BlobRecord("g", id) + BlobRecord("f", id), BlobRecord("f", id) + BlobRecord("f", id),
        BlobRecord("f", id) + TreeRecord("f", id), BlobRecord("f", upper), BlobRecord("", id),
        BlobRecord("a/b", id), BlobRecord("\xFF", id), BlobRecord("f", id.substr(1)),
        Joined("100755 blob f", id), BlobRecord("f", id) + " "}) {
    HandMadeStore made;
    made.tree = PackedText("tree", records);
    made.Make();
    ExpectProblem(made, 1, "not canonical");
    HandMadeStore of_root;
    of_root.root = PackedText("tree", records);
    of_root.Make();
    ExpectProblem(of_root, 2, "not canonical");
  }
}

TEST(ObjectOfAnotherForm, CommitsAreNotCanonical) {
  const std::string id(64, 'a');
  const std::string good = CommitText(id, id);
  for (const std::string& text :
       {CommitText(std::string(64, 'A'), id), CommitText(id, std::string(64, 'A')),
        CommitText(id.substr(1), id), good.substr(0, good.size() - 1), "parent " + id + '\n' + good,
        Joined(good, "\n"), CommitText(id, id + "\nparent " + id)}) {
    for (const std::size_t index : {std::size_t{3}, std::size_t{4}}) {
      HandMadeStore made;
      (index == 3 ? made.parent : made.head) = PackedText("commit", text);
      made.Make();
      const Repository repository = made.store.Open();
      EXPECT_EQ(Outcome(repository, Links()[index]), made.ids[index] + " not canonical") << text;
    }
  }
}

TEST(LookUpById, DoesNotAskForWhatIsNoId) {
  HandMadeStore made;
  made.Make();
  const Repository repository = made.store.Open();
  for (const char* text : {"", "no id", "ABCDEF"}) {
    EXPECT_FALSE(repository.GetBlobFromStorage(Id(Wide(text))));
    EXPECT_FALSE(repository.GetTreeFromStorage(Id(Wide(text))));
    EXPECT_FALSE(repository.GetCommitFromStorage(Id(Wide(text))));
  }
  EXPECT_EQ(made.store.TakeReads(), 0U);
}

TEST(LookUpById, FindsNothingOfAnotherType) {
  HandMadeStore made;
  made.Make();
  const Repository repository = made.store.Open();
  EXPECT_FALSE(repository.GetBlobFromStorage(Id(Wide(made.ids[1]))));
  EXPECT_FALSE(repository.GetCommitFromStorage(Id(Wide(made.ids[0]))));
  EXPECT_FALSE(repository.GetTreeFromStorage(Id(Wide(made.ids[4]))));
  EXPECT_TRUE(repository.GetTreeFromStorage(Id(Wide(made.ids[1]))));
  EXPECT_FALSE(repository.GetBlobFromStorage(Id(Wide(std::string(64, '0')))));
}

TEST(ObjectUnavailable, SaysWhatIsWrongWithWhichObject) {
  const std::string digits(64, 'a');
  const Id id(Wide(digits));
  const auto sentence = [&](ObjectProblem problem) {
    return std::string(ObjectUnavailable(id, problem).what());
  };
  EXPECT_EQ(sentence(ObjectProblem::Missing), "object " + digits + " is missing");
  EXPECT_EQ(sentence(ObjectProblem::Unreadable), "object " + digits + " can't be read");
  EXPECT_EQ(sentence(ObjectProblem::Damaged), "object " + digits + " is damaged");
  EXPECT_EQ(sentence(ObjectProblem::NotCanonical),
            "object " + digits + " isn't in the form that the library writes");
}

}  // namespace
}  // namespace TalVcs::Testing
