// Every byte of every object of a small store flipped, and every object missing, in turn.

#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/load.h>
#include <kit/open/save.h>
#include <kit/open/try.h>
#include <kit/open/verify.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/passing_store.h>
#include <tests/kit/open/histories.h>

#include <map>
#include <set>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// Where an object is needed: for each branch, the paths in any commit; "" for a commit or a root.
using Places = std::map<std::string, std::set<std::string>>;

void AddPlaces(const cow_ptr<Tree>& tree, const std::string& path, const std::string& branch,
               std::map<std::string, Places>& places) {
  places[Testing::IdOf(tree)][branch].insert(path);
  const std::string prefix = path.empty() ? "" : path + "/";
  for (const auto& name : tree->GetLocalBlobPaths()) {
    const auto blob = tree->GetLocalBlob(name);
    places[Testing::IdOf(blob)][branch].insert(prefix + Ascii(name));
  }
  for (const auto& name : tree->GetLocalSubtreePaths()) {
    AddPlaces(tree->GetLocalTree(name), prefix + Ascii(name), branch, places);
  }
}

/// Returns the places of all objects by their ids, found without any function under test.
std::map<std::string, Places> PlacesOf(const Repository& repository) {
  std::map<std::string, Places> places;
  for (const auto& [wide, head] : repository.GetStorage()->GetRefs()) {
    const std::string name = Ascii(wide);
    for (cow_ptr<Commit> at = head; at; at = at->GetParent()) {
      places[Testing::IdOf(at)][name].insert("");
      AddPlaces(at->GetTree()->GetRoot(), "", name, places);
    }
  }
  return places;
}

class EveryObject : public testing::Test {
 protected:
  /// Requires that a report has that one damage, and the right branches as not whole.
  void ExpectReport(const HistoryReport& report, const Id& id, const Places& places) {
    ASSERT_EQ(report.damageCount, 1u);
    const Damage& damage = report.damages.front();
    EXPECT_EQ(damage.id, id);
    EXPECT_GT(damage.commits, 0u);
    ASSERT_TRUE(places.contains(damage.branch));
    EXPECT_TRUE(places.at(damage.branch).contains(damage.path)) << damage.path;
    for (const BranchReport& branch : report.branches) {
      const bool is_head = branch.head == id;
      const BranchState expected = is_head                        ? BranchState::Lost
                                   : places.contains(branch.name) ? BranchState::Partial
                                                                  : BranchState::Whole;
      EXPECT_STREQ(ToString(branch.state), ToString(expected)) << branch.name;
    }
  }

  /// Requires that all functions report the damage of a store whose `id` is damaged.
  void ExpectReported(const std::shared_ptr<FaultInjectionStore>& store, const Id& id) {
    const Places& places = m_places.at(Ascii(id));
    ExpectReport(Verify(*store).value(), id, places);
    for (const bool loads : {false, true}) {
      const auto open = [&](DamagePolicy policy) {
        if (loads) return Load(store, {.policy = policy});
        return Open(store, {.check = OpenCheck::Everything, .policy = policy});
      };
      const Result<OpenedRepository> stopped = open(DamagePolicy::Stop);
      ASSERT_EQ(CodeOf(stopped), "Damaged");
      EXPECT_FALSE(stopped.error().subject.empty());
      OpenedRepository whole = open(DamagePolicy::OpenWhole).value();
      ExpectReport(whole.GetReport(), id, places);
      ExpectWholeBranchesAreExact(whole, places);
      ExpectSavingIsRefused(whole);
      OpenedRepository salvaged = open(DamagePolicy::Salvage).value();
      ExpectReport(salvaged.GetReport(), id, places);
      for (const Head& head : salvaged.GetSavedHeads()) {
        EXPECT_EQ(salvaged->GetHead(Wide(head.name))->GetId(), head.id);
      }
    }
    EXPECT_EQ(HeadsOf(*m_memory), m_heads);
  }

  void ExpectWholeBranchesAreExact(OpenedRepository& opened, const Places& places) {
    for (const char* name : {"master", "other", "topic"}) {
      EXPECT_EQ(opened->BranchExist(Wide(name)), !places.contains(name));
      if (places.contains(name)) continue;
      EXPECT_EQ(HistoryOf(opened.GetRepository(), name), HistoryOf(m_repository, name));
    }
  }

  void ExpectSavingIsRefused(OpenedRepository& opened) {
    AddCommit(opened.GetRepository(), "new", {{"new", "x"}});
    const Result<SaveReport> refused = Save(opened);
    ASSERT_EQ(CodeOf(refused), "Damaged");
    EXPECT_EQ(HeadsOf(*m_memory), m_heads);
  }

  Repository m_repository = SmallHistory();
  const std::map<std::string, Places> m_places = PlacesOf(m_repository);
  const std::shared_ptr<MemoryObjectStore> m_memory = StoreOf(m_repository);
  const std::string m_heads = HeadsOf(*m_memory);
};

