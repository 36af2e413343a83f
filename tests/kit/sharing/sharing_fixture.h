#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/open/verify.h>
#include <kit/sharing/remote.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/workspace/workspace.h>
#include <talvcs/persistence/packed_object.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

/// Workspaces with stores of their own that share a history through one store.
namespace TalVcs::Testing {

/// A store that refuses an object before what it names, and a head before its commit.
class OrderedStore final : public Kit::PassingStore {
 public:
  using Kit::PassingStore::PassingStore;

  Kit::Status Write(std::span<const Kit::StoredObject> objects) override {
    for (const Kit::StoredObject& object : objects) {
      VisitReferences(object.packed, {this, [](void* self, const PackedReference& reference) {
                                        static_cast<OrderedStore*>(self)->Need(reference.id);
                                      }});
      Kit::PassingStore::Write({&object, 1}).value();
    }
    return {};
  }
  Kit::Status MoveHeads(std::span<const Kit::HeadMove> moves) override {
    for (const Kit::HeadMove& move : moves) {
      if (!(move.desired == Id())) Need(move.desired);
    }
    return Kit::PassingStore::MoveHeads(moves);
  }

 private:
  void Need(const Id& id) {
    EXPECT_TRUE(Missing({&id, 1}).value().empty()) << "it names what is missing: " << id;
  }
};

/// One who works on the shared history.
struct Site {
  std::shared_ptr<Kit::MemoryObjectStore> memory;   // the local store
  std::shared_ptr<Kit::FaultInjectionStore> local;  // over it
  std::shared_ptr<Kit::FaultInjectionStore> far;    // over the shared store
  Kit::Remote remote;
  Kit::Workspace workspace;
};

class SharingTest : public testing::Test {
 protected:
  using Seconds = std::chrono::seconds;

  Kit::Workspace OpenOn(const std::shared_ptr<Kit::IObjectStore>& store,
                        const std::string& author) {
    Kit::WorkspaceOptions options;
    options.author = author;
    options.clock = [this] { return now += Seconds(60); };
    return Kit::Workspace::Open(store, options).value();
  }

  /// Makes a site. A clean-up beside a write makes the order of objects mean nothing.
  Site MakeSite(const std::string& author, bool checksOrder = true) {
    auto memory = std::make_shared<Kit::MemoryObjectStore>();
    auto local = std::make_shared<Kit::FaultInjectionStore>(InOrder(memory, checksOrder));
    auto far = std::make_shared<Kit::FaultInjectionStore>(InOrder(shared, checksOrder));
    return {memory, local, far, Kit::Remote(far), OpenOn(local, author)};
  }

  /// Writes a file and makes a version of that.
  static Kit::Version Edit(Site& site, const std::string& path, const std::string& text) {
    site.workspace.Write(path, text).value();
    return site.workspace.Commit(path + " = " + text).value().value();
  }

  /// Puts a commit on a branch of a store.
  static Id Add(const std::shared_ptr<Kit::MemoryObjectStore>& store, const std::string& branch,
                const Files& files) {
    Kit::OpenedRepository opened = Kit::Open(store).value();
    const Id id = AddCommit(opened.GetRepository(), branch, files)->GetId();
    Kit::Save(opened).value();
    return id;
  }

  /// Returns the head of a branch; the empty id if there is no such branch.
  static Id HeadOf(Kit::IObjectStore& store, const std::string& branch) {
    for (const Kit::Head& head : store.Heads().value()) {
      if (head.name == branch) return head.id;
    }
    return Id();
  }

  /// Options that wait in no time, and keep how long.
  Kit::SyncOptions Options() {
    Kit::SyncOptions options;
    options.sleep = [this](std::chrono::milliseconds time) { slept += time; };
    return options;
  }
  Kit::SyncReport Sync(Site& site) { return site.workspace.Sync(site.remote, Options()).value(); }

  static std::vector<std::string> Summaries(const Kit::Workspace& workspace) {
    std::vector<std::string> summaries;
    for (const Kit::Version& version : workspace.Log({.limit = 10000}).value()) {
      summaries.push_back(version.summary);
    }
    return summaries;
  }

  /// Each branch of the store can be read as a whole.
  static void ExpectWhole(Kit::IObjectStore& store) {
    const Kit::VerifyReport report = Kit::Verify(store).value();
    EXPECT_TRUE(report.IsWhole());
  }

  static std::shared_ptr<Kit::IObjectStore> InOrder(
      const std::shared_ptr<Kit::MemoryObjectStore>& store, bool checksOrder) {
    if (!checksOrder) return store;
    return std::make_shared<OrderedStore>(store);
  }

  std::chrono::sys_seconds now = std::chrono::sys_seconds(Seconds(1000000000));
  std::chrono::milliseconds slept{0};
  std::shared_ptr<Kit::MemoryObjectStore> shared = std::make_shared<Kit::MemoryObjectStore>();
};

}  // namespace TalVcs::Testing
