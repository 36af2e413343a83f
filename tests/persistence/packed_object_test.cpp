#include <talvcs/persistence/packed_object.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/ordinary_repository.h>

#include <string>
#include <string_view>

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
