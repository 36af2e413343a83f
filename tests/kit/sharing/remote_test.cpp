// Fetches and pushes between two stores: what they copy, in how many calls, and what stops them.

#include <kit/open/clean_up.h>
#include <kit/store/background_writer.h>
#include <kit/store/head_table.h>
#include <tests/kit/sharing/sharing_fixture.h>
#include <tests/support/bytes.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::Head;
using Kit::StoreOperation;
using testing::ElementsAre;
using testing::IsEmpty;

class RemoteTest : public SharingTest {
 protected:
  RemoteTest() { shared = SmallStore(); }

  /// Makes many files, each in a folder with 9 others below a folder with 9 others.
  static Files ManyFiles(int count) {
    Files files;
    for (int i = 0; i < count; ++i) {
      const std::string folder = std::to_string(i / 100) + "/" + std::to_string(i / 10);
      files.emplace_back(folder + "/" + std::to_string(i), "file " + std::to_string(i));
    }
    return files;
  }

  /// Returns the root tree of the newest version.
  static Id RootOf(const std::shared_ptr<Kit::MemoryObjectStore>& store) {
    return Kit::Open(store).value()->GetHead()->GetTree()->GetRoot()->GetId();
  }
};

TEST_F(RemoteTest, FetchBringsAllBranchesUnderTheNameOfTheRemote) {
  Site site = MakeSite("A");
  const Kit::FetchReport report = site.remote.Fetch(*site.local).value();
  EXPECT_EQ(report.heads, shared->Heads().value());
  EXPECT_EQ(report.newCommits, 5U);
  EXPECT_EQ(report.writtenObjects, shared->GetCount());
  EXPECT_EQ(ObjectsOf(*site.memory), ObjectsOf(*shared));
  std::vector<Head> expected;
  for (const Head& head : report.heads) expected.push_back({"remote/" + head.name, head.id});
  EXPECT_EQ(site.memory->Heads().value(), expected);
  ExpectWhole(*site.memory);
}

TEST_F(RemoteTest, SecondFetchReadsTheHeadsAlone) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  site.far->Restart();
  const Kit::FetchReport report = site.remote.Fetch(*site.local).value();
  EXPECT_THAT(site.far->GetLog(), ElementsAre("Heads"));
  EXPECT_THAT(report.moves, IsEmpty());
  EXPECT_EQ(report.writtenObjects, 0U);
}

// A version on "remote/master" would be gone after the next fetch.
TEST_F(RemoteTest, FetchedStoreOpensOnABranchOfItsOwn) {
  shared->SetValue("branch", "topic").value();
  auto store = std::make_shared<Kit::MemoryObjectStore>();
  Kit::Remote remote(shared);
  remote.Fetch(*store).value();
  Kit::Workspace workspace = OpenOn(store, "A");
  EXPECT_EQ(workspace.GetBranch(), "topic");
  EXPECT_EQ(workspace.GetHead().value(), std::nullopt);
  workspace.Pull(remote).value();
  EXPECT_EQ(workspace.GetHead().value()->id, HeadOf(*shared, "topic"));
  // A store with a branch stays on it.
  workspace.CreateBranch("master").value();
  workspace.Switch("master").value();
  remote.Fetch(*store).value();
  EXPECT_EQ(OpenOn(store, "A").GetBranch(), "master");
}

TEST_F(RemoteTest, FetchOfOneBranchLeavesTheOthers) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local, {.branches = {"other", "no such branch"}}).value();
  EXPECT_THAT(HeadsOf(*site.memory), testing::StartsWith("remote/other="));
  EXPECT_EQ(site.memory->Heads()->size(), 1U);
  ExpectWhole(*site.memory);
}

// The folders of an edit are three levels: root, folder, file.
TEST_F(RemoteTest, CallsFollowTheDepthAndObjectsFollowTheEdit) {
  std::vector<std::vector<std::string>> logs;
  for (const int count : {300, 3000}) {
    shared = std::make_shared<Kit::MemoryObjectStore>();
    Add(shared, "master", ManyFiles(count));
    Site site = MakeSite("A");
    site.remote.Fetch(*site.local).value();
    const std::uint64_t first_calls = site.far->CountCalls();
    // Heads, commits, three levels of folders, the name of the branch; not more than 2,048 files
    // by a call.
    EXPECT_EQ(first_calls, count == 300 ? 7U : 8U);
    Add(shared, "master", {{"2/25/257", "changed"}});
    site.far->Restart();
    EXPECT_EQ(site.remote.Fetch(*site.local).value().writtenObjects, 5U);
    EXPECT_EQ(site.far->CountReadIds(), 5U);
    logs.push_back(site.far->GetLog());
    EXPECT_EQ(ObjectsOf(*site.memory), ObjectsOf(*shared));
  }
  EXPECT_EQ(logs[0], logs[1]);
  EXPECT_THAT(logs[0], ElementsAre("Heads", "Read 1", "Read 1", "Read 1", "Read 1", "Read 1"));
}

