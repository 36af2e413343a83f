// Reads that fail. A link that can't be followed stays as it was, no branch moves, and the call can
// be repeated.

#include <talvcs/storage/mem_objects_storage.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/merging.h>
#include <tests/support/on_demand_store.h>

#include <functional>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

/// Something to do with a repository, which returns what it found as text.
using Step = std::function<std::string(Repository&)>;

std::string PathsIn(const std::vector<TalStringT<WideChar>>& paths) {
  std::string text;
  for (const std::string& path : Ascii(paths)) text += path + ' ';
  return text;
}

// Times are left out, because they differ from run to run.
std::string TextsOf(const cow_ptr<Commit>& head) {
  std::string texts;
  for (cow_ptr<Commit> at = head; at; at = at->GetParent()) {
    texts += ListingOf(at) + '|' + Ascii(at->GetDesciption()) + '\n';
  }
  return texts;
}

/// Two branches that part from "master" and one that is apart from all, some commits each.
void Fill(Repository& repository) {
  for (int index = 0; index < 3; ++index) {
    CommitFiles(repository, {{"a/b/c", "base " + std::to_string(index)}, {"a/d", "d"}, {"e", "e"}});
  }
  repository.CreateBranch(TAL_WIDE("left"), nullptr);
  repository.CreateBranch(TAL_WIDE("right"), nullptr);
  for (const char* side : {"left", "right"}) {
    repository.Checkout(Wide(side));
    for (int index = 0; index < 3; ++index) {
      const std::string text = side + std::to_string(index);
      CommitFiles(repository, {{"a/b/c", text}, {"of/" + text, text}, {"a/b/" + text, text}});
    }
  }
  cow_ptr<Commit> apart;
  for (int index = 0; index < 3; ++index) {
    Commit commit(apart, false);
    commit.AddBlob(&repository, TAL_WIDE("f"), BlobOf(std::to_string(index)));
    apart = repository.SyncWithStorage(Make<Commit>(commit));
  }
  repository.CreateBranch(TAL_WIDE("apart"), apart);
  repository.Checkout(TAL_WIDE("left"));
}

cow_ptr<Commit> Head(const Repository& repository, const char* name) {
  return repository.GetHead(Wide(name));
}

std::string Texts(const Repository& repository, const char* name) {
  return TextsOf(Head(repository, name));
}

std::string EditDraft(Repository& repository) {
  Commit commit(&repository, false);
  commit.AddBlob(&repository, TAL_WIDE("a"), BlobOf("a blob in place of a directory"));
  commit.AddBlob(&repository, TAL_WIDE("of/left0/x"), BlobOf("x"));
  commit.RemoveObject(&repository, TAL_WIDE("of/left1"));
  return PathsIn(commit.GetTree()->GetAllBlobPaths());
}

/// The steps of a long life, each of which is repeated if it fails.
std::vector<Step> LongLife() {
  const auto yes = [](bool done) { return std::string(done ? "done" : "not done"); };
  return {
      [](Repository& r) { return TextOf(Head(r, "left")->GetBlob(TAL_WIDE("a/b/c"))); },
      [](Repository& r) { return ListingOf(Head(r, "right")); },
      [](Repository& r) {
        const auto other = Head(r, "apart")->GetTree();
        return PathsIn(Head(r, "left")->GetTree()->GetBlobDiffs(other));
      },
      EditDraft,
      [=](Repository& r) {
        return yes(CommitFiles(r, {{"a/b/new", "new"}}) != nullptr);
      },
      [](Repository& r) { return Texts(r, "left"); },
      [=](Repository& r) {
        return yes(r.Merge(Head(r, "right"), Descending(ConflictChoice::Right)));
      },
      [](Repository& r) { return Texts(r, "left"); },
      [](Repository& r) { return TextsOf(r.GetCommonBase(r.GetHead(), Head(r, "right"))); },
      [=](Repository& r) { return yes(r.FastForwardMerge(Head(r, "master"))); },
      [=](Repository& r) {
        return yes(r.EnsureCommonRootFor(TAL_WIDE("right"), TAL_WIDE("apart"), TAL_WIDE("root")));
      },
      [](Repository& r) { return Texts(r, "apart"); },
      [=](Repository& r) { return yes(r.DeleteCommits(Head(r, "right")->GetParent())); },
      [](Repository& r) { return Texts(r, "right"); },
      [=](Repository& r) { return yes(r.SimplifyCommitGraph(true)); },
      [](Repository& r) { return Texts(r, "left") + Texts(r, "apart"); },
  };
}

