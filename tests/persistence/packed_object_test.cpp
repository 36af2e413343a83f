#include <talvcs/persistence/packed_object.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/ordinary_repository.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using namespace std::string_literals;

const std::string kA(64, 'a');
const std::string kB(64, 'b');

std::string Packed(const std::string& type, const std::string& data) {
  return type + ' ' + std::to_string(data.size()) + '\0' + data;
}

std::string CommitText(const std::string& head) {
  const std::string info = "Ada <ada@example.com> 5 +0100";
  return head + "author " + info + "\ncommitter " + info + "\n\nFirst\nand second line\n";
}

/// Returns the references of packed bytes as "type name=id", separated by commas, or "!".
std::string References(const std::string& packed) {
  std::string shown;
  const auto visit = [](void* target, const PackedReference& reference) {
    constexpr const char* kTypes[] = {"blob", "tree", "commit"};
    *static_cast<std::string*>(target) += kTypes[static_cast<int>(reference.type)] + " "s +
                                          Ascii(reference.name) + "=" +
                                          Ascii(reference.id).substr(0, 4) + ",";
  };
  const bool read = VisitReferences(BufferOf(packed), {&shown, visit});
  return read ? shown : shown + "!";
}

TEST(CheckPackedObject, AcceptsWhatTheLibraryWrites) {
  Repository repository = NewOrdinaryRepository();
  Commit commit(&repository, false);
  commit.AddBlob(&repository, TAL_WIDE("a/b"), BlobOf("one"));
  commit.AddBlob(&repository, TAL_WIDE("c"), BlobOf(""));
  commit.SetAuthorName(TAL_WIDE("a <b\ncommitter c"));
  commit.SetDescription(TAL_WIDE("several\n\nlines"));
  const auto first = repository.DoCommit(commit);
  Commit second(&repository, false);
  const auto stored = repository.DoCommit(second);
  for (const auto& written : {first, stored}) {
    EXPECT_EQ(CheckPackedObject(written->GetId(), written->GetPackedData()), std::nullopt);
  }
  for (const auto& [id, tree] : repository.GetStorage()->GetTrees()) {
    EXPECT_EQ(CheckPackedObject(id, tree->GetPackedData()), std::nullopt);
  }
  for (const auto& [id, blob] : repository.GetStorage()->GetBlobs()) {
    EXPECT_EQ(CheckPackedObject(id, blob->GetPackedData()), std::nullopt);
  }
}

TEST(CheckPackedObject, AcceptsTheEmptyTree) {
  // The digest of "tree 0" and a zero byte.
  const Id id(TAL_WIDE("6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321"));
  EXPECT_EQ(CheckPackedObject(id, BufferOf(Packed("tree", ""))), std::nullopt);
}

TEST(CheckPackedObject, ReportsBytesOfAnotherDigestAsDamaged) {
  const Id id(TAL_WIDE("6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321"));
  EXPECT_EQ(CheckPackedObject(id, BufferOf(Packed("blob", ""))), ObjectProblem::Damaged);
  EXPECT_EQ(CheckPackedObject(id, Buffer()), ObjectProblem::Damaged);
  EXPECT_EQ(CheckPackedObject(Id(), BufferOf(Packed("tree", ""))), ObjectProblem::Damaged);
}

TEST(CheckPackedObject, ReportsBytesOfAnotherFormAsNotCanonical) {
  for (const std::string& bytes :
       {"blob 1"s, "blob 01\0x"s, Packed("tag", ""), Packed("tree", "100644 blob a"),
        Packed("commit", "tree \n"), Packed("commit", CommitText("tree x\n"))}) {
    const Buffer packed = BufferOf(bytes);
    EXPECT_EQ(CheckPackedObject(Id(packed), packed), ObjectProblem::NotCanonical) << bytes;
  }
}