TEST_F(RemoteTest, LongHistoryIsReadInWindowsThatDouble) {
  shared = std::make_shared<Kit::MemoryObjectStore>();
  Kit::OpenedRepository opened = Kit::Open(shared).value();
  for (int i = 0; i < 300; ++i) {
    AddCommit(opened.GetRepository(), "master", {{"a", std::to_string(i)}});
  }
  Kit::Save(opened).value();
  Site site = MakeSite("A");
  EXPECT_EQ(site.remote.Fetch(*site.local).value().newCommits, 300U);
  // 1 + 2 + 4 + ... + 256 commits after the head.
  EXPECT_EQ(site.far->CountCalls(StoreOperation::ReadHistory), 9U);
  EXPECT_EQ(site.far->CountCalls(), 9U + 5U);
  EXPECT_EQ(ObjectsOf(*site.memory), ObjectsOf(*shared));
}

TEST_F(RemoteTest, PushUploadsWhatTheRemoteLacksAndMovesItsBranch) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  const Id master = HeadOf(*shared, "master");
  site.memory->MoveHeads({{{"master", Id(), master}}}).value();
  const Id head = Add(site.memory, "master", {{"a/b/c", "pushed"}});
  site.far->Restart();
  const Kit::PushReport report = site.remote.Push(*site.local, "master").value();
  EXPECT_EQ(report.head, head);
  EXPECT_EQ(report.newCommits, 1U);
  EXPECT_EQ(report.writtenObjects, 5U);
  EXPECT_EQ(HeadOf(*shared, "master"), head);
  EXPECT_EQ(HeadOf(*site.memory, "remote/master"), head);
  // The root, "a", "a/b" and the file are asked for together; one write; one move.
  EXPECT_THAT(site.far->GetLog(), ElementsAre("Heads", "Missing 4", "Write 5", "MoveHeads 1"));
  ExpectWhole(*shared);
}

TEST_F(RemoteTest, PushNeedsNoTreeThatTheRemoteHas) {
  shared = std::make_shared<Kit::MemoryObjectStore>();
  Site site = MakeSite("A");
  for (const char* text : {"1", "2"}) {
    Add(site.memory, "master", {{"a", text}});
    site.remote.Push(*site.local, "master").value();
  }
  Add(site.memory, "master", {{"a", "1"}});
  site.local->FailObject(RootOf(site.memory), ErrorCode::NotFound);
  EXPECT_EQ(site.remote.Push(*site.local, "master").value().writtenObjects, 1U);
  ExpectWhole(*shared);
}

TEST_F(RemoteTest, TreeThatNeitherStoreHasStopsThePush) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  const Id before = HeadOf(*shared, "master");
  site.memory->MoveHeads({{{"master", Id(), before}}}).value();
  Add(site.memory, "master", {{"a", "new"}});
  const Id root = RootOf(site.memory);
  for (const ErrorCode code : {ErrorCode::NotFound, ErrorCode::Unavailable}) {
    site.local->FailObject(root, code);
    const bool is_away = code == ErrorCode::Unavailable;
    EXPECT_THAT(site.remote.Push(*site.local, "master"),
                FailsWith(is_away ? ErrorCode::Unavailable : ErrorCode::Damaged));
    EXPECT_EQ(HeadOf(*shared, "master"), before);
  }
}

/// A store that does something after its heads were read for the first time.
class InterruptedStore final : public Kit::PassingStore {
 public:
  InterruptedStore(std::shared_ptr<Kit::IObjectStore> store, std::function<void()> act)
      : Kit::PassingStore(std::move(store)), m_act(std::move(act)) {}

  Kit::Result<std::vector<Head>> Heads() override {
    Kit::Result<std::vector<Head>> heads = Kit::PassingStore::Heads();
    if (m_act) std::exchange(m_act, nullptr)();
    return heads;
  }