TEST_F(EveryObject, MissingInTurnIsReportedWithBranchAndPath) {
  const std::vector<Id> ids = ObjectsOf(*m_memory);
  ASSERT_EQ(ids.size(), m_places.size());
  for (const Id& id : ids) {
    const auto store = std::make_shared<FaultInjectionStore>(*m_memory);
    store->FailObject(id, ErrorCode::NotFound);
    ExpectReported(store, id);
    EXPECT_EQ(Verify(*store).value().damages[0].code, ErrorCode::NotFound);
  }
}

TEST_F(EveryObject, UnreadableInTurnIsUnavailable) {
  for (const Id& id : ObjectsOf(*m_memory)) {
    FaultInjectionStore store(*m_memory);
    store.FailObject(id, ErrorCode::Denied);
    const VerifyReport report = Verify(store).value();
    ExpectReport(report, id, m_places.at(Ascii(id)));
    EXPECT_EQ(report.damages[0].code, ErrorCode::Unavailable);
  }
}

TEST_F(EveryObject, DamagedInTurnIsReportedWithBranchAndPath) {
  for (const Id& id : ObjectsOf(*m_memory)) {
    const auto store = std::make_shared<FaultInjectionStore>(*m_memory);
    store->ReplaceObject(id, BufferOf("blob 0"));
    ExpectReported(store, id);
  }
}

TEST_F(EveryObject, EveryFlippedByteIsReported) {
  int flips = 0;
  for (const Id& id : ObjectsOf(*m_memory)) {
    std::string bytes;
    m_memory->Read({&id, 1}, [&](const Id&, Result<Buffer> packed) { bytes = Bytes(*packed); })
        .value();
    for (std::size_t at = 0; at < bytes.size(); ++at, ++flips) {
      std::string flipped = bytes;
      flipped[at] = static_cast<char>(flipped[at] ^ (1 << (at % 8)));
      FaultInjectionStore store(*m_memory);
      store.ReplaceObject(id, BufferOf(flipped));
      ExpectReport(Verify(store).value(), id, m_places.at(Ascii(id)));
    }
  }
  EXPECT_GT(flips, 2000);
}

TEST_F(EveryObject, MissingStopsACleanUpWithNothingRemoved) {
  AddCommit(m_repository, "gone", {{"unused", "x"}});
  Save(m_repository, *m_memory).value();
  m_memory
      ->MoveHeads(
          std::vector<HeadMove>{{"gone", m_repository.GetHead(Wide("gone"))->GetId(), Id()}})
      .value();
  const std::size_t count = m_memory->GetCount();
  for (const auto& [id, places] : m_places) {
    const Id lost(Wide(id));
    // A copy that lacks the object.
    MemoryObjectStore store = *m_memory;
    const std::vector<Id> all = ObjectsOf(store);
    store
        .RemoveUnmarked([&](std::span<const Head>) -> Result<std::vector<Id>> {
          std::vector<Id> kept;
          for (const Id& known : all) {
            if (!(known == lost)) kept.push_back(known);
          }
          return kept;
        })
        .value();
    EXPECT_EQ(CodeOf(CleanUp(store)), "Damaged");
    EXPECT_EQ(store.GetCount(), count - 1);
  }
}

TEST_F(EveryObject, MissingStopsACopyOrLeavesTheBranchOut) {
  for (const auto& [id, places] : m_places) {
    FaultInjectionStore from(*m_memory);
    from.FailObject(Id(Wide(id)), ErrorCode::NotFound);
    MemoryObjectStore to;
    EXPECT_EQ(CodeOf(Copy(from, to)), "Damaged");
    EXPECT_EQ(HeadsOf(to), "");
    const CopyReport report = Copy(from, to, {.policy = DamagePolicy::OpenWhole}).value();
    EXPECT_EQ(report.heads.size(), 3 - places.size());
    EXPECT_TRUE(Verify(to).value().IsWhole());
    // Once the source is whole again, the rest follows.
    Copy(*m_memory, to).value();
    EXPECT_EQ(HeadsOf(to), m_heads);
    EXPECT_TRUE(Verify(to).value().IsWhole());
  }
}

/// A store that lacks a file of "topic", which no other branch has.
class DamagedTopic : public testing::Test {
 protected:
  void SetUp() override {
    Repository repository = SmallHistory();
    m_memory = StoreOf(repository);
    m_store = std::make_shared<FaultInjectionStore>(*m_memory);
    m_topic = repository.GetHead(Wide("topic"))->GetId();
    m_file = repository.GetHead(Wide("topic"))->GetTree()->GetIdByPath(Wide("a/b/d")).value();
    m_store->FailObject(m_file, ErrorCode::NotFound);
  }

  std::shared_ptr<MemoryObjectStore> m_memory;
  std::shared_ptr<FaultInjectionStore> m_store;
  Id m_topic;
  Id m_file;
};

TEST_F(DamagedTopic, IsReportedWithCommitsThatCanBeRead) {
  const VerifyReport report = Verify(*m_store).value();
  const BranchReport* topic = FindBranch(report, "topic");
  ASSERT_NE(topic, nullptr);
  EXPECT_EQ(topic->commits, 3u);
  EXPECT_EQ(topic->wholeCommits, 2u);
  EXPECT_EQ(report.damages[0].commits, 1u);
  EXPECT_EQ(report.damages[0].path, "a/b/d");
  EXPECT_EQ(report.damages[0].commit, m_topic);
  EXPECT_EQ(Describe(report.damages[0]), "branch \"topic\": file \"/a/b/d\" of commit " +
                                             Ascii(m_topic).substr(0, 12) +
                                             " can't be read: the store has no such object");
}