TEST(GetPackedType, ReadsTheHeader) {
  EXPECT_EQ(GetPackedType(BufferOf(Packed("blob", "x"))), ObjectType::Blob);
  EXPECT_EQ(GetPackedType(BufferOf(Packed("tree", ""))), ObjectType::Tree);
  EXPECT_EQ(GetPackedType(BufferOf(Packed("commit", "x"))), ObjectType::Commit);
  EXPECT_EQ(GetPackedType(BufferOf(Packed("tag", "x"))), std::nullopt);
  EXPECT_EQ(GetPackedType(BufferOf("blob 2\0x"s)), std::nullopt);
  EXPECT_EQ(GetPackedType(Buffer()), std::nullopt);
}

TEST(VisitReferences, VisitsTheEntriesOfATreeInOrder) {
  const std::string records =
      "100644 blob a"s + '\0' + kA + "40000 tree b" + '\0' + kB + "100644 blob c" + '\0' + kB;
  EXPECT_EQ(References(Packed("tree", records)), "blob a=aaaa,tree b=bbbb,blob c=bbbb,");
}

TEST(VisitReferences, VisitsTheTreeOfACommitBeforeItsParent) {
  EXPECT_EQ(References(Packed("commit", CommitText("tree " + kA + "\nparent " + kB + "\n"))),
            "tree =aaaa,commit =bbbb,");
  EXPECT_EQ(References(Packed("commit", CommitText("tree " + kA + "\n"))), "tree =aaaa,");
  EXPECT_EQ(References(Packed("commit", CommitText("tree \nparent " + kB + "\n"))),
            "commit =bbbb,");
  EXPECT_EQ(References(Packed("commit", CommitText("tree \n"))), "");
}

TEST(VisitReferences, VisitsNothingForABlobAndAnEmptyTree) {
  EXPECT_EQ(References(Packed("blob", "tree " + kA)), "");
  EXPECT_EQ(References(Packed("tree", "")), "");
}

TEST(VisitReferences, VisitsNothingOfATreeWithAMistakeAtItsEnd) {
  const std::string records = "100644 blob b"s + '\0' + kA + "40000 tree a" + '\0' + kB;
  EXPECT_EQ(References(Packed("tree", records)), "!");
  EXPECT_EQ(References(Packed("commit", CommitText("tree " + kA + "\nparent \n"))), "!");
  EXPECT_EQ(References("tree"), "!");
}

/// The records of a tree: "name", or "name/" for a subtree, and the digit of its id.
std::string TreeOfRecords(const std::vector<std::pair<std::string, char>>& entries) {
  std::string data;
  for (const auto& [name, digit] : entries) {
    const bool is_tree = name.back() == '/';
    data += is_tree ? "40000 tree " + name.substr(0, name.size() - 1) : "100644 blob " + name;
    data += '\0' + std::string(64, digit);
  }
  return Packed("tree", data);
}

/// Returns what a tree has that another one doesn't have, as `References` does, each with the id of
/// the other.
std::string Changes(const std::string& packed, const std::string& previous) {
  std::string shown;
  const auto visit = [](void* target, const PackedReference& reference, const Id& before) {
    *static_cast<std::string*>(target) +=
        (reference.type == ObjectType::Tree ? "tree " : "blob ") + Ascii(reference.name) + "=" +
        Ascii(reference.id).substr(0, 1) + "<" + Ascii(before).substr(0, 1) + ",";
  };
  return VisitChangedReferences(BufferOf(packed), BufferOf(previous), {&shown, visit})
             ? shown
             : shown + "!";
}

std::string Subtrees(const std::string& packed) {
  std::string shown;
  const auto visit = [](void* target, const PackedReference& reference) {
    *static_cast<std::string*>(target) +=
        Ascii(reference.name) + "=" + Ascii(reference.id).substr(0, 1) + ",";
  };
  return VisitSubtrees(BufferOf(packed), {&shown, visit}) ? shown : shown + "!";
}