 private:
  std::function<void()> m_act;
};

// A push took what another branch reached as there, although that branch was gone.
TEST_F(RemoteTest, PushBringsWhatACleanUpRemovesAfterItHasReadTheHeads) {
  for (const bool has_new_version : {false, true}) {
    shared = std::make_shared<Kit::MemoryObjectStore>();
    const Id topic = Add(shared, "topic", {{"a", "1"}});
    Site site = MakeSite("A");
    site.remote.Fetch(*site.local).value();
    site.memory->MoveHeads({{{"master", Id(), topic}}}).value();
    if (has_new_version) Add(site.memory, "master", {{"b", "2"}});
    Kit::Remote remote(std::make_shared<InterruptedStore>(shared, [&] {
      shared->MoveHeads({{{"topic", topic, Id()}}}).value();
      Kit::CleanUp(*shared).value();
    }));
    const Kit::PushReport report = remote.Push(*site.local, "master").value();
    EXPECT_EQ(HeadOf(*shared, "master"), report.head);
    EXPECT_EQ(report.newCommits, has_new_version ? 2U : 1U);
    ExpectWhole(*shared);
  }
}

/// A store that writes what was begun when another call comes.
class LaterStore final : public Kit::PassingStore, public Kit::IBackgroundWriter {
 public:
  using Kit::PassingStore::PassingStore;

  Kit::Status BeginWrite(std::vector<Kit::StoredObject> objects) override {
    m_begun.push_back(std::move(objects));
    ++begins;
    return {};
  }
  Kit::Status FinishWrites() override {
    Kit::Status status = Settle();
    m_failure = {};
    return status;
  }
  void DropWrites() noexcept override {
    m_begun.clear();
    m_failure = {};
  }
  bool IsSettled() const { return m_begun.empty() && m_failure; }

  int begins = 0;
  bool fails = false;

 private:
  Kit::Status Before(const Kit::StoreCall& /*call*/) override { return Settle(); }
  Kit::Status Settle() {
    for (const auto& objects : std::exchange(m_begun, {})) {
      if (fails && m_failure) m_failure = Kit::NoSuchObject(objects.front().id);
      if (m_failure) Kit::PassingStore::Write(objects).value();
    }
    return m_failure;
  }

  std::vector<std::vector<Kit::StoredObject>> m_begun;
  Kit::Status m_failure;
};

TEST_F(RemoteTest, PushGoesOnWhileTheStoreWritesAndEndsWhenAllIsWritten) {
  shared = std::make_shared<Kit::MemoryObjectStore>();
  Site site = MakeSite("A");
  for (const char letter : {'a', 'b', 'c'}) {
    Add(site.memory, "master", {{std::string(1, letter), std::string(5 << 20, letter)}});
  }
  auto later = std::make_shared<LaterStore>(InOrder(shared, true));
  Kit::Remote remote(later);
  later->fails = true;
  EXPECT_THAT(remote.Push(*site.local, "master"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(shared->Heads().value(), IsEmpty());
  EXPECT_TRUE(later->IsSettled());
  later->fails = false;
  EXPECT_EQ(remote.Push(*site.local, "master").value().writtenObjects, 9U);
  EXPECT_EQ(later->begins, 2) << "10 MB of 15, at each push";
  EXPECT_TRUE(later->IsSettled());
  EXPECT_EQ(ObjectsOf(*shared), ObjectsOf(*site.memory));
  ExpectWhole(*shared);
}

// The walk of a fetch asks the store that it fills for hints, and does without those that it can't
// read.
TEST_F(RemoteTest, FetchWhoseBegunWriteFailsMovesNoBranch) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  const std::vector<Head> before = site.memory->Heads().value();
  // A write is begun with the first versions. The next ones begin with one whose parent only the
  // local store has, where the walk looks for its folder.
  Add(shared, "master", {{"large", std::string(9 << 20, 'a')}});
  for (int i = 1; i < 1024; ++i) Add(shared, "master", {{"i", std::to_string(i)}});
  Add(shared, "topic", {{"after", "1"}});
  auto later = std::make_shared<LaterStore>(site.memory);
  later->fails = true;
  EXPECT_THAT(site.remote.Fetch(*later), FailsWith(ErrorCode::NotFound));
  EXPECT_EQ(site.memory->Heads().value(), before);
  EXPECT_TRUE(later->IsSettled());
  later->fails = false;
  site.remote.Fetch(*later).value();
  EXPECT_GE(later->begins, 2);
  ExpectWhole(*site.memory);
}

TEST_F(RemoteTest, CancelledPushLeavesNothingBegun) {
  shared = std::make_shared<Kit::MemoryObjectStore>();
  Site site = MakeSite("A");
  Add(site.memory, "master", {{"a", std::string(9 << 20, 'a')}, {"b", "b"}});
  auto later = std::make_shared<LaterStore>(shared);
  Kit::Remote remote(later);
  const auto pushed = remote.Push(*site.local, "master",
                                  {.progress = [&](const auto&) { return later->begins == 0; }});
  EXPECT_THAT(pushed, FailsWith(ErrorCode::Cancelled));
  EXPECT_EQ(later->begins, 1);
  EXPECT_TRUE(later->IsSettled());
  EXPECT_THAT(shared->Heads().value(), IsEmpty());
}

TEST_F(RemoteTest, PushOfWhatIsThereOnlyReadsTheHeads) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  site.memory->MoveHeads({{{"master", Id(), HeadOf(*shared, "master")}}}).value();
  site.far->Restart();
  EXPECT_EQ(site.remote.Push(*site.local, "master").value().writtenObjects, 0U);
  EXPECT_THAT(site.far->GetLog(), ElementsAre("Heads"));
}

