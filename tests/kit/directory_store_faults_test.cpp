#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/internal/store_access.h>
#include <tests/kit/faulty_file_system.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>

#include <limits>
#include <ostream>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;
using Testing::Describe;

struct Fault {
  const char* name;
  std::errc error;
  int count;  // how many calls fail, from the n-th on
  bool syncsMedium;
};

// GoogleTest would print the bytes, those after the members too.
void PrintTo(const Fault& fault, std::ostream* output) { *output << fault.name; }

/// Lets the n-th call of a save fail, for every n, and looks at the store with other eyes after
/// each.
class DirectoryStoreFaults : public testing::TestWithParam<std::tuple<Fault, bool>> {
 protected:
  DirectoryStoreOptions Options() const {
    DirectoryStoreOptions options;
    options.durable = std::get<bool>(GetParam());
    return options;
  }

  DirectoryStore OpenWhole(const std::filesystem::path& folder) {
    return StoreAccess::Make(folder, Options(), std::make_shared<FaultyFileSystem>());
  }

  std::string LoadAfresh(const std::filesystem::path& folder) {
    DirectoryStoreOptions options;
    options.durable = false;
    DirectoryStore store(folder, options);
    EXPECT_TRUE(store.FindDamage().empty()) << store.LastError();
    return Load(store);
  }

  bool SaveWithFault(const std::filesystem::path& folder, Repository& repository, int number,
                     bool& fired) {
    const Fault& fault = std::get<Fault>(GetParam());
    auto files = std::make_shared<FaultyFileSystem>();
    files->FailFrom(number, fault.count);
    files->FailWith(fault.error);
    if (fault.syncsMedium) files->OfferSyncMedium();
    DirectoryStore store = StoreAccess::Make(folder, Options(), files);
    const bool saved = Save(repository, store);
    const bool done = store.Commit() && saved;
    fired = files->HasFailed();
    EXPECT_TRUE(done || !store.LastError().empty()) << number;
    return done;
  }
};

TEST_P(DirectoryStoreFaults, SaveLeavesTheOldStateOrTheNew) {
  Repository oldState = OldState();
  Repository newState = NewState();
  const std::string before = Describe(oldState);
  const std::string after = Describe(newState);
  bool fired = true;
  int failures = 0;
  for (int number = 1; fired; ++number) {
    const TemporaryFolder folder;
    DirectoryStore first = OpenWhole(folder.Path());
    ASSERT_TRUE(Save(oldState, first) && first.Commit());
    const bool done = SaveWithFault(folder.Path(), newState, number, fired);
    const std::string found = LoadAfresh(folder.Path());
    EXPECT_TRUE(found == after || (!done && found == before)) << number << ": " << found;
    if (!done) ++failures;

    // Nothing is in the way of the next save.
    DirectoryStore next = OpenWhole(folder.Path());
    ASSERT_TRUE(Save(newState, next) && next.Commit()) << number << ": " << next.LastError();
    EXPECT_EQ(LoadAfresh(folder.Path()), after) << number;
  }
  EXPECT_GT(failures, 10);
}

TEST_P(DirectoryStoreFaults, FirstSaveLeavesNothingOrAll) {
  Repository newState = NewState();
  const std::string after = Describe(newState);
  bool fired = true;
  for (int number = 1; fired; ++number) {
    const TemporaryFolder folder;
    const bool done = SaveWithFault(folder.Path() / "store", newState, number, fired);
    const std::string found = LoadAfresh(folder.Path() / "store");
    const bool nothing = found == "0 commits, 0 trees, 0 blobs";
    EXPECT_TRUE(found == after || (!done && nothing)) << number << ": " << found;
  }
}

TEST_P(DirectoryStoreFaults, LoadIsWholeOrFails) {
  const TemporaryFolder folder;
  Repository repository = OldState();
  DirectoryStore first = OpenWhole(folder.Path());
  ASSERT_TRUE(Save(repository, first) && first.Commit());
  const Fault& fault = std::get<Fault>(GetParam());
  auto files = std::make_shared<FaultyFileSystem>();
  for (int number = 1; number == 1 || files->HasFailed(); ++number) {
    files->Restart();
    files->FailFrom(number, fault.count);
    files->FailWith(fault.error);
    DirectoryStore store = StoreAccess::Make(folder.Path(), Options(), files);
    const std::string found = Load(store);
    const bool damaged = found.compare(0, 8, "damaged ") == 0;
    EXPECT_TRUE(damaged || found == Describe(repository)) << number << ": " << found;
    EXPECT_EQ(damaged, !store.LastError().empty()) << number;
  }
}

std::string NameOf(const testing::TestParamInfo<std::tuple<Fault, bool>>& info) {
  return std::string(std::get<Fault>(info.param).name) +
         (std::get<bool>(info.param) ? "Durable" : "Quick");
}

INSTANTIATE_TEST_SUITE_P(
    All, DirectoryStoreFaults,
    testing::Combine(testing::Values(Fault{"OneError", std::errc::io_error, 1, false},
                                     Fault{"FullMedium", std::errc::no_space_on_device, 1, true},
                                     Fault{"NoPermission", std::errc::permission_denied, 1, false},
                                     Fault{"EndOfTheProcess", std::errc::io_error,
                                           std::numeric_limits<int>::max(), true}),
                     testing::Bool()),
    NameOf);

}  // namespace
}  // namespace TalVcs::Kit
