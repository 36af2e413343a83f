#include <bench/host.h>
#include <bench/saves.h>
#include <kit/open/save.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/passing_store.h>
#include <kit/text.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <ostream>
#include <utility>

namespace TalVcs::Bench {
namespace {

constexpr std::size_t kChapters = 20;
constexpr std::size_t kChapterBytes = 4096;
constexpr std::size_t kEditBytes = 170;

WideText ChapterPath(std::size_t index) {
  return Widen("content/chapters/chapter-" + std::to_string(10 + index) + ".txt");
}

/// Text of words and numbers, which compresses like prose.
std::string Prose(Random& random, std::size_t size) {
  constexpr std::array<std::string_view, 34> kWords = {
      "the",    "model",  "of",      "a",       "document", "keeps", "each",   "version", "under",
      "its",    "name",   "and",     "every",   "reader",   "sees",  "what",   "was",     "written",
      "before", "when",   "host",    "saves",   "more",     "often", "than",   "people",  "think",
      "layers", "shapes", "colours", "numbers", "follow",   "page",  "chapter"};
  std::string text;
  while (text.size() < size) {
    text += kWords[random.Below(kWords.size())];
    text += random.Below(12) == 0 ? ".\n" : " ";
    if (random.Below(20) == 0) text += std::to_string(random.Below(100000)) + " ";
  }
  text.resize(size);
  return text;
}

std::string Edited(std::string text, Random& random) {
  const std::string edit = Prose(random, kEditBytes);
  if (text.size() <= edit.size()) return text + edit;
  return text.replace(random.Below(text.size() - edit.size()), edit.size(), edit);
}

void CommitAt(Repository& repository, Commit& commit, std::int64_t seconds) {
  commit.SetAuthorName(Widen(kAuthorName));
  commit.SetAuthorEmail(Widen(kAuthorEmail));
  commit.SetDescription(Widen("Autosave"));
  commit.SetCommitTime(Time::FromTimeT(seconds));
  repository.DoCommit(commit);
}

/// A store in memory that notes what each commit adds.
class Recorder final : public Kit::PassingStore {
 public:
  std::vector<Saved> saves{1};

  Recorder() : PassingStore(std::make_shared<Kit::MemoryObjectStore>()) {}

  Kit::Status Write(std::span<const Kit::StoredObject> objects) override {
    for (const Kit::StoredObject& object : objects) {
      saves.back().push_back(object);
      if (GetPackedType(object.packed) == ObjectType::Commit) saves.emplace_back();
    }
    return PassingStore::Write(objects);
  }
};

[[noreturn]] void Fail(const std::string& what) {
  std::cerr << what << '\n';
  std::exit(1);
}

}  // namespace

History MakeEdits(std::uint32_t commits) {
  Random random(13);
  History history{MakeRepository(), ChapterPath(7)};
  std::vector<std::string> chapters;
  Commit first(&history.repository, false);
  for (std::size_t index = 0; index < kChapters; ++index) {
    chapters.push_back(Prose(random, kChapterBytes));
    first.AddBlob(&history.repository, ChapterPath(index), MakeBlob(chapters.back()));
  }
  CommitAt(history.repository, first, kFirstTime);
  for (std::uint32_t number = 1; number < commits; ++number) {
    const std::size_t index = random.Below(kChapters);
    chapters[index] = Edited(std::move(chapters[index]), random);
    Commit commit(&history.repository, false);
    commit.AddBlob(&history.repository, ChapterPath(index), MakeBlob(chapters[index]));
    CommitAt(history.repository, commit, kFirstTime + number * std::int64_t{60});
  }
  return history;
}

History MakeBenchHistory() {
  constexpr std::uint32_t kFiles = 10000;
  constexpr std::uint32_t kCommits = 1000;
  History history{MakeRepository(), Widen(Path(7))};
  Import(history.repository, Files(kFiles), InOrder(kFiles), Way::Batch);
  Replay(history.repository, Changes(PlanHistory(kFiles, kCommits)), Way::Batch);
  return history;
}

History ReadHistory(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  History history{MakeRepository(), Widen("CMakeLists.txt")};
  std::string word;
  while (in >> word) {
    std::int64_t seconds = 0;
    std::uint64_t changes = 0;
    if (word != "commit" || !(in >> seconds >> changes)) Fail("no history: " + file.string());
    Commit commit(&history.repository, false);
    for (; changes > 0; --changes) {
      std::int64_t size = 0;
      std::string path;
      in >> size;
      in.ignore(1);
      std::getline(in, path);
      if (size < 0) {
        commit.RemoveObject(&history.repository, Kit::ToWide(path));
        continue;
      }
      std::string bytes(static_cast<std::size_t>(size), '\0');
      in.read(bytes.data(), size);
      commit.AddBlob(&history.repository, Kit::ToWide(path), MakeBlob(bytes));
    }
    if (!in) Fail("the history ends early: " + file.string());
    CommitAt(history.repository, commit, seconds);
  }
  return history;
}

std::vector<Saved> SavesOf(Repository& repository) {
  Recorder recorder;
  Kit::Save(repository, recorder).value();
  recorder.saves.pop_back();
  return std::move(recorder.saves);
}

void WriteFastImport(const Repository& repository, std::ostream& out) {
  std::vector<cow_ptr<Commit>> commits;
  for (cow_ptr<Commit> commit = repository.GetHead(); commit; commit = commit->GetParent()) {
    commits.push_back(commit);
  }
  cow_ptr<Tree> before;
  for (; !commits.empty(); commits.pop_back()) {
    const cow_ptr<Commit>& commit = commits.back();
    const std::string description = Kit::ToUtf8(commit->GetDesciption());
    out << "commit refs/heads/master\ncommitter " << kAuthorName << " <" << kAuthorEmail << "> "
        << commit->GetCommitTime().ToTimeT() << " +0000\ndata " << description.size() << '\n'
        << description << '\n';
    const cow_ptr<Tree> tree = commit->GetTree()->GetRoot();
    for (const WideText& path : tree->GetDeepBlobDiffs(before)) {
      const cow_ptr<Blob> blob = tree->GetDeepBlob(path);
      if (!blob) {
        out << "D " << Kit::ToUtf8(path) << '\n';
        continue;
      }
      const std::string bytes = Kit::BytesFromBlob(*blob);
      out << "M 100644 inline " << Kit::ToUtf8(path) << "\ndata " << bytes.size() << '\n'
          << bytes << '\n';
    }
    before = tree;
  }
}

void EditFile(Repository& repository, const WideText& path, std::uint32_t number) {
  Random random(1000 + number);
  const cow_ptr<Commit> head = repository.GetHead();
  Commit commit(&repository, false);
  const cow_ptr<Blob> blob = head->GetBlob(path);
  commit.AddBlob(&repository, path, MakeBlob(Edited(Kit::BytesFromBlob(*blob), random)));
  CommitAt(repository, commit, kFirstTime + std::int64_t{100000000} + number);
}

}  // namespace TalVcs::Bench