TEST(VisitChangedReferences, VisitsWhatIsNewOrChangedOrOfAnotherType) {
  const std::string before =
      TreeOfRecords({{"a", '1'}, {"b", '2'}, {"c/", '3'}, {"d", '4'}, {"e/", '5'}, {"g", '6'}});
  EXPECT_EQ(Changes(before, before), "");
  EXPECT_EQ(Changes(TreeOfRecords({{"0", '7'},
                                   {"a", '1'},
                                   {"b", '8'},
                                   {"c/", '9'},
                                   {"d/", '4'},
                                   {"f", '5'},
                                   {"g", '6'},
                                   {"z/", '0'}}),
                    before),
            "blob 0=7<,blob b=8<2,tree c=9<3,tree d=4<,blob f=5<,tree z=0<,");
  EXPECT_EQ(Changes(TreeOfRecords({}), before), "");
  EXPECT_EQ(Changes(TreeOfRecords({{"a", '1'}}), TreeOfRecords({})), "blob a=1<,");
}

// U+FF5E comes before U+1F600 in UTF-8, and after it in 16-bit units, which order a tree.
TEST(VisitChangedReferences, ComparesNamesInTheOrderOfATree) {
  const std::string face = "\xF0\x9F\x98\x80";
  const std::string tilde = "\xEF\xBD\x9E";
  const std::string before = TreeOfRecords({{face, '1'}, {tilde, '2'}});
  EXPECT_EQ(References(before).back(), ',') << "the library writes this order";
  std::size_t count = 0;
  const auto visit = [](void* target, const PackedReference&, const Id& previous) {
    *static_cast<std::size_t*>(target) += previous == Id() ? 1 : 100;
  };
  EXPECT_TRUE(VisitChangedReferences(BufferOf(TreeOfRecords({{face, '3'}, {tilde, '2'}})),
                                     BufferOf(before), {&count, visit}));
  EXPECT_TRUE(VisitChangedReferences(BufferOf(before), BufferOf(TreeOfRecords({{tilde, '2'}})),
                                     {&count, visit}));
  EXPECT_EQ(count, 101U);
}

TEST(VisitChangedReferences, EndsAtBytesThatAreNoRecord) {
  const std::string whole = TreeOfRecords({{"a", '1'}, {"b", '2'}});
  const std::string torn = Packed("tree", "100644 blob a\0"s + std::string(64, '1') + "100644 bl");
  EXPECT_EQ(Changes(torn, whole), "!");
  EXPECT_EQ(Changes(whole, torn), "!");
  EXPECT_EQ(Changes(Packed("tree", "x\0"s + std::string(64, '1')), whole), "!");
  EXPECT_EQ(Changes(Packed("blob", ""), whole), "!");
  EXPECT_EQ(Changes(whole, Packed("blob", "")), "!");
  EXPECT_EQ(Changes(whole, "tree"), "!");
}

TEST(VisitSubtrees, VisitsNoBlob) {
  EXPECT_EQ(Subtrees(TreeOfRecords({{"a", '1'}, {"b/", '2'}, {"c", '3'}, {"d/", '4'}})),
            "b=2,d=4,");
  EXPECT_EQ(Subtrees(TreeOfRecords({})), "");
  EXPECT_EQ(Subtrees(Packed("tree", "40000 tree b\0"s + std::string(64, '2') + "40000")), "b=2,!");
  EXPECT_EQ(Subtrees(Packed("tree", "40000 tree b\0"s + std::string(64, 'X'))), "!");
  EXPECT_EQ(Subtrees(Packed("blob", "")), "!");
}

TEST(VisitReferences, ReadsBytesInSeveralSegments) {
  const Buffer packed = BufferOfParts({"tree 7", std::string_view("8\0", 2), "100644 blob a",
                                       std::string_view("\0", 1), kA.substr(0, 10), kA.substr(10)});
  std::string shown;
  const auto visit = [](void* target, const PackedReference& reference) {
    *static_cast<std::string*>(target) += Ascii(reference.name);
  };
  EXPECT_TRUE(VisitReferences(packed, {&shown, visit}));
  EXPECT_EQ(shown, "a");
}

}  // namespace
}  // namespace TalVcs::Testing