TEST_F(DamagedTopic, BranchThatWasLeftOutStaysInTheStore) {
  OpenedRepository opened = Load(m_store, {.policy = DamagePolicy::OpenWhole}).value();
  const cow_ptr<Commit> commit = AddCommit(opened.GetRepository(), "master", {{"next", "x"}});
  Save(opened, {.acceptDamaged = {"topic"}}).value();
  const std::vector<Head> heads = m_store->Heads().value();
  EXPECT_EQ(heads[0], (Head{"master", commit->GetId()}));
  EXPECT_EQ(heads[2], (Head{"topic", m_topic}));
}

TEST_F(DamagedTopic, BranchThatWasLeftOutIsReplacedByANewOneOfItsName) {
  OpenedRepository opened = Load(m_store, {.policy = DamagePolicy::OpenWhole}).value();
  opened->CreateBranch(Wide("topic"), opened->GetHead(Wide("master")));
  EXPECT_EQ(CodeOf(Save(opened)), "Damaged");
  Save(opened, {.acceptDamaged = {"topic"}}).value();
  EXPECT_EQ(m_store->Heads().value()[2].id, opened->GetHead(Wide("master"))->GetId());
  EXPECT_TRUE(Verify(*m_store).value().IsWhole());
}

TEST_F(DamagedTopic, SalvagedBranchGivesWhatIsLeft) {
  const OpenedRepository opened = Load(m_store, {.policy = DamagePolicy::Salvage}).value();
  const cow_ptr<Commit> topic = opened->GetHead(Wide("topic"));
  EXPECT_EQ(TextOf(topic->GetBlob(Wide("a/b/c"))), "changed");
  EXPECT_EQ(CodeOf(Try([&] { return topic->GetBlob(Wide("a/b/d")); })), "Damaged");
}

TEST_F(DamagedTopic, LoadedRepositoryIsRepairedAndSaved) {
  OpenedRepository opened = Load(m_store, {.policy = DamagePolicy::Salvage}).value();
  AddCommit(opened.GetRepository(), "topic", {{"a/b/d", ""}});
  Save(opened, {.acceptDamaged = {"topic"}}).value();
  EXPECT_EQ(ListingOf(Open(m_store).value()->GetHead(Wide("topic"))),
            "a/b/c=changed shared/one=1 shared/two=2");
}

TEST_F(DamagedTopic, OpeningWithoutACheckLeavesTheOtherBranchesWorking) {
  OpenedRepository opened = Open(m_store).value();
  AddCommit(opened.GetRepository(), "master", {{"next", "x"}});
  Save(opened).value();
  EXPECT_EQ(m_store->Heads().value()[2].id, m_topic);
}

/// A store whose values are damaged until they are set again.
class DamagedValues final : public PassingStore {
 public:
  using PassingStore::PassingStore;

 protected:
  Status Before(const StoreCall& call) override {
    if (call.operation == StoreOperation::SetValue) m_isMended = true;
    if (call.operation != StoreOperation::Value || m_isMended) return {};
    Error error;
    error.code = ErrorCode::Damaged;
    error.message = "the value is damaged";
    return error;
  }

 private:
  bool m_isMended = false;
};

// A damaged name of the last branch locked the host out of a whole history.
TEST(DamagedValue, OfTheCurrentBranchCountsAsNoneAndIsWrittenAgain) {
  const auto store = SmallStore();
  ASSERT_TRUE(store->SetValue("branch", "topic"));
  const auto damaged = std::make_shared<DamagedValues>(store);
  OpenedRepository opened = Open(damaged).value();
  EXPECT_EQ(Ascii(opened->GetCurentBranch()), "master");
  EXPECT_EQ(HistoryOf(opened.GetRepository()), HistoryOf(Load(store)->GetRepository()));
  opened->Checkout(Wide("other"));
  Save(opened).value();
  EXPECT_EQ(Ascii(Open(damaged).value()->GetCurentBranch()), "other");
}

/// A store in which the name of a branch stands before a text that is no id.
class BadHeads final : public PassingStore {
 public:
  using PassingStore::PassingStore;

  Result<std::vector<Head>> Heads() override {
    return std::vector<Head>{{"master", Id(TAL_WIDE("no id"))}};
  }
};

// The number of objects was one less than none.
TEST(DamagedHead, ThatIsNoIdIsALostBranchAndNoObject) {
  const VerifyReport report = Verify(*std::make_shared<BadHeads>(SmallStore())).value();
  ASSERT_EQ(report.branches.size(), 1u);
  EXPECT_EQ(report.branches.front().state, BranchState::Lost);
  EXPECT_EQ(report.damageCount, 1u);
  EXPECT_EQ(report.objects, 0u);
}

}  // namespace
}  // namespace TalVcs::Kit