TEST_F(RemoteTest, PushOfANewBranchOfAnOldVersionWritesNothing) {
  Site site = MakeSite("A");
  for (int i = 0; i < 50; ++i) Add(shared, "master", {{"i", std::to_string(i)}});
  site.remote.Fetch(*site.local).value();
  site.memory->MoveHeads({{{"old", Id(), HeadOf(*shared, "topic")}}}).value();
  EXPECT_EQ(site.remote.Push(*site.local, "old").value().newCommits, 0U);
  EXPECT_EQ(HeadOf(*shared, "old"), HeadOf(*shared, "topic"));
}

TEST_F(RemoteTest, PushIsRefusedWithTheActualHeadIfItWouldLoseVersions) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  site.memory->MoveHeads({{{"master", Id(), HeadOf(*shared, "topic")}}}).value();
  for (int round = 0; round < 2; ++round) {
    const Id actual = HeadOf(*shared, "master");
    const auto pushed = site.remote.Push(*site.local, "master");
    ASSERT_THAT(pushed, FailsWith(ErrorCode::Conflict));
    EXPECT_EQ(pushed.error().heads, (std::vector<Head>{{"master", actual}}));
    EXPECT_EQ(HeadOf(*shared, "master"), actual);
    // The second time, the remote has a version that the local store has never seen.
    Add(shared, "master", {{"more", "of it"}});
  }
  EXPECT_THAT(site.remote.Push(*site.local, "none"), FailsWith(ErrorCode::NotFound));
}

TEST_F(RemoteTest, PushIsRefusedIfTheRemoteMovesMeanwhile) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  site.memory->MoveHeads({{{"master", Id(), HeadOf(*shared, "master")}}}).value();
  Add(site.memory, "master", {{"ours", "1"}});
  Id theirs;
  site.far->Restart();
  site.far->InterruptAt(2, [&] { theirs = Add(shared, "master", {{"theirs", "1"}}); });
  const auto pushed = site.remote.Push(*site.local, "master");
  ASSERT_THAT(pushed, FailsWith(ErrorCode::Conflict));
  EXPECT_EQ(pushed.error().heads, (std::vector<Head>{{"master", theirs}}));
  EXPECT_EQ(HeadOf(*shared, "master"), theirs);
}

TEST_F(RemoteTest, FetchAfterAFaultAtAnyCallBringsAllOfIt) {
  int faults = 0;
  for (const bool is_far : {true, false}) {
    for (int call = 1;; ++call) {
      Site site = MakeSite("A");
      Kit::FaultInjectionStore& faulty = is_far ? *site.far : *site.local;
      faulty.Restart();
      faulty.FailFrom(static_cast<std::uint64_t>(call));
      const auto fetched = site.remote.Fetch(*site.local);
      if (!faulty.HasFailed()) break;
      ++faults;
      EXPECT_THAT(fetched, FailsWith(ErrorCode::Unavailable));
      EXPECT_THAT(site.memory->Heads().value(), IsEmpty());
      faulty.FailFrom(0);
      site.remote.Fetch(*site.local).value();
      EXPECT_EQ(ObjectsOf(*site.memory), ObjectsOf(*shared));
    }
  }
  EXPECT_GT(faults, 12);
}

