// The library has no threads and no locks. Separate repositories on separate threads work, and what
// threads share by handles they may count, but not look into: each look may fill a cache.

#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <talvcs/persistence/deserializer.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/contents.h>
#include <tests/support/invariants.h>
#include <tests/support/scenario.h>

#include <barrier>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

constexpr int kThreads = 8;

/// Runs `work` with the numbers from 0 on, on that many threads that start together.
template <class Work>
void OnThreads(int count, Work work) {
  std::barrier start(count);
  std::vector<std::thread> threads;
  for (int number = 0; number < count; ++number) {
    threads.emplace_back([&start, &work, number] {
      start.arrive_and_wait();
      try {
        work(number);
      } catch (const std::exception& error) {
        ADD_FAILURE() << "thread " << number << ": " << error.what();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

/// A handle on each object of a repository.
struct Handles {
  explicit Handles(const Repository& repository) {
    for (const auto& [id, commit] : repository.GetStorage()->GetCommits()) {
      commits.push_back(commit);
      ids.push_back(id);
    }
    for (const auto& [id, tree] : repository.GetStorage()->GetTrees()) trees.push_back(tree);
    for (const auto& [id, blob] : repository.GetStorage()->GetBlobs()) blobs.push_back(blob);
  }

  std::vector<Id> ids;
  std::vector<cow_ptr<Commit>> commits;
  std::vector<cow_ptr<Tree>> trees;
  std::vector<cow_ptr<Blob>> blobs;
};

class Threads : public testing::Test {
 protected:
  Threads() {
    Repository repository = NewRepository();
    Scenario(20, 3).Run(repository, m_store);
  }

  Repository LoadRepository() {
    Repository repository = NewRepository();
    repository.CreateBranch(TAL_WIDE("none"), nullptr);
    repository.Checkout(TAL_WIDE("none"));
    EXPECT_TRUE(Deserializer(&m_store, TAL_WIDE("a document")).Deserialize(&repository));
    return repository;
  }

  Kit::MemoryStore m_store;
};

TEST_F(Threads, SeparateRepositoriesWorkAtOnce) {
  OnThreads(kThreads, [](int number) {
    const Scenario scenario(5 + 3 * number, 2);
    for (int turn = 0; turn < 5; ++turn) {
      Repository repository = NewRepository();
      Kit::MemoryStore store;
      scenario.Run(repository, store);
      EXPECT_EQ(FindViolation(repository), "") << number;
    }
  });
}

// The objects come to be while the process has one thread, which counts without atomic steps.
TEST_F(Threads, HandlesOnTheSameObjectsAreCopiedAndDropped) {
  const Repository repository = LoadRepository();
  const Handles all(repository);
  ASSERT_GT(all.trees.size(), 10u);
  const long holders = all.trees.front().use_count();
  OnThreads(kThreads, [&all](int number) {
    for (int turn = 0; turn < 300; ++turn) {
      Handles copy(all);
      std::swap(copy.trees.front(), copy.trees.back());
      const cow_ptr<Object> object = copy.blobs[static_cast<std::size_t>(number)];
      copy.commits.clear();
      const Handles second = std::move(copy);
      EXPECT_EQ(second.trees.back(), all.trees.front());
      EXPECT_GE(object.use_count(), 3);
      EXPECT_TRUE(second.ids.back() == all.ids.back());
    }
  });
  EXPECT_EQ(all.trees.front().use_count(), holders);
  EXPECT_EQ(FindViolation(repository), "");
}

TEST_F(Threads, LastHandleMayEndOnAnyThread) {
  for (int turn = 0; turn < 20; ++turn) {
    std::vector<Handles> shares;
    {
      const Repository repository = LoadRepository();
      for (int number = 0; number < kThreads; ++number) shares.emplace_back(repository);
    }
    OnThreads(kThreads, [&shares](int number) {
      Handles& own = shares[static_cast<std::size_t>(number)];
      // Half of them from the other end, so that the last holders meet in the middle.
      while (!own.trees.empty()) {
        const auto end = number % 2 == 0 ? own.trees.begin() : own.trees.end() - 1;
        own.trees.erase(end);
      }
      own.commits.clear();
      EXPECT_GE(own.blobs.front().use_count(), 1);
      own.blobs.clear();
    });
  }
}

// Each thread has a store object of its own.
TEST_F(Threads, StoreObjectsWorkOnOneFolderAtOnce) {
  const TemporaryFolder folder;
  const auto open = [&folder] {
    Kit::DirectoryStoreOptions options;
    options.durable = false;
    return Kit::DirectoryStore(folder.Path(), options);
  };
  std::string texts[2];
  OnThreads(4, [&](int number) {
    Repository repository = number % 2 == 0 ? OldState() : NewState();
    if (number < 2) texts[number] = Describe(repository);
    int done = 0;
    // A thread that is refused tries again; the others may be quicker many times over.
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (done < 3 && std::chrono::steady_clock::now() < limit) {
      Kit::DirectoryStore store = open();
      if (Save(repository, store) && store.Commit()) {
        ++done;
      } else {
        EXPECT_NE(store.LastError().find("another writer"), std::string::npos) << store.LastError();
        std::this_thread::sleep_for(std::chrono::milliseconds(number + 1));
      }
    }
    EXPECT_EQ(done, 3) << number;
  });
  Kit::DirectoryStore store = open();
  const std::string found = Load(store);
  EXPECT_TRUE(found == texts[0] || found == texts[1]) << found;
}

}  // namespace
}  // namespace TalVcs::Testing