std::vector<std::string> ExpectedResults() {
  Repository repository(std::make_unique<MemObjectsStorage>());
  Fill(repository);
  std::vector<std::string> results;
  for (const Step& step : LongLife()) results.push_back(step(repository));
  return results;
}

std::vector<std::string> HeadIds(Repository& repository) {
  std::vector<std::string> ids;
  for (const auto& [name, id] : OnDemandStore::StorageOf(repository).GetHeadIds()) {
    ids.push_back(Ascii(name) + Ascii(id));
  }
  return ids;
}

class FailingReads : public ::testing::Test {
 protected:
  FailingReads() {
    Repository repository = m_store.Open();
    Fill(repository);
    m_store.Save(repository);
  }

  /// Lives while the n-th read fails, with a trim before every step if `trims` is true. Returns
  /// false if there were fewer reads.
  bool Live(std::uint64_t n, bool trims) {
    Repository repository = m_store.Open();
    repository.Checkout(TAL_WIDE("left"));
    m_store.reader->failAfter = n;
    const std::vector<Step> steps = LongLife();
    for (std::size_t index = 0; index < steps.size(); ++index) {
      if (trims) OnDemandStore::StorageOf(repository).Trim();
      const std::vector<std::string> before = HeadIds(repository);
      std::string result;
      try {
        result = steps[index](repository);
      } catch (const StoreFailure&) {
        result.clear();
      } catch (const ObjectUnavailable& problem) {
        EXPECT_EQ(problem.GetProblem(), m_store.reader->failsWith);
      }
      if (result.empty()) {
        EXPECT_EQ(HeadIds(repository), before) << "read " << n << ", step " << index;
        result = steps[index](repository);
      }
      EXPECT_EQ(result, m_expected[index]) << "read " << n << ", step " << index;
    }
    return m_store.reader->failAfter == 0;
  }

  /// Lives with every one of the reads failing.
  void LiveWithEach(bool trims) {
    std::uint64_t n = 1;
    while (Live(n, trims) && !HasFailure()) ++n;
    EXPECT_GT(n, 40U);
  }

  OnDemandStore m_store;
  const std::vector<std::string> m_expected = ExpectedResults();
};

TEST_F(FailingReads, MoveNoBranchAndCanBeRepeated) { LiveWithEach(false); }

TEST_F(FailingReads, MoveNoBranchWhereEveryStepBeginsTrimmed) { LiveWithEach(true); }

TEST_F(FailingReads, ReportAnUnreadableObjectAndCanBeRepeated) {
  m_store.reader->failsWith = ObjectProblem::Unreadable;
  LiveWithEach(false);
}

TEST_F(FailingReads, OfAReaderThatPassesAheadCanBeRepeated) {
  m_store.reader->passesAhead = true;
  std::uint64_t n = 1;
  while (Live(n, true) && !HasFailure()) ++n;
  EXPECT_GT(n, 20U);
}

TEST_F(FailingReads, LeaveASaveToBeRepeated) {
  Repository repository = m_store.Open();
  repository.Checkout(TAL_WIDE("left"));
  CommitFiles(repository, {{"a/b/new", "new"}});
  const auto refuse = [](void*, const Id&, const Buffer&) { throw StoreFailure(); };
  OnDemandStorage& storage = OnDemandStore::StorageOf(repository);
  EXPECT_THROW(storage.VisitUnsaved({this, refuse}), StoreFailure);
  EXPECT_EQ(m_store.Save(repository), 5U);  // commit, root, "a", "a/b", the blob
  Repository reopened = m_store.Open();
  EXPECT_EQ(TextOf(Head(reopened, "left")->GetBlob(TAL_WIDE("a/b/new"))), "new");
}

/// A reader's own exception, which no part of the library knows.
struct OutOfPaper {
  int sheets;
};

class ThrowingReader : public IObjectReader {
 public:
  void Read(std::span<const Id>, ReadAhead, std::uint64_t, Sink) override { throw OutOfPaper{3}; }
};

TEST_F(FailingReads, PassOnTheExceptionOfTheReader) {
  const Repository repository(
      std::make_unique<OnDemandStorage>(std::make_shared<ThrowingReader>(), m_store.heads));
  try {
    Head(repository, "left");
    FAIL() << "nothing was thrown";
  } catch (const OutOfPaper& thrown) {
    EXPECT_EQ(thrown.sheets, 3);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