TEST_F(RemoteTest, CancelAtAnyStepOfAFetchMovesNoHead) {
  for (int allowed = 0;; ++allowed) {
    Site site = MakeSite("A");
    int left = allowed;
    const auto fetched = site.remote.Fetch(
        *site.local, {.progress = [&left](const Kit::ProgressStep&) { return left-- > 0; }});
    if (fetched) {
      EXPECT_GE(allowed, 4);
      break;
    }
    EXPECT_THAT(fetched, FailsWith(ErrorCode::Cancelled));
    EXPECT_THAT(site.memory->Heads().value(), IsEmpty());
  }
}

TEST_F(RemoteTest, WrongBytesAndHolesAreToldApartFromAnUnreachableStoreAndNothingEnters) {
  for (const Id& id : ObjectsOf(*shared)) {
    for (const ErrorCode code : {ErrorCode::NotFound, ErrorCode::Damaged, ErrorCode::Unavailable}) {
      Site site = MakeSite("A");
      site.far->FailObject(id, code);
      const bool is_away = code == ErrorCode::Unavailable;
      EXPECT_THAT(site.remote.Fetch(*site.local),
                  FailsWith(is_away ? ErrorCode::Unavailable : ErrorCode::Damaged));
      EXPECT_THAT(site.memory->Heads().value(), IsEmpty());
    }
    Site site = MakeSite("A");
    site.far->ReplaceObject(id, BlobOf("other bytes").GetPackedData());
    EXPECT_THAT(site.remote.Fetch(*site.local), FailsWith(ErrorCode::Damaged));
    EXPECT_EQ(site.memory->Missing({&id, 1}).value().size(), 1U);
  }
}

TEST_F(RemoteTest, HeadThatNamesNothingOrAFileStopsTheFetch) {
  const Id file = BlobOf("1").GetId();
  const Id nothing = BlobOf("nowhere").GetId();
  for (const Id& id : {file, nothing}) {
    shared->MoveHeads({{{"bad", HeadOf(*shared, "bad"), id}}}).value();
    Site site = MakeSite("A");
    EXPECT_THAT(site.remote.Fetch(*site.local), FailsWith(ErrorCode::Damaged));
    EXPECT_THAT(site.memory->Heads().value(), IsEmpty());
    EXPECT_TRUE(site.remote.Fetch(*site.local, {.branches = {"master"}}).ok());
  }
}

TEST_F(RemoteTest, HeadThatNamesAFolderOrAFileWhichIsHereStopsTheFetch) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  const std::vector<Head> before = site.memory->Heads().value();
  for (const Id& id : {RootOf(shared), BlobOf("1").GetId()}) {
    shared->MoveHeads({{{"bad", HeadOf(*shared, "bad"), id}}}).value();
    EXPECT_THAT(site.remote.Fetch(*site.local), FailsWith(ErrorCode::Damaged));
    EXPECT_EQ(site.memory->Heads().value(), before);
    EXPECT_TRUE(site.remote.Fetch(*site.local, {.branches = {"master"}}).ok());
  }
}

TEST_F(RemoteTest, CommitWhoseParentIsAFolderWhichIsHereStopsTheFetch) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  const std::vector<Head> before = site.memory->Heads().value();
  const Id parent = HeadOf(*shared, "master");
  const Id folder = RootOf(shared);
  std::string packed;
  shared
      ->Read({{Add(shared, "master", {{"a", "next"}})}},
             [&](const Id&, const Kit::Result<Buffer>& read) { packed = Bytes(read.value()); })
      .value();
  const std::size_t place = packed.find(Kit::ToUtf8(parent.View()));
  ASSERT_NE(place, std::string::npos);
  packed.replace(place, 64, Kit::ToUtf8(folder.View()));
  const Buffer bytes = BufferOf(packed);
  const Id id(bytes);
  shared->Write({{Kit::StoredObject{id, bytes}}}).value();
  shared->MoveHeads({{{"master", HeadOf(*shared, "master"), parent}, {"bad", Id(), id}}}).value();
  EXPECT_THAT(site.remote.Fetch(*site.local), FailsWith(ErrorCode::Damaged));
  EXPECT_EQ(site.memory->Heads().value(), before);
}

