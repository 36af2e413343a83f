#include "map_store.h"
#include "world.h"

namespace ModelTest {
namespace {

const Model::Text kRoot = u"root";

}  // namespace

void World::TakeHandle() {
  switch (m_choices.Below(3)) {
    case 0:
      return Hold(PickCommit());
    case 1: {
      const TreeTwin tree = PickTree();
      if (!tree || m_choices.OneIn(2)) return Hold(tree);
      const Model::Text path = PickPath();
      return Hold(TreeTwin{tree.lib->GetDeepTree(ToLib(path)),
                           tree.model->GetDeepTree(Model::SplitPath(path))});
    }
    default:
      return Hold(PickBlob());
  }
}

void World::DropHandles() {
  if (m_choices.OneIn(2)) m_commits.clear();
  if (m_choices.OneIn(2)) m_trees.clear();
  if (m_choices.OneIn(2)) m_blobs.clear();
  if (m_choices.OneIn(2)) m_choices.Of(m_commitTrees) = {};
}

void World::DropDraft() {
  DraftTwin& draft = PickDraft();
  draft.lib = std::make_unique<TalVcs::Commit>();
  draft.model = std::make_unique<Model::Commit>();
}

void World::ReplaceRepository() {
  RepositoryTwin& target = m_choices.Of(m_repositories);
  RepositoryTwin& source = m_choices.Of(m_repositories);
  switch (m_choices.Below(7)) {
    case 0:
      if (&target == &source) return;
      Say("by a move");
      target.lib = std::make_unique<TalVcs::Repository>(std::move(*source.lib));
      target.model = std::make_unique<Model::Repository>(std::move(*source.model));
      break;
    case 1:
      Say("by assignment");
      *target.lib = std::as_const(*source.lib);
      *target.model = std::as_const(*source.model);
      break;
    case 2:
      if (&target == &source) return;
      Say("by move assignment");
      *target.lib = std::move(*source.lib);
      *target.model = std::move(*source.model);
      break;
    case 3:
      Say("by one with other branches");
      target.lib = std::make_unique<TalVcs::Repository>(std::make_unique<TalVcs::MemObjectsStorage>(
          std::initializer_list<TalVcs::TalStringViewT<TalVcs::WideChar>>{
              TAL_WIDE("b"), TAL_WIDE(""), TAL_WIDE("b")}));
      target.model = std::make_unique<Model::Repository>(
          std::make_unique<Model::Storage>(std::vector<Model::Text>{u"b", u""}));
      break;
    case 4:
      Say("by a new one");
      target.lib =
          std::make_unique<TalVcs::Repository>(std::make_unique<TalVcs::MemObjectsStorage>());
      target.model = std::make_unique<Model::Repository>(std::make_unique<Model::Storage>());
      break;
    default:
      Say("by a copy");
      target.lib = std::make_unique<TalVcs::Repository>(std::as_const(*source.lib));
      target.model = std::make_unique<Model::Repository>(std::as_const(*source.model));
      break;
  }
}

void World::Save() {
  const RepositoryTwin& repository = PickRepository();
  const std::size_t index = m_choices.Below(2);
  StoreTwin& store = m_stores[index];
  MapStore writer(store.lib);
  ExpectSameBool("Serialize",
                 TalVcs::Serializer(&writer, ToLib(kRoot)).Serialize(repository.lib->GetStorage()),
                 true);
  Model::Serialize(repository.model->GetStorage(), store.model, kRoot);
  m_isDamaged[index] = false;
  for (const auto& [path, bytes] : store.model) {
    const auto found = store.lib.find(path);
    if (found == store.lib.end()) throw Mismatch("the library lacks the stream " + Show(path));
    ExpectSame("stream " + Show(path), found->second, bytes);
  }
  ExpectSame<std::uint64_t>("number of streams", store.lib.size(), store.model.size());
}

// Loses or changes one stream of a store, in ways whose outcome the rules define.
void World::Damage() {
  const std::size_t index = m_choices.Below(2);
  StoreTwin& store = m_stores[index];
  if (store.model.empty()) return;
  m_isDamaged[index] = true;
  const Model::Text path = m_choices.Of(store.model).first;
  Model::Bytes bytes = store.model.at(path);
  Say(Show(path));
  switch (m_choices.Below(4)) {
    case 0:
      bytes.clear();
      break;
    case 1:
      bytes = "bl" + bytes;
      break;
    case 2:
      // Longer: a blob of other content, a text with a trailing line, a tree with another type.
      bytes += "\n";
      break;
    default:
      store.lib.erase(path);
      store.model.erase(path);
      return;
  }
  store.lib[path] = bytes;
  store.model[path] = bytes;
}

void World::Load() {
  const std::size_t index = m_choices.Below(2);
  StoreTwin& store = m_stores[index];
  const auto repository = PickRepositoryOrNull();
  MapStore reader(store.lib);
  const bool loaded = TalVcs::Deserializer(&reader, ToLib(kRoot)).Deserialize(repository.lib);
  ExpectSameBool("Deserialize", loaded, Model::Deserialize(store.model, kRoot, repository.model));
  // Without a storage nothing is remembered from one entry to the next.
  const bool stores = repository.model != nullptr && repository.model->GetStorage() != nullptr;
  if (stores && reader.GetReadTwice())
    throw Mismatch(Show(*reader.GetReadTwice()) + " was read twice");
}

void World::Tick() { m_clock.Advance(m_choices.OneIn(4) ? 100000 : 1); }

}  // namespace ModelTest
