// Parses trees, compares them, and edits one, all against the model.
//
// input := tree 0xFF tree 0xFF edit*     streams in the notation of streams.h, no letters
// edit  := what path LF                  what: "a" to "c" adds a blob, "d" removes, "e" adds a
//                                        subtree, others ask
//
// An id that consists of one character names an object that is always there, or nothing.

#include "checks.h"
#include "streams.h"
#include "target.h"

#include <tests/model/driver/comparison.h>
#include <tests/support/objects.h>

#include <optional>
#include <string>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::StreamWriter;
using ModelTest::FromLib;
using ModelTest::ToLib;
using ModelTest::TreeTwin;

std::string Record(const std::string& type, const std::string& name, char id) {
  return "40000 " + type + ' ' + name + '\0' + StreamWriter::IdOf(id);
}

/// The streams that ids of one character name. "t" is the tree that is being parsed.
class Streams : public Model::Load {
 public:
  explicit Streams(std::string root) : m_root(std::move(root)) {}

  std::optional<Model::Bytes> ObjectStream(const Model::Id& id) const override {
    if (id.empty() || id != StreamWriter::IdOf(id[0])) return std::nullopt;
    const char name = id[0];
    const std::string header{"tree 1\0", 7};
    if (name >= 'a' && name <= 'k') return std::string("blob 1\0", 7) + name;
    if (name >= 'l' && name <= 'o') {
      return header + Record("blob", "x", 'a') + Record("blob", "y", static_cast<char>(name - 11));
    }
    // Each holds the one before it.
    if (name >= 'p' && name <= 's') {
      return header + Record("tree", "deep", static_cast<char>(name - 1)) +
             Record("blob", "z", 'b');
    }
    if (name == 't') return m_root;
    if (name == 'u') return header + Record("blob", "gone", 'Z');
    if (name == 'v') return header;
    if (name == 'w') return std::string("blobby\0abc", 10);
    return std::nullopt;
  }

  Delegate<StreamIO(const Id&)> Getter() {
    return {this, [](void* self, const Id& id) {
              const auto bytes = static_cast<Streams*>(self)->ObjectStream(FromLib(id));
              return bytes ? StreamIO(Testing::StreamOf(*bytes)) : StreamIO();
            }};
  }

 private:
  std::string m_root;
};

TreeTwin Parse(const ModelTest::RepositoryTwin& repository, const std::string& bytes) {
  Streams streams(bytes);
  const Model::Id id = StreamWriter::IdOf('t');
  const TreeTwin tree = {
      Tree::Deserialize(ModelTest::ToLibId(id), repository.lib.get(), streams.Getter()),
      Model::Tree::Deserialize(id, repository.model.get(), streams)};
  ModelTest::Comparison().Trees(tree.lib, tree.model);
  return tree;
}

void Edit(const ModelTest::RepositoryTwin& repository, TreeTwin& tree, char what,
          const Model::Text& path) {
  if (what >= 'a' && what <= 'c') {
    const std::string content(1, what);
    const auto added =
        tree.lib.write()->AddBlob(repository.lib.get(), ToLib(path), ModelTest::BlobOf(content));
    ModelTest::ExpectSameBool("AddBlob", added,
                              static_cast<bool>(tree.model.write()->AddBlob(
                                  repository.model.get(), path, Model::Blob(content))));
  } else if (what == 'd') {
    const bool removed = tree.lib.write()->RemoveObject(repository.lib.get(), ToLib(path));
    ModelTest::ExpectSameBool("RemoveObject", removed,
                              tree.model.write()->RemoveObject(repository.model.get(), path));
  } else if (what == 'e') {
    // A copy of the tree itself, as it is now. Each doubles the number of paths.
    constexpr std::uint64_t kMostBlobs = 500;
    if (tree.lib->GetDeepBlobCount() > kMostBlobs) return;
    const Tree lib = *tree.lib;
    const Model::Tree model = *tree.model;
    const auto added = tree.lib.write()->AddTree(repository.lib.get(), ToLib(path), lib);
    ModelTest::ExpectSameBool(
        "AddTree", added,
        static_cast<bool>(tree.model.write()->AddTree(repository.model.get(), path, model)));
  } else {
    const auto id = tree.lib->GetIdByPath(ToLib(path));
    const auto expected = tree.model->GetIdByPath(path);
    ModelTest::ExpectSameBool("GetIdByPath", id, expected.has_value());
    if (id) ModelTest::ExpectSame("id by path", FromLib(*id), *expected);
    ModelTest::ExpectSameBool("GetDeepTree", tree.lib->GetDeepTree(ToLib(path)),
                              static_cast<bool>(tree.model->GetDeepTree(Model::SplitPath(path))));
  }
}

// A tree that was stored comes back from its packed form under its id, unless it has no entry.
void CheckStoring(const Repository& repository, const cow_ptr<Tree>& tree) {
  struct Source {
    const Repository& objects;
    const cow_ptr<Tree>& root;
  } source{repository, tree};
  const Delegate<StreamIO(const Id&)> getter(&source, [](void* self, const Id& id) {
    const auto& from = *static_cast<Source*>(self);
    if (from.root->GetId() == id)
      return StreamIO(Testing::StreamOf(Testing::Bytes(from.root->GetPackedData())));
    const cow_ptr<Tree> subtree = from.objects.GetTreeFromStorage(id);
    const cow_ptr<Blob> blob = from.objects.GetBlobFromStorage(id);
    if (!subtree && !blob) return StreamIO();
    return StreamIO(Testing::StreamOf(
        Testing::Bytes(subtree ? subtree->GetPackedData() : blob->GetPackedData())));
  });
  const ModelTest::RepositoryTwin empty = Fuzz::NewRepository();
  const cow_ptr<Tree> again = Tree::Deserialize(tree->GetId(), empty.lib.get(), getter);
  if (tree->GetDeepBlobCount() == 0) return;
  Fuzz::Require(static_cast<bool>(again), "a tree with a blob can be stored");
  Fuzz::CheckObjects(*empty.lib);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int kMostEdits = 50;
  Fuzz::Input input(data, size);
  const StreamWriter writer;
  const ModelTest::RepositoryTwin repository = Fuzz::NewRepository();
  TreeTwin tree = Parse(repository, writer.Expand(input.Part()));
  const TreeTwin other = Parse(repository, writer.Expand(input.Part()));
  ModelTest::CompareListings(tree, other);
  ModelTest::CompareListings(other, tree);

  if (!tree) tree = {Testing::Make<Tree>(), Model::Handle<Model::Tree>(Model::Tree())};
  const TreeTwin former = tree;
  for (int edit = 0; edit < kMostEdits && !input.IsAtEnd(); ++edit) {
    const auto what = static_cast<char>(input.Byte());
    Edit(repository, tree, what, Model::DecodeUtf8(input.Line()));
  }
  ModelTest::Comparison comparison;
  comparison.Trees(tree.lib, tree.model);
  comparison.Trees(former.lib, former.model);
  ModelTest::CompareListings(tree, former);
  ModelTest::CompareListings(tree, other);
  Fuzz::CheckObjects(*repository.lib);
  CheckStoring(*repository.lib, tree.lib);
  return 0;
}
