// A store in a folder while memory runs out: the store object that the operation was called on
// reads everything afterwards, and so does one that opens the folder anew.

#include <gtest/gtest.h>
#include <kit/store/directory_object_store.h>
#include <kit/text.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/failing_allocations.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Kit::DirectoryObjectStore;
using Kit::StoredObject;

/// Returns an id that is as good as that of an object; stores don't compare it with the bytes.
Id IdOf(char digit) { return Id(Kit::ToWide(std::string(64, digit))); }

/// Returns a text that is like those of other digits, so that stores keep differences.
std::string TextOf(char digit) {
  std::string text;
  for (int line = 0; line < 60; ++line) text += "line " + std::to_string(line * line) + '\n';
  return text.replace(300, 1, 1, digit);
}

StoredObject ObjectOf(char digit, char previous) {
  StoredObject object;
  object.id = IdOf(digit);
  const std::string text = TextOf(digit);
  object.packed.Append(text.data(), text.size());
  if (previous != 0) object.previous = IdOf(previous);
  return object;
}

/// A folder with a store of four versions, each in a save of its own.
struct Folder {
  Folder() {
    store = std::make_unique<DirectoryObjectStore>(
        DirectoryObjectStore::Create(folder.Path(), {.durable = false}).value());
    for (const char digit : {'1', '2', '3', '4'}) Save(digit, digit == '1' ? char() : digit - 1);
  }

  void Save(char digit, char previous) {
    const StoredObject object = ObjectOf(digit, previous);
    store->Write({&object, 1}).value();
    const Kit::HeadMove move{"branch " + std::string(1, digit), {}, object.id};
    store->MoveHeads({&move, 1}).value();
  }

  TemporaryFolder folder;
  std::unique_ptr<DirectoryObjectStore> store;
};

/// Returns what a store has under an id, or why it can't be read.
std::string Read(Kit::IObjectStore& store, char digit) {
  std::string text;
  const Id id = IdOf(digit);
  store
      .Read({&id, 1},
            [&text](const Id& /*id*/, const Kit::Result<Buffer>& packed) {
              text = packed ? Kit::BytesFromBuffer(*packed) : Kit::Describe(packed.error());
            })
      .value();
  return text;
}

void ExpectWhole(const Folder& folder, const std::string& digits) {
  DirectoryObjectStore anew = DirectoryObjectStore::Open(folder.folder.Path()).value();
  for (const char digit : digits) {
    EXPECT_EQ(Read(*folder.store, digit), TextOf(digit)) << "object " << digit;
    EXPECT_EQ(Read(anew, digit), TextOf(digit)) << "object " << digit << " opened anew";
  }
}

std::unique_ptr<Folder> MakeFolder() { return std::make_unique<Folder>(); }

// A removal that ran out of memory while it read the new packs left a store without its objects.
TEST(FailingAllocationsOfFolders, RemovalLosesNothingThatIsKept) {
  const auto remove = [](const std::unique_ptr<Folder>& folder) {
    folder->store
        ->RemoveUnmarked([](std::span<const Kit::Head>) -> Kit::Result<std::vector<Id>> {
          return std::vector<Id>{IdOf('1'), IdOf('3'), IdOf('4')};
        })
        .value();
  };
  const int failures = ForEachFailingAllocation(
      MakeFolder, remove, [&](const std::unique_ptr<Folder>& folder, bool threw) {
        ExpectWhole(*folder, "134");
        if (threw) remove(folder);
        ExpectWhole(*folder, "134");
        const Id gone = IdOf('2');
        EXPECT_EQ(folder->store->Missing({&gone, 1}).value().size(), 1U);
      });
  EXPECT_GT(failures, 100);
}

// The lock that `Heads` takes is taken again in a destructor. Memory that stayed short until then
// ended the program.
TEST(FailingAllocationsOfFolders, RemovalMayEndWithoutItsLock) {
  const auto remove = [](Folder& folder) {
    const auto removed = folder.store->RemoveUnmarked(
        [](std::span<const Kit::Head>) { return Kit::Result(std::vector<Id>{IdOf('1')}); });
    ASSERT_TRUE(removed.ok()) << Kit::Describe(removed.error());
  };
  int failures = 0;
  for (bool fired = true; fired; ++failures) {
    Folder folder;
    folder.store->Heads().value();
    {
      const FailingAllocation fault(static_cast<std::size_t>(failures),
                                    FailingAllocation::Kind::Lasting);
      try {
        remove(folder);
      } catch (const std::bad_alloc&) {
      }
      fired = fault.HasFired();
    }
    folder.store->Heads().value();
    ExpectWhole(folder, "1");
    // The objects of a store object that has called `Heads` stay.
    DirectoryObjectStore other = DirectoryObjectStore::Open(folder.folder.Path()).value();
    EXPECT_EQ(other.RemoveUnmarked([](std::span<const Kit::Head>) { return std::vector<Id>(); })
                  .error()
                  .code,
              Kit::ErrorCode::Busy);
    remove(folder);
  }
  EXPECT_GT(failures, 20);
}

// What a write had encoded before it ran out of memory is not in the store, and no base of others.
TEST(FailingAllocationsOfFolders, ObjectThatWasNotWrittenIsNoBase) {
  const std::vector<StoredObject> objects{ObjectOf('5', '4'), ObjectOf('6', '5')};
  const int failures = ForEachFailingAllocation(
      MakeFolder,
      [&](const std::unique_ptr<Folder>& folder) { folder->store->Write(objects).value(); },
      [](const std::unique_ptr<Folder>& folder, bool /*threw*/) {
        folder->Save('7', '6');
        folder->Save('8', '7');
        ExpectWhole(*folder, "123478");
        const std::vector<Id> ids{IdOf('5'), IdOf('6')};
        const auto missing = folder->store->Missing(ids).value();
        for (const char digit : {'5', '6'}) {
          const bool is_there = std::ranges::find(missing, IdOf(digit)) == missing.end();
          if (is_there) ExpectWhole(*folder, std::string(1, digit));
        }
      });
  EXPECT_GT(failures, 20);
}

TEST(FailingAllocationsOfFolders, ReadingCanBeRepeated) {
  const int failures = ForEachFailingAllocation(
      [] {
        auto folder = MakeFolder();
        *folder->store = DirectoryObjectStore::Open(folder->folder.Path()).value();
        return folder;
      },
      [](const std::unique_ptr<Folder>& folder) { Read(*folder->store, '3'); },
      [](const std::unique_ptr<Folder>& folder, bool /*threw*/) { ExpectWhole(*folder, "1234"); });
  EXPECT_GT(failures, 10);
}

}  // namespace
}  // namespace TalVcs::Testing