// Somebody removes a branch of the remote and cleans up while it is fetched.
TEST_F(RemoteTest, HoleThatASecondLookExplainsIsNoDamage) {
  Site site = MakeSite("A");
  const Id topic = HeadOf(*shared, "topic");
  site.far->InterruptAt(2, [&] {
    shared->MoveHeads({{{"topic", topic, Id()}}}).value();
    site.far->FailObject(topic, ErrorCode::NotFound);
  });
  const Kit::FetchReport report = site.remote.Fetch(*site.local).value();
  EXPECT_EQ(report.heads.size(), 2U);
  ExpectWhole(*site.memory);
}

TEST_F(RemoteTest, BranchThatIsGoneStaysUnlessTheHostRemovesIt) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  shared->MoveHeads({{{"topic", HeadOf(*shared, "topic"), Id()}}}).value();
  site.remote.Fetch(*site.local).value();
  EXPECT_EQ(site.memory->Heads()->size(), 3U);
  site.remote.Fetch(*site.local, {.removesGone = true}).value();
  EXPECT_EQ(site.memory->Heads()->size(), 2U);
}

TEST_F(RemoteTest, FetchedObjectsNameTheirPreviousVersions) {
  /// A store that keeps the hints of what is written.
  class HintStore final : public Kit::PassingStore {
   public:
    using Kit::PassingStore::PassingStore;
    Kit::Status Write(std::span<const Kit::StoredObject> objects) override {
      for (const Kit::StoredObject& object : objects) hints[object.id] = object.previous;
      return Kit::PassingStore::Write(objects);
    }
    std::unordered_map<Id, Id> hints;
  };
  auto memory = std::make_shared<Kit::MemoryObjectStore>();
  HintStore local(memory);
  Kit::Remote remote(shared);
  remote.Fetch(local).value();
  // "topic" changes the file "a/b/c" of "master", in the same fetch.
  EXPECT_EQ(local.hints.at(BlobOf("changed").GetId()), BlobOf("deep").GetId());
  Add(shared, "topic", {{"a/b/c", "again"}});
  remote.Fetch(local).value();
  EXPECT_EQ(local.hints.at(BlobOf("again").GetId()), BlobOf("changed").GetId());
  EXPECT_EQ(local.hints.at(HeadOf(*shared, "topic")).View().length, 64);
}

TEST_F(RemoteTest, MainBranchIsTheSavedOneElseMasterElseTheFirst) {
  Kit::Remote remote(shared);
  EXPECT_EQ(remote.FindMainBranch().value(), "master");
  shared->SetValue("branch", "topic").value();
  EXPECT_EQ(remote.FindMainBranch().value(), "topic");
  shared->MoveHeads({{{"topic", HeadOf(*shared, "topic"), Id()}}}).value();
  EXPECT_EQ(remote.FindMainBranch().value(), "master");
  shared->MoveHeads({{{"master", HeadOf(*shared, "master"), Id()}}}).value();
  EXPECT_EQ(remote.FindMainBranch().value(), "other");
  EXPECT_EQ(Kit::Remote(std::make_shared<Kit::MemoryObjectStore>()).FindMainBranch().value(),
            "master");
}

TEST_F(RemoteTest, WatchWakesUpForWhatThisRemoteHasNotSeen) {
  Site site = MakeSite("A");
  Kit::HeadWaitOptions options;
  options.sleep = [](std::chrono::milliseconds) {};
  options.timeout = std::chrono::seconds(3);
  EXPECT_TRUE(site.remote.Watch(options).value()) << "nothing was fetched yet";
  site.remote.Fetch(*site.local).value();
  EXPECT_FALSE(site.remote.Watch(options).value());
  site.memory->MoveHeads({{{"master", Id(), HeadOf(*shared, "master")}}}).value();
  Add(site.memory, "master", {{"ours", "1"}});
  site.remote.Push(*site.local, "master").value();
  EXPECT_FALSE(site.remote.Watch(options).value()) << "its own push";
  options.sleep = [&](std::chrono::milliseconds) { Add(shared, "topic", {{"theirs", "1"}}); };
  EXPECT_TRUE(site.remote.Watch(options).value());
}

}  // namespace
}  // namespace TalVcs::Testing
