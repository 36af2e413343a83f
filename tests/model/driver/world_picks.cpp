#include "world.h"

namespace ModelTest {
namespace {

constexpr std::size_t kMostHandles = 6;

template <class T>
void HoldIn(std::vector<T>& held, T twin, Choices& choices) {
  if (!twin) return;
  if (held.size() == kMostHandles) {
    held.erase(held.begin() + choices.Below(static_cast<std::uint32_t>(kMostHandles)));
  }
  held.push_back(std::move(twin));
}

// One of the entries of a table, on both sides.
template <class Table>
Model::Id PickKey(const Table& table, Choices& choices) {
  return choices.Of(table).first;
}

}  // namespace

Model::Text World::PickName() {
  static const std::vector<Model::Text> names = {
      u"a",      u"b",          u"A",          u"c",      u"t",
      u"\u00E9", u"\uFF5Ename", u"\U0001F600", u"\xD800", u"a long name of more than a few units"};
  // Most of the time a few, so that they meet.
  return names[m_choices.OneIn(4) ? m_choices.Below(static_cast<std::uint32_t>(names.size()))
                                  : m_choices.Below(3)];
}

Model::Text World::PickPath() {
  if (m_choices.OneIn(30)) return m_choices.OneIn(2) ? u"" : u"//";
  Model::Text path = PickName();
  while (m_choices.OneIn(2)) path += (m_choices.OneIn(10) ? u"//" : u"/") + PickName();
  return m_choices.OneIn(15) ? u"/" + path + u"/" : path;
}

Model::Text World::PickBranch() {
  static const std::vector<Model::Text> names = {u"master", u"b",      u"c",          u"B", u"x/y",
                                                 u"x//",    u"\u00E9", u"\U0001F600", u""};
  return names[m_choices.OneIn(5) ? m_choices.Below(static_cast<std::uint32_t>(names.size()))
                                  : m_choices.Below(3)];
}

Model::Text World::PickWords() {
  static const std::vector<Model::Text> words = {
      u"",          u"word",       u"two\nlines",     u"parent word",        u"a <b> c",
      u"\u00E9",    u"\U0001F600", u"one\n\nparent ", u"author tree <x> 12", u"a\xDC00\xD800z",
      u"committer "};
  return m_choices.OneIn(3) ? m_choices.Of(words) : words[m_choices.Below(2)];
}

Model::Bytes World::PickContent() {
  // The last one is longer than a block of the digest and than any text inside an object.
  static const std::vector<Model::Bytes> contents = {
      "1", "2", "x", "", "9", std::string("\0\x80", 2), std::string(100, 'l')};
  return m_choices.Of(contents);
}

Model::Id World::PickId() {
  RepositoryTwin& repository = PickRepository();
  const Model::Storage* storage = repository.model->GetStorage();
  switch (m_choices.Below(8)) {
    case 0:
      return m_choices.OneIn(2) ? "" : "no id";
    case 1: {
      const CommitTwin commit = PickCommit();
      return commit ? commit.model->GetId() : "";
    }
    case 2:
    case 3:
    case 4:
      if (storage != nullptr && !storage->trees.empty()) return PickKey(storage->trees, m_choices);
      return "";
    default:
      if (storage != nullptr && !storage->blobs.empty()) return PickKey(storage->blobs, m_choices);
      return "";
  }
}

RepositoryTwin& World::PickRepository() {
  return m_repositories[m_choices.OneIn(4) ? m_choices.Below(3) : 0];
}

Twin<TalVcs::IRepository*, Model::Repository*> World::PickRepositoryOrNull() {
  if (m_choices.OneIn(12)) return {nullptr, nullptr};
  RepositoryTwin& repository = PickRepository();
  return {repository.lib.get(), repository.model.get()};
}

DraftTwin& World::PickDraft() { return m_choices.Of(m_drafts); }

CommitTwin World::PickStoredCommit(RepositoryTwin& repository) {
  const Model::Storage* storage = repository.model->GetStorage();
  if (storage == nullptr || storage->commits.empty()) return {};
  const Model::Id id = PickKey(storage->commits, m_choices);
  return {repository.lib->GetCommitFromStorage(ToLibId(id)),
          repository.model->GetCommitFromStorage(id)};
}

CommitTwin World::PickCommit() {
  CommitTwin picked;
  switch (m_choices.Below(8)) {
    case 0:
      return {};
    case 1:
    case 2:
      if (!m_commits.empty()) picked = m_choices.Of(m_commits);
      break;
    case 3:
      picked = PickStoredCommit(PickRepository());
      break;
    default: {
      const RepositoryTwin& repository = PickRepository();
      const Model::Text branch = PickBranch();
      picked = {repository.lib->GetHead(ToLib(branch)), repository.model->GetHead(branch)};
      break;
    }
  }
  while (picked && m_choices.OneIn(3)) {
    picked = {picked.lib->GetParent(), Model::Handle<Model::Commit>(picked.model->GetParent())};
  }
  return picked;
}

TreeTwin World::PickTree() {
  RepositoryTwin& repository = PickRepository();
  const Model::Storage* storage = repository.model->GetStorage();
  switch (m_choices.Below(8)) {
    case 0:
      return {};
    case 1:
    case 2:
      return m_trees.empty() ? TreeTwin() : m_choices.Of(m_trees);
    case 3: {
      if (storage == nullptr || storage->trees.empty()) return {};
      const Model::Id id = PickKey(storage->trees, m_choices);
      return {repository.lib->GetTreeFromStorage(ToLibId(id)),
              repository.model->GetTreeFromStorage(id)};
    }
    default: {
      const CommitTwin commit = PickCommit();
      if (!commit || !commit.lib->GetTree()) return {};
      return {commit.lib->GetTree()->GetRoot(), commit.model->GetRoot()};
    }
  }
}

BlobTwin World::PickBlob() {
  if (!m_blobs.empty() && m_choices.OneIn(3)) return m_choices.Of(m_blobs);
  const TreeTwin tree = PickTree();
  if (!tree) return {};
  const Model::Text path = PickPath();
  return {tree.lib->GetDeepBlob(ToLib(path)), tree.model->GetDeepBlob(Model::SplitPath(path))};
}

void World::Hold(CommitTwin commit) { HoldIn(m_commits, std::move(commit), m_choices); }

void World::Hold(TreeTwin tree) { HoldIn(m_trees, std::move(tree), m_choices); }

void World::Hold(BlobTwin blob) { HoldIn(m_blobs, std::move(blob), m_choices); }

}  // namespace ModelTest
